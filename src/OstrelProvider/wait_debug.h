// The debugger wait of the enumerate operations.
#pragma once

#include <atomic>
#include <cstdint>

// If the environment variable WAIT_PROC is set: sets the flag and writes a line to standard error every second until a
// debugger clears the flag. Otherwise clears the flag and writes one line.
void wait_for_debugger(std::atomic<std::int32_t>& waitDebug);
