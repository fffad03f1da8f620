// The connection manager's configuration file as seen from outside: which values it puts in force, by the manager's
// own judgement; how a scenario writes and changes it, and what a rewrite changed.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "configuration/config_keys.h"
#include "shared/value_not_taken.h"
#include "simhost/host.h"

namespace ostrel_simhost {

inline constexpr char CONFIG_FILE[] = "/etc/ostrel/oxr.conf";

using ConfigChanges = std::vector<std::pair<std::string, std::string>>;

// The values that the file on the host puts in force when the connection manager starts, which creates or converts it,
// and at a cycle; none: it leaves the file alone and keeps the values that it has.
ConfigValues config_at_start(const simhost::Host& host);
std::optional<ConfigValues> config_at_cycle(const simhost::Host& host);

// The values of the file that the connection manager, when it starts, puts others in the place of.
std::vector<shared::ValueNotTaken> values_not_taken_at_start(const simhost::Host& host);

// True for a file without a comment line: lines of a key, ":" and a value.
bool is_old_format(std::string_view text);

// A complete file with the defaults, `changes` applied.
std::string config_file_text(const ConfigChanges& changes);

// `text` with the value of `key` replaced where the key stands, or a line for it appended.
std::string with_config_value(std::string_view text, std::string_view key, std::string_view value);

// The values that a line adds to a file, and those that a whole file stands for: the defaults of keys that it has not,
// too. An empty file stands for none.
ConfigChanges config_line_values(std::string_view line);
ConfigChanges config_file_values(std::string_view text);

// What a person would say changed between two files: "interval 30 -> 120", "use_ostrel_timeouts = 1 (new)".
std::vector<std::string> config_differences(std::string_view before, std::string_view after);

// Every value of an ostrel_logs_path line of `text`.
std::vector<std::string> logs_paths_of(std::string_view text);

// The simulated host has two folders that can take a log: the default one and the configuration's.
bool is_simulated_logs_path(std::string_view path);

}  // namespace ostrel_simhost
