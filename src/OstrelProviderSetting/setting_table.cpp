#include "OstrelProviderSetting/setting_table.h"

#include <atomic>

#include "OstrelProvider/service_class.h"
#include "common/blank.h"
#include "common/text.h"

namespace {

// Access the 32-bit fields only through the functions below.
SettingEntry nps[NUM_SETTINGS] = {
    {
        .name = "interval",
        .InstanceId = "interval",
        .description = "Period between which the current iSCSI connections are examined.",
        .maximum = MAX_INTERVAL,
        .minimum = MIN_INTERVAL,
        .value = 120,
    },
    {
        .name = "vol_sessions",
        .InstanceId = "vol_sessions",
        .description = "Maximum sessions created for each volume.",
        .maximum = 8,
        .minimum = 2,
        .value = 0,
    },
};

std::uint32_t load(std::uint32_t& field) {
    return std::atomic_ref(field).load(std::memory_order_relaxed);
}

void store(std::uint32_t& field, std::uint32_t value) {
    std::atomic_ref(field).store(value, std::memory_order_relaxed);
}

}  // namespace

SettingEntry setting_at(int index) {
    SettingEntry& entry = nps[index];
    SettingEntry copy{};
    oxr::copy_text(copy.name, oxr::field_view(entry.name));
    oxr::copy_text(copy.InstanceId, oxr::field_view(entry.InstanceId));
    oxr::copy_text(copy.description, oxr::field_view(entry.description));
    copy.maximum = load(entry.maximum);
    copy.minimum = load(entry.minimum);
    copy.value = load(entry.value);
    return copy;
}

int find_setting(std::string_view name) {
    for (int i = 0; i < NUM_SETTINGS; ++i) {
        if (oxr::equal_ignoring_case(name, oxr::field_view(nps[i].name))) {
            return i;
        }
    }
    return -1;
}

void set_setting_value(int index, std::uint32_t value) {
    store(nps[index].value, value);
}

void refresh_settings(const ConfigValues& values, SettingEntry (&settings)[NUM_SETTINGS]) {
    for (int i = 0; i < NUM_SETTINGS; ++i) {
        settings[i] = setting_at(i);
    }
    settings[SETTING_INTERVAL].value = values.interval;
    settings[SETTING_VOL_SESSIONS].value = values.vol_sessions;
    settings[SETTING_VOL_SESSIONS].minimum = values.min_vol_sessions;
    settings[SETTING_VOL_SESSIONS].maximum = values.max_vol_sessions;
    for (int i = 0; i < NUM_SETTINGS; ++i) {
        store(nps[i].value, settings[i].value);
        store(nps[i].minimum, settings[i].minimum);
        store(nps[i].maximum, settings[i].maximum);
    }
}

int Ostrel_LookupSettingByOXR(const char* service_name, SettingEntry* settings, int* count) {
    if (service_name == nullptr || settings == nullptr || count == nullptr ||
        std::string_view(service_name) != current_info.name) {
        return -1;
    }
    for (int i = 0; i < NUM_SETTINGS; ++i) {
        settings[i] = setting_at(i);
    }
    *count = NUM_SETTINGS;
    return 0;
}
