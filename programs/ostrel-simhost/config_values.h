// The connection manager's configuration file as seen from outside: which values it puts in force, how a
// scenario writes and changes it, and what a rewrite changed.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace program {

inline constexpr char CONFIG_FILE[] = "/etc/ostrel/oxr.conf";
inline constexpr char DEFAULT_LOGS_PATH[] = "/var/log/ostrel";

// Keys with a number, in the order of the file.
inline constexpr std::array<std::string_view, 10> CONFIG_NUMBER_KEYS = {
    "interval",        "min_vol_sessions", "max_vol_sessions", "vol_sessions", "min_pe_sessions",
    "max_pe_sessions", "log_level",        "vmknic_count",     "worker_stop",  "use_ostrel_timeouts"};
inline constexpr char CONFIG_LOGS_PATH_KEY[] = "ostrel_logs_path";

struct ConfigValues {
    std::uint32_t interval = 120;
    std::uint32_t min_vol_sessions = 2;
    std::uint32_t max_vol_sessions = 8;
    std::uint32_t vol_sessions = 0;
    std::uint32_t min_pe_sessions = 4;
    std::uint32_t max_pe_sessions = 32;
    std::uint32_t log_level = 1;
    std::uint32_t vmknic_count = 0;
    std::uint32_t worker_stop = 0;
    std::uint32_t use_ostrel_timeouts = 1;
    std::string logs_path = DEFAULT_LOGS_PATH;
};

using ConfigChanges = std::vector<std::pair<std::string, std::string>>;

// The values that a file of this text puts in force: out-of-range values and broken relations corrected.
ConfigValues config_in_force(std::string_view text);

// True for a file without a comment line: lines of a key, ":" and a value.
bool is_old_format(std::string_view text);

// A complete file with the defaults, `changes` applied.
std::string config_file_text(const ConfigChanges& changes);

// `text` with the value of `key` replaced where the key stands, or a line for it appended.
std::string with_config_value(std::string_view text, std::string_view key, std::string_view value);

// What a person would say changed between two files: "interval 30 -> 120", "use_ostrel_timeouts = 1 (new)".
std::vector<std::string> config_differences(std::string_view before, std::string_view after);

// Every value of an ostrel_logs_path line of `text`.
std::vector<std::string> logs_paths_of(std::string_view text);

// The simulated host has two folders that can take a log: the default one and the configuration's.
bool is_simulated_logs_path(std::string_view path);

}  // namespace program
