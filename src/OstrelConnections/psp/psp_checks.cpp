#include "OstrelConnections/psp/psp_checks.h"

#include <cstdint>
#include <initializer_list>

#include "OstrelProvider/log.h"
#include "common/text.h"

namespace {

struct Count {
    const char* name;
    std::int32_t value;
    std::int32_t capacity;
};

constexpr std::int32_t unlimited = INT32_MAX;

bool all_possible(const char* operation, const char* record, std::initializer_list<Count> counts) {
    for (const Count& count : counts) {
        if (count.value < 0 || count.value > count.capacity) {
            OXR_ERROR_IN(operation, "Impossible %s = %d returned by psp for %s. Not using this record.", count.name,
                         count.value, record);
            return false;
        }
    }
    return true;
}

}  // namespace

bool has_possible_counts(const char* operation, const OxrLun& lun) {
    return all_possible(operation, oxr::FieldText(lun.device_eui).c_str(),
                        {{"num_adapters", lun.num_adapters, OSTREL_MAX_ADAPTERS},
                         {"num_total_paths", lun.num_total_paths, unlimited},
                         {"num_active_paths", lun.num_active_paths, unlimited},
                         {"num_dead_paths", lun.num_dead_paths, unlimited},
                         {"num_sessions", lun.num_sessions, unlimited},
                         {"num_dynamic_sessions", lun.num_dynamic_sessions, unlimited},
                         {"num_login_pending_sessions", lun.num_login_pending_sessions, unlimited}});
}

// The total number of arrays is checked, with its own messages, where it is used.
bool has_possible_counts(const char* operation, const OstrelPspGroupScopedTarget& target) {
    return all_possible(operation, oxr::FieldText(target.target_iqn).c_str(),
                        {{"num_adapters", target.num_adapters, OSTREL_MAX_ADAPTERS},
                         {"num_luns", target.num_luns, OSTREL_MAX_LUNS_PER_TARGET},
                         {"total_active_paths", target.total_active_paths, unlimited},
                         {"total_dead_paths", target.total_dead_paths, unlimited},
                         {"num_active_array", target.num_active_array, unlimited}});
}

bool has_possible_counts(const char* operation, const OstrelPspTransportAddrs& device) {
    return all_possible(operation, oxr::FieldText(device.device_eui).c_str(),
                        {{"path count", device.num_paths, OSTREL_MAX_PATHS_PER_DEVICE}});
}
