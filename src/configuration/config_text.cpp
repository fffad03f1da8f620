#include "configuration/config_text.h"

#include <cstdint>
#include <cstdio>

#include "common/text.h"

namespace {

// One line of the file: its text in both forms (null: no such line) and, for a key, the field of its value.
struct ConfigLine {
    const char* created;
    const char* rewritten;
    std::uint32_t ConfigValues::*value = nullptr;
    bool is_path = false;
};

constexpr ConfigLine same(const char* text) {
    return {text, text};
}

constexpr ConfigLine value_line(const char* key, std::uint32_t ConfigValues::*value) {
    return {key, key, value};
}

constexpr ConfigLine path_line(const char* key) {
    return {key, key, nullptr, true};
}

constexpr ConfigLine lines[] = {
    same("# interval: Interval at which OXR will poll for iSCSI connection updates"),
    same("# Minimum value: 60 seconds"),
    same("# Default value: 120 seconds"),
    value_line("interval", &ConfigValues::interval),
    same(""),
    same("# min_vol_sessions: Minimum limit of sessions to be created per volume"),
    same("# Default value: 2"),
    value_line("min_vol_sessions", &ConfigValues::min_vol_sessions),
    same(""),
    same("# max_vol_sessions: Maximum limit of sessions to be created per volume"),
    same("# Default value: 8"),
    value_line("max_vol_sessions", &ConfigValues::max_vol_sessions),
    same(""),
    {"# vol_sessions: Number of sessions to create per volume.",
     "# vol_sessions: Number of sessions to be created per volume"},
    {"# By default it's disabled and OXR will configure sessions automatically between 2 and 8.",
     "# By default it's disabled and OXR will automatically select sessions between 2 and 8."},
    {nullptr, "# If explicitly specified this value should be between min_vol_sessions and max_vol_sessions."},
    same("# Default value: 0"),
    value_line("vol_sessions", &ConfigValues::vol_sessions),
    same(""),
    {"# min_pe_sessions: (Deprecated) Minimum limit of sessions to be created per group scoped target(protocol "
     "endpoints).",
     "# min_pe_sessions: (Deprecated): Minimum limit of sessions to be created per group scoped target(protocol "
     "endpoints)"},
    same("# Default value: 4"),
    value_line("min_pe_sessions", &ConfigValues::min_pe_sessions),
    same(""),
    {"# max_pe_sessions: (Deprecated) Maximum limit of sessions to be created per group scoped target(protocol "
     "endpoints).",
     "# max_pe_sessions: (Deprecated): Maximum limit of sessions to be created per group scoped target(protocol "
     "endpoints)"},
    same("# Default value: 32"),
    value_line("max_pe_sessions", &ConfigValues::max_pe_sessions),
    same(""),
    {"# log_level: Oxr log levels.", "# log_level: Oxr log levels "},
    {"#  ERROR+WARNING only       : 0", "#   ERROR+WARNING only       : 0"},
    {"#  ERROR+WARNING+INFO only  : 1", "#   ERROR+WARNING+INFO  only : 1"},
    {"#  ERROR+WARNING+INFO+DEBUG : 2", "#   ERROR+WARNING+INFO+DEBUG : 2"},
    same("# Default value: 1"),
    value_line("log_level", &ConfigValues::log_level),
    same(""),
    same("# vmknic_count: Number of vmk nics to be used from among the ones bound to the iSCSI HBAs."),
    same("# By default OXR will handle connections to all vmk nics bound."),
    same("# Default value: 0"),
    value_line("vmknic_count", &ConfigValues::vmknic_count),
    same(""),
    same("# worker_stop: Stop OXR temporarily from handling iscsi connections."),
    same("# Use this when running ostrel-mode.sh explicitly with addremove option."),
    same("# Disabled by default, set 1 to enable."),
    {nullptr, "# Default value: 0"},
    value_line("worker_stop", &ConfigValues::worker_stop),
    same(""),
    same("# use_ostrel_timeouts: Set the LoginTimeout, NoopOutInterval, NoopOutTimeout to Ostrel values if set."),
    same("# The use_ostrel_timeouts is read by the /etc/ostrel/ostrel-timeouts.sh, which is run as a cron job"),
    same("# Enabled by default, set 0 to disable, which reverts back to ESX host timeouts."),
    same("# Default value: 1"),
    value_line("use_ostrel_timeouts", &ConfigValues::use_ostrel_timeouts),
    same(""),
    same("# ostrel_logs_path: Absolute Path to the folder to store the Ostrel Logs."),
    same("# The user/administrator would normally set the path to a datastore mounted on a Ostrel Volume "),
    same("# For a mounted datastore it would be the path /vmfs/volumes/<Datastore name>/<Log files Directory>"),
    same("# Default value: /var/log/ostrel        NOTE: [Kindly restrict path to Maximum 90 characters]"),
    path_line("ostrel_logs_path"),
    same(""),
};

int print_line(char* text, std::size_t capacity, const ConfigLine& line, const char* words,
               const ConfigValues& values) {
    if (line.value != nullptr) {
        return std::snprintf(text, capacity, "%s=%u\n", words, values.*line.value);
    }
    if (line.is_path) {
        return std::snprintf(text, capacity, "%s=%s\n", words, oxr::FieldText(values.ostrel_logs_path).c_str());
    }
    return std::snprintf(text, capacity, "%s\n", words);
}

}  // namespace

std::size_t compose_config(char (&text)[CONFIG_TEXT_SIZE], ConfigForm form, const ConfigValues& values) {
    std::size_t length = 0;
    for (const ConfigLine& line : lines) {
        const char* const words = form == ConfigForm::created ? line.created : line.rewritten;
        if (words != nullptr) {
            const int printed = print_line(text + length, sizeof text - length, line, words, values);
            length += static_cast<std::size_t>(printed);
        }
    }
    return length;
}
