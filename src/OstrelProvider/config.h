// The configuration file: read and correct, create, convert.
#pragma once

#include <cstdint>

#include "OstrelProvider/log.h"
#include "configuration/config_values.h"

inline constexpr char OSTREL_CONFIG_DIR[] = "/etc/ostrel";
inline constexpr char OSTREL_CONFIG_FILE[] = "/etc/ostrel/oxr.conf";

// Serialises reads and writes of the configuration file. Taken by the callers of OSTREL_GetConfigValues and
// set_value_in_file, and for the creation or conversion at service start.
extern oxr::Mutex config_file_mutex;

// The format to read: key=value, or the old key:value, after which the file is rewritten.
inline constexpr std::uint32_t CONFIG_NORMAL = 0;
inline constexpr std::uint32_t CONFIG_CONVERT = 1;

// Reads the file into `values`, replaces values out of range, sets the global log level, and rewrites the file if a
// value was corrected or missing. 0: read (and rewritten if needed). -1: the file cannot be opened or read (`values`
// unchanged), or the rewrite failed (`values` set).
int OSTREL_GetConfigValues(ConfigValues* values, std::uint32_t conversion) OXR_REQUIRES(config_file_mutex);

// The result of a read. Only the first two set `values`.
enum class ConfigRead {
    read,
    not_rewritten,
    absent,   // the file does not exist
    refused,  // it cannot be opened or read completely, or its text must not be used
};

// OSTREL_GetConfigValues with a detailed result: a refused file must not be overwritten.
ConfigRead read_config_file(ConfigValues& values, std::uint32_t conversion) OXR_REQUIRES(config_file_mutex);

// Creates the configuration directory and file if they are absent, and converts a file of the old format. Logs
// failures; the worker then uses the defaults.
void OSTREL_CreateConfigFile() OXR_REQUIRES(config_file_mutex);
