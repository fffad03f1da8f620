// The two settings that clients can change over CIM, with their last known values. Any thread; each value is read and
// written atomically, without a lock.
#pragma once

#include <cstdint>
#include <string_view>

#include "OstrelProvider/config.h"

inline constexpr int NUM_SETTINGS = 2;
inline constexpr int SETTING_INTERVAL = 0;
inline constexpr int SETTING_VOL_SESSIONS = 1;

// A copy of one setting. Every text is terminated.
struct SettingEntry {
    char name[40];
    char InstanceId[40];
    char description[256];
    std::uint32_t maximum;
    std::uint32_t minimum;
    std::uint32_t value;
};

// A copy of the setting at this index.
SettingEntry setting_at(int index);

// The index of the setting with this name, in any case, or -1.
int find_setting(std::string_view name);

void set_setting_value(int index, std::uint32_t value);

// Stores the result of a read of the configuration file: both values and the limits of "vol_sessions". `settings`
// receives a copy with exactly these.
void refresh_settings(const ConfigValues& values, SettingEntry (&settings)[NUM_SETTINGS]);

// The settings of a service. 0, with both settings in table order and the count, if this is exactly the connection
// service's name; else -1, outputs unchanged. `settings` has room for NUM_SETTINGS.
int Ostrel_LookupSettingByOXR(const char* service_name, SettingEntry* settings, int* count);
