// The canonical configuration file.
#pragma once

#include <cstddef>

#include "configuration/config_values.h"

// Room for the file with the longest values.
inline constexpr std::size_t CONFIG_TEXT_SIZE = 4096;

// The two forms differ in the wording of some comment lines.
enum class ConfigForm { created, rewritten };

// Fills `text` with the file that holds the record's values; returns its length.
std::size_t compose_config(char (&text)[CONFIG_TEXT_SIZE], ConfigForm form, const ConfigValues& values);
