// The configuration file: reading with correction, creation and conversion.
#pragma once

#include <cstdint>

#include "OstrelProvider/log.h"
#include "configuration/config_values.h"

inline constexpr char OSTREL_CONFIG_DIR[] = "/etc/ostrel";
inline constexpr char OSTREL_CONFIG_FILE[] = "/etc/ostrel/oxr.conf";

// Serialises reading and writing the configuration file. Taken by the callers of OSTREL_GetConfigValues and
// set_value_in_file, and by the creation or conversion at service start.
extern oxr::Mutex config_file_mutex;

// How the file is read: lines of key=value, or the old format's key:value, which is then rewritten.
inline constexpr std::uint32_t CONFIG_NORMAL = 0;
inline constexpr std::uint32_t CONFIG_CONVERT = 1;

// Reads the file into `values`, replaces what is out of range, sets the global log level, and rewrites the
// file when something had to be corrected or was missing. 0: read (and rewritten if needed). -1: the file
// can't be opened or read (`values` untouched), or the rewrite failed (`values` filled).
int OSTREL_GetConfigValues(ConfigValues* values, std::uint32_t conversion) OXR_REQUIRES(config_file_mutex);

// What a reading came to. `values` are filled by the first two only.
enum class ConfigRead {
    read,
    not_rewritten,
    absent,   // there is no file
    refused,  // it can't be opened or read to its end, or its text isn't to be taken for values
};

// OSTREL_GetConfigValues for who must know what failed: a file that was refused must not be written over.
ConfigRead read_config_file(ConfigValues& values, std::uint32_t conversion) OXR_REQUIRES(config_file_mutex);

// Makes the configuration directory and file when absent and converts a file of the old format. Failures are
// logged; the worker then goes by its own defaults.
void OSTREL_CreateConfigFile() OXR_REQUIRES(config_file_mutex);
