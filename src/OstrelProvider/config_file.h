// Writing the configuration file.
#pragma once

#include <cstddef>

#include "OstrelProvider/config.h"

// How far writing the file came.
enum class ConfigWrite { written, not_opened, not_written };

// Replaces the file's content in place: truncates and writes once. errno tells the cause of a failure.
ConfigWrite write_config_file(const char* text, std::size_t length) OXR_REQUIRES(config_file_mutex);
