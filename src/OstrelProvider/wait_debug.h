// The debugger wait of the enumerate operations.
#pragma once

#include <atomic>
#include <cstdint>

// With the environment variable WAIT_PROC set: sets the flag and writes a line to standard error every second
// until a debugger clears it. Otherwise clears the flag and writes one line.
void wait_for_debugger(std::atomic<std::int32_t>& waitDebug);
