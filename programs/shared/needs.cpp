#include "shared/needs.h"

#include <algorithm>

namespace shared {

int required_for_volume(const ConfigValues& config, int nics, int arrays) {
    std::uint32_t required = config.vol_sessions;
    if (required == 0) {
        required = static_cast<std::uint32_t>((nics == 1 ? 2 : nics) * arrays);
    }
    required = std::max(required, config.min_vol_sessions);
    return static_cast<int>(std::min(required, config.max_vol_sessions));
}

int required_for_group_scoped_target(const ConfigValues& config, int nics, int active_arrays, int total_arrays) {
    constexpr int least_per_active_array = 4;
    constexpr int per_other_array = 2;
    const int sessions =
        std::max(nics, least_per_active_array) * active_arrays + per_other_array * (total_arrays - active_arrays);
    const auto required = static_cast<std::uint32_t>(sessions);
    if (config.min_pe_sessions > required) {
        return static_cast<int>(config.min_pe_sessions);
    }
    return static_cast<int>(std::min(required, config.max_pe_sessions));
}

}  // namespace shared
