// The canonical configuration file and writing it.
#pragma once

#include <cstddef>

#include "OstrelProvider/config.h"

// Room for the file with the longest values.
inline constexpr std::size_t CONFIG_TEXT_SIZE = 4096;

// The two forms differ in the wording of some comment lines.
enum class ConfigForm { created, rewritten };

// Fills `text` with the file that holds the record's values; returns its length.
std::size_t compose_config(char (&text)[CONFIG_TEXT_SIZE], ConfigForm form, const ConfigValues& values);

// How far writing the file came.
enum class ConfigWrite { written, not_opened, not_written };

// Replaces the file's content in place: truncates and writes once. errno tells the cause of a failure.
ConfigWrite write_config_file(const char* text, std::size_t length) OXR_REQUIRES(config_file_mutex);
