// The table of the two settings that can be changed through CIM, with their values as last seen. Any thread;
// each value is read and written by itself, without a lock.
#pragma once

#include <cstdint>
#include <string_view>

#include "OstrelProvider/config.h"

inline constexpr int NUM_SETTINGS = 2;
inline constexpr int SETTING_INTERVAL = 0;
inline constexpr int SETTING_VOL_SESSIONS = 1;

// One setting as it stood when it was copied. Every text is terminated.
struct SettingEntry {
    char name[40];
    char InstanceId[40];
    char description[256];
    std::uint32_t maximum;
    std::uint32_t minimum;
    std::uint32_t value;
};

// A copy of the setting at an index.
SettingEntry setting_at(int index);

// The index of the setting with this name, without regard to case, or -1.
int find_setting(std::string_view name);

void set_setting_value(int index, std::uint32_t value);

// Takes over what a read of the configuration file gave: both values, and the limits of "vol_sessions". `settings` gets
// a copy with exactly these.
void refresh_settings(const ConfigValues& values, SettingEntry (&settings)[NUM_SETTINGS]);

// The settings of a service. 0, both settings in table order and the count when the name is exactly that of
// the connection service; else -1, outputs untouched. `settings` has room for NUM_SETTINGS.
int Ostrel_LookupSettingByOXR(const char* service_name, SettingEntry* settings, int* count);
