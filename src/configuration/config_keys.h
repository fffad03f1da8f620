// The keys of the configuration file: a row for each, in the order of the canonical file. The judge, the canonical
// file, the log line about the values in force and the programs go by it; a new key needs its row here and a field in
// ConfigValues.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string_view>

#include "configuration/config_values.h"

// A comment line in the canonical file as it is created and as it is rewritten; null: no line there.
struct ConfigComment {
    const char* created = nullptr;
    const char* rewritten = nullptr;

    constexpr ConfigComment() = default;
    constexpr ConfigComment(const char* in_both) : created(in_both), rewritten(in_both) {}
    constexpr ConfigComment(const char* in_created, const char* in_rewritten)
        : created(in_created), rewritten(in_rewritten) {}
};

// What the log line about the values in force has in front of the value, and the value's place in it.
struct ConfigLogged {
    int place;
    const char* words;
};

struct ConfigKey {
    std::string_view name;
    std::string_view old_name = {};                 // the second accepted spelling, or empty
    std::uint32_t ConfigValues::*number = nullptr;  // null: the logs path, which has a rule of its own
    std::uint32_t low = 0;
    std::uint32_t high = UINT32_MAX;
    const char* warned_as = nullptr;  // the name in the warning about a value out of range; null: no warning
    bool rewrites = false;            // whether such a value is reason enough to rewrite the file
    bool must_be_there = false;       // whether the file is rewritten when it hasn't the key
    bool in_old_format = true;        // false: a conversion gives its value up
    ConfigLogged logged;
    ConfigComment comments[5] = {};
};

inline constexpr ConfigKey config_keys[] = {
    {.name = "interval",
     .number = &ConfigValues::interval,
     .low = MIN_INTERVAL,
     .high = MAX_INTERVAL,
     .warned_as = "interval",
     .rewrites = true,
     .in_old_format = false,
     .logged = {0, "interval = "},
     .comments = {"# interval: Interval at which OXR will poll for iSCSI connection updates",
                  "# Minimum value: 60 seconds", "# Default value: 120 seconds"}},
    {.name = "min_vol_sessions",
     .old_name = "min_volsessions",
     .number = &ConfigValues::min_vol_sessions,
     .low = 2,
     .high = 32,
     .warned_as = "min_vol_sessions",
     .logged = {2, ", min_vol_sessions = "},
     .comments = {"# min_vol_sessions: Minimum limit of sessions to be created per volume", "# Default value: 2"}},
    {.name = "max_vol_sessions",
     .old_name = "max_volsessions",
     .number = &ConfigValues::max_vol_sessions,
     .low = 2,
     .high = 32,
     .warned_as = "max_volsessions",
     .rewrites = true,
     .logged = {3, ", max_vol_sessions = "},
     .comments = {"# max_vol_sessions: Maximum limit of sessions to be created per volume", "# Default value: 8"}},
    {.name = "vol_sessions",
     .old_name = "volsessions",
     .number = &ConfigValues::vol_sessions,
     .logged = {1, ", vol_sessions = "},
     .comments = {{"# vol_sessions: Number of sessions to create per volume.",
                   "# vol_sessions: Number of sessions to be created per volume"},
                  {"# By default it's disabled and OXR will configure sessions automatically between 2 and 8.",
                   "# By default it's disabled and OXR will automatically select sessions between 2 and 8."},
                  {nullptr,
                   "# If explicitly specified this value should be between min_vol_sessions and max_vol_sessions."},
                  "# Default value: 0"}},
    {.name = "min_pe_sessions",
     .number = &ConfigValues::min_pe_sessions,
     .low = 4,
     .high = 32,
     .warned_as = "min_pe_sessions",
     .rewrites = true,
     .logged = {7, ", min_pe_sessions = "},
     .comments = {{"# min_pe_sessions: (Deprecated) Minimum limit of sessions to be created per group scoped "
                   "target(protocol endpoints).",
                   "# min_pe_sessions: (Deprecated): Minimum limit of sessions to be created per group scoped "
                   "target(protocol endpoints)"},
                  "# Default value: 4"}},
    {.name = "max_pe_sessions",
     .number = &ConfigValues::max_pe_sessions,
     .low = 4,
     .high = 32,
     .warned_as = "max_pe_sessions",
     .rewrites = true,
     .logged = {8, ", max_pe_sessions = "},
     .comments = {{"# max_pe_sessions: (Deprecated) Maximum limit of sessions to be created per group scoped "
                   "target(protocol endpoints).",
                   "# max_pe_sessions: (Deprecated): Maximum limit of sessions to be created per group scoped "
                   "target(protocol endpoints)"},
                  "# Default value: 32"}},
    {.name = "log_level",
     .number = &ConfigValues::log_level,
     .low = 1,
     .high = 2,
     .rewrites = true,
     .logged = {5, " log_level = "},
     .comments = {{"# log_level: Oxr log levels.", "# log_level: Oxr log levels "},
                  {"#  ERROR+WARNING only       : 0", "#   ERROR+WARNING only       : 0"},
                  {"#  ERROR+WARNING+INFO only  : 1", "#   ERROR+WARNING+INFO  only : 1"},
                  {"#  ERROR+WARNING+INFO+DEBUG : 2", "#   ERROR+WARNING+INFO+DEBUG : 2"},
                  "# Default value: 1"}},
    {.name = "vmknic_count",
     .number = &ConfigValues::vmknic_count,
     .in_old_format = false,
     .logged = {6, " vmknic_count = "},
     .comments = {"# vmknic_count: Number of vmk nics to be used from among the ones bound to the iSCSI HBAs.",
                  "# By default OXR will handle connections to all vmk nics bound.", "# Default value: 0"}},
    {.name = "worker_stop",
     .number = &ConfigValues::worker_stop,
     .logged = {4, " worker_stop = "},
     .comments = {"# worker_stop: Stop OXR temporarily from handling iscsi connections.",
                  "# Use this when running ostrel-mode.sh explicitly with addremove option.",
                  "# Disabled by default, set 1 to enable.",
                  {nullptr, "# Default value: 0"}}},
    {.name = "use_ostrel_timeouts",
     .number = &ConfigValues::use_ostrel_timeouts,
     .high = 1,
     .warned_as = "use_ostrel_timeouts",
     .rewrites = true,
     .must_be_there = true,
     .logged = {9, ", use_ostrel_timeouts = "},
     .comments =
         {"# use_ostrel_timeouts: Set the LoginTimeout, NoopOutInterval, NoopOutTimeout to Ostrel values if set.",
          "# The use_ostrel_timeouts is read by the /etc/ostrel/ostrel-timeouts.sh, which is run as a cron job",
          "# Enabled by default, set 0 to disable, which reverts back to ESX host timeouts.", "# Default value: 1"}},
    {.name = "ostrel_logs_path",
     .must_be_there = true,
     .logged = {10, ", logs_path = "},
     .comments = {"# ostrel_logs_path: Absolute Path to the folder to store the Ostrel Logs.",
                  "# The user/administrator would normally set the path to a datastore mounted on a Ostrel Volume ",
                  "# For a mounted datastore it would be the path /vmfs/volumes/<Datastore name>/<Log files Directory>",
                  "# Default value: /var/log/ostrel        NOTE: [Kindly restrict path to Maximum 90 characters]"}},
};

// The one key with a text.
inline constexpr std::string_view LOGS_PATH_KEY =
    std::find_if(std::begin(config_keys), std::end(config_keys), [](const ConfigKey& key) {
        return key.number == nullptr;
    })->name;

// Without regard to case, in either spelling; null for any other name.
const ConfigKey* find_config_key(std::string_view name);
