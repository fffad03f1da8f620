// The values of the configuration file.
#pragma once

#include <cstdint>

#include "common/log_place.h"

// All values of one read of the file. Initialised with the defaults.
struct ConfigValues {
    std::uint32_t interval = 120;    // seconds the worker sleeps between two cycles
    std::uint32_t vol_sessions = 0;  // sessions per volume; 0: computed
    std::uint32_t min_vol_sessions = 2;
    std::uint32_t max_vol_sessions = 8;
    std::uint32_t worker_stop = 0;  // non-zero: no polling passes
    std::uint32_t log_level = 1;
    std::uint32_t vmknic_count = 0;  // number of NICs to calculate with; 0: all
    std::uint32_t max_pe_sessions = 32;
    std::uint32_t min_pe_sessions = 4;
    std::uint32_t use_ostrel_timeouts = 1;
    char ostrel_logs_path[LOG_FILENAME_SIZE] = "/var/log/ostrel";
};

inline constexpr std::uint32_t MIN_INTERVAL = 60;
inline constexpr std::uint32_t MAX_INTERVAL = 604800;
