// The canonical configuration file.
#pragma once

#include <cstddef>

#include "configuration/config_values.h"

// Size of the file with the longest values.
inline constexpr std::size_t CONFIG_TEXT_SIZE = 4096;

// The two forms differ in the wording of some comment lines.
enum class ConfigForm { created, rewritten };

// Writes the file with the record's values into `text`; returns its length.
std::size_t compose_config(char (&text)[CONFIG_TEXT_SIZE], ConfigForm form, const ConfigValues& values);
