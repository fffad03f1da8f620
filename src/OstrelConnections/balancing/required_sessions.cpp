#include "OstrelConnections/balancing/required_sessions.h"

#include <algorithm>

namespace {

constexpr int min_sessions_per_active_array = 4;
constexpr int sessions_per_other_array = 2;
constexpr int sessions_per_array_with_one_nic = 2;

// Limits the number to 32 bits.
int to_int(std::int64_t required) {
    return static_cast<int>(std::clamp<std::int64_t>(required, INT32_MIN, INT32_MAX));
}

}  // namespace

std::uint32_t required_volume_sessions(const ConfigValues& values, int num_nic, int num_member_arrays) {
    std::uint32_t required = values.vol_sessions;
    if (required == 0) {
        const std::int64_t per_array = num_nic == 1 ? sessions_per_array_with_one_nic : num_nic;
        required = static_cast<std::uint32_t>(to_int(per_array * num_member_arrays));
    }
    required = std::max(required, values.min_vol_sessions);
    return std::min(required, values.max_vol_sessions);
}

int required_target_sessions(int num_nic, int num_active_array, int num_total_array) {
    const std::int64_t factor = std::max(num_nic, min_sessions_per_active_array);
    const std::int64_t required =
        factor * num_active_array +
        sessions_per_other_array * (static_cast<std::int64_t>(num_total_array) - num_active_array);
    return to_int(required);
}
