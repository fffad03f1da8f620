// Writing the configuration file.
#pragma once

#include <cstddef>

#include "OstrelProvider/config.h"

// How far writing the file came.
enum class ConfigWrite { written, not_opened, not_written };

// Replaces the file's content in place, so that its links, owner and mode stay. A file that can't be written whole
// keeps its text, one that can't be created whole isn't there; only after a failing close the new text may stand in
// it all the same, and a file that a dangling link names may stay empty. A kill leaves the text of before or of after,
// maybe with line feeds behind it; a file longer than CONFIG_TEXT_SIZE may keep later lines of before behind the new.
// `length`: at most CONFIG_TEXT_SIZE. errno tells the cause of a failure.
ConfigWrite write_config_file(const char* text, std::size_t length) OXR_REQUIRES(config_file_mutex);
