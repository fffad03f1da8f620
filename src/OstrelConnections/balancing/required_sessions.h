// The required number of sessions of a volume or group-scoped target: pure functions.
#pragma once

#include <cstdint>

#include "OstrelProvider/config.h"

// With this many paths or more, nothing is balanced.
inline constexpr int MAX_PATHS_LIMIT = 2048;

// For a volume: vol_sessions if it is set; otherwise two sessions per array with one NIC, or one per NIC and array with
// more. Then raised to the minimum and lowered to the maximum, both unsigned: a negative product exceeds every maximum.
// `num_nic` must be positive.
std::uint32_t required_volume_sessions(const ConfigValues& values, int num_nic, int num_member_arrays);

// For a group-scoped target, before its limits: for each active array one session per NIC but at least four, and two
// for each other array of the group.
int required_target_sessions(int num_nic, int num_active_array, int num_total_array);
