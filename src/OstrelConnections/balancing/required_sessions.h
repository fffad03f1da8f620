// How many sessions a volume or group-scoped target should have: functions of their inputs alone.
#pragma once

#include <cstdint>

#include "OstrelProvider/config.h"

// With this many paths or more nothing is balanced.
inline constexpr int MAX_PATHS_LIMIT = 2048;

// A volume: vol_sessions when set, else two sessions per array with one NIC, one per NIC and array with more;
// raised to the minimum and then lowered to the maximum, both unsigned: a negative product is above every maximum.
// `num_nic` is above 0.
std::uint32_t required_volume_sessions(const ConfigValues& values, int num_nic, int num_member_arrays);

// A group-scoped target before its limits: for each active array one session per NIC but at least four, for
// each other array of the group two.
int required_target_sessions(int num_nic, int num_active_array, int num_total_array);
