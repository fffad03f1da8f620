// Which messages the log takes. Beside log.h, which nearly every file includes: <atomic> takes long to compile.
#pragma once

#include <atomic>
#include <cstdint>

// Messages up to this level are written. 1 at load, then 1 or 2 as the configuration file says.
extern std::atomic<std::uint32_t> log_level;
