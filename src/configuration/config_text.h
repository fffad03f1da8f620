// The canonical configuration file, and its values in a line of the log.
#pragma once

#include <cstddef>

#include "configuration/config_values.h"

// Room for the file, and for the line, with the longest values.
inline constexpr std::size_t CONFIG_TEXT_SIZE = 4096;
inline constexpr std::size_t CONFIG_LINE_SIZE = 512;

// The two forms differ in the wording of some comment lines.
enum class ConfigForm { created, rewritten };

// Writes the file with the record's values into `text`; returns its length.
std::size_t compose_config(char (&text)[CONFIG_TEXT_SIZE], ConfigForm form, const ConfigValues& values);

// Fills `text` with what the log tells of the values in force: "interval = 120, vol_sessions = 0, ...". Without
// `values`, a conversion of printf stands in place of each.
void compose_config_line(char (&text)[CONFIG_LINE_SIZE], const ConfigValues* values);
