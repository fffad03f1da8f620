// Inside the scenario reader: the parts that stand both in the description of the site and in its events.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "names.h"
#include "scenario.h"

namespace ostrel_simhost {

// [[volumes]], also as an event: one entry per volume; their names are thereby taken.
std::vector<VolumeEntry> read_volumes(Problems& problems, Names& names, const TomlValue& table,
                                      const std::string& path);

// { name, data_ips }: an array of `group`.
simhost::ArraySpec read_array(Problems& problems, Names& names, const TomlValue& table, const std::string& path,
                              const std::string& group);

// [[session]], also as an event.
SessionEntry read_session(Problems& problems, Names& names, const TomlValue& table, const std::string& path);

// Keys of [config] and write_config with their values as text.
ConfigChanges read_config_changes(Problems& problems, const TomlValue& table, const std::string& path);

// Complains about a logs path in the text of a configuration file that isn't one of the simulated host.
void check_logs_paths(Fields& fields, std::string_view key, std::string_view text);

// The mode word of a group.
simhost::GroupMode read_mode(Fields& fields, std::string_view key);

std::optional<std::uint32_t> read_session_state(Fields& fields, std::string_view key);
std::string_view session_state_word(std::uint32_t state);

// The table of a fault.
simhost::Fault read_fault(Problems& problems, const TomlValue& table, const std::string& path);

// [[event]]
class EventReader {
public:
    EventReader(Problems& problems, Names& names) : problems_(problems), names_(names) {}

    // Reads what events bring in (arrays, volumes), so that any event may name them wherever it is written.
    void collect(const std::vector<const TomlValue*>& events);
    // One event; call after collect().
    std::optional<TimedAction> read(const TomlValue& table);

private:
    Problems& problems_;
    Names& names_;
    std::map<const TomlValue*, Action> brought_in_;
};

}  // namespace ostrel_simhost
