#include "events.h"

#include <fmt/format.h>

#include <algorithm>

#include "scenario_parts.h"
#include "shared/duration.h"
#include "site.h"

namespace ostrel_simhost {

namespace {

using simhost::Host;
using In = const EventInput&;

constexpr std::string_view A_TABLE = "a table { ... }";

// The values of an event that has several. Keys that nothing asked for are complained about at the end.
class Inner : public Fields {
public:
    explicit Inner(In in) : Fields(in.problems, in.value, in.path()) {}
    ~Inner() { finish(); }
    Inner(const Inner&) = delete;
    Inner& operator=(const Inner&) = delete;
};

std::string plural(int count, std::string_view what) {
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

int read_count(Fields& fields) {
    return static_cast<int>(fields.integer("count", 1, MOST_SESSIONS_PER_TARGET).value_or(1));
}

// An event that only happens: its value is `true`.
void read_true(In in) {
    if (in.fields.flag(in.key) == false) {
        in.fields.complain(in.key, "true");
    }
}

std::string added_text(const std::vector<VolumeEntry>& volumes) {
    if (volumes.empty()) {
        return "no volume added";
    }
    const std::string first = volumes.front().spec.eui;
    return fmt::format("{} added ({})", plural(static_cast<int>(volumes.size()), "volume"),
                       volumes.size() == 1 ? first : first + ".." + volumes.back().spec.eui);
}

void set_states(Host& host, const std::string& iqn, const std::string& local_ip, std::uint32_t state, int count) {
    for (const simhost::SessionView& session : host.sessions(iqn)) {
        if (count > 0 && session.state != state && (local_ip.empty() || local_ip == session.local_ip)) {
            host.set_state(session.oid, state);
            --count;
        }
    }
}

void write_config(Host& host, const ConfigChanges& changes) {
    std::string text = host.read_file(CONFIG_FILE);
    if (text.empty()) {
        text = config_file_text({});
    }
    for (const auto& [key, value] : changes) {
        text = with_config_value(text, key, value);
        if (key == LOGS_PATH_KEY) {
            host.write_file(value + "/.folder", "");
        }
    }
    host.write_file(CONFIG_FILE, text);
}

void write_config_line(Host& host, const std::string& line) {
    std::string text = host.read_file(CONFIG_FILE);
    if (!text.empty() && text.back() != '\n') {
        text += '\n';
    }
    host.write_file(CONFIG_FILE, text + line + "\n");
}

constexpr EventKind KINDS[] = {
    {"add_array",
     [](In in) {
         Fields inner(in.problems, in.value, in.path());
         const std::string group = in.reader().group(inner, "group");
         TomlValue rest = in.value;
         std::erase_if(rest.items, [](const TomlValue& item) { return item.key == "group"; });
         const simhost::ArraySpec array = read_array(in.problems, in.names, rest, in.path(), group);
         return Action{fmt::format("array {} added to group {}", array.name, group),
                       [=](Site&, Host& host) { host.add_array(group, array); }};
     },
     "a table { group, name, data_ips }", true},
    {"add_volumes",
     [](In in) {
         const auto volumes = read_volumes(in.problems, in.names, in.value, in.path());
         return Action{added_text(volumes), [=](Site& site, Host& host) {
                           for (const VolumeEntry& volume : volumes) {
                               site.add_volume(host, volume);
                           }
                       }};
     },
     "a table { name, group, ... }", true},
    {"nic_down",
     [](In in) {
         const std::string ip = in.reader().nic(in.fields, in.key);
         return Action{
             fmt::format("NIC {} lost", ip), [=](Site&, Host& host) { host.nic_down(ip); }, {{"NIC " + ip, "down"}}};
     }},
    {"nic_up",
     [](In in) {
         const std::string ip = in.reader().nic(in.fields, in.key);
         return Action{
             fmt::format("NIC {} back", ip), [=](Site&, Host& host) { host.nic_up(ip); }, {{"NIC " + ip, "up"}}};
     }},
    {"array_down",
     [](In in) {
         const auto at = in.reader().array(in.fields, in.key);
         return Action{fmt::format("array {}/{} lost", at.first, at.second),
                       [=](Site&, Host& host) { host.array_down(at.first, at.second); },
                       {{"array " + in.value.text, "down"}}};
     }},
    {"array_up",
     [](In in) {
         const auto at = in.reader().array(in.fields, in.key);
         return Action{fmt::format("array {}/{} back", at.first, at.second),
                       [=](Site&, Host& host) { host.array_up(at.first, at.second); },
                       {{"array " + in.value.text, "up"}}};
     }},
    {"switch_mode",
     [](In in) {
         Inner inner(in);
         const std::string group = in.reader().group(inner, "group");
         const simhost::GroupMode mode = read_mode(inner, "mode");
         if (inner.find("mode") == nullptr) {
             inner.complain_missing("mode", "\"dynamic\" or \"static\"");
         }
         const bool dynamic = mode == simhost::GroupMode::dynamic_discovery;
         return Action{fmt::format("group {} switched to {} discovery", group, dynamic ? "dynamic" : "static"),
                       [=](Site&, Host& host) { host.switch_mode(group, mode); },
                       {{"mode of " + group, dynamic ? "dynamic" : "static"}}};
     },
     A_TABLE},
    {"digests",
     [](In in) {
         Inner inner(in);
         const std::string adapter = in.reader().adapter(inner, "adapter");
         const bool on = inner.flag("on").value_or(true);
         return Action{fmt::format("digests switched {} on {}", on ? "on" : "off", adapter),
                       [=](Site&, Host& host) { host.set_digests(adapter, on); },
                       {{"digests on " + adapter, on ? "on" : "off"}}};
     },
     A_TABLE},
    {"discovery_outcome",
     [](In in) {
         Inner inner(in);
         const std::string adapter = in.reader().adapter(inner, "adapter");
         const auto status = static_cast<std::uint32_t>(inner.integer("status", 0, 0xffffffffLL).value_or(0));
         return Action{fmt::format("discovery on {} now answers {}", adapter, status),
                       [=](Site&, Host& host) { host.set_discovery_outcome(adapter, status); },
                       {{"discovery on " + adapter, fmt::format("{}", status)}}};
     },
     A_TABLE},
    {"drop_sessions",
     [](In in) {
         Inner inner(in);
         const std::string target = in.reader().target(inner, "target");
         const int count = read_count(inner);
         return Action{fmt::format("{} of {} dropped", plural(count, "session"), target),
                       [=](Site& site, Host& host) { host.drop_sessions(site.iqn_of(target), count); }};
     },
     A_TABLE},
    {"set_state",
     [](In in) {
         Inner inner(in);
         const std::string target = in.reader().target(inner, "target");
         const std::string ip = inner.find("local_ip") == nullptr ? "" : in.reader().nic(inner, "local_ip");
         const std::uint32_t state = read_session_state(inner, "state").value_or(simhost::LOGGED_IN);
         const int count = read_count(inner);
         return Action{fmt::format("{} of {}{}{} put into {}", plural(count, "session"), target,
                                   ip.empty() ? "" : " on ", ip, session_state_word(state)),
                       [=](Site& site, Host& host) { set_states(host, site.iqn_of(target), ip, state, count); }};
     },
     A_TABLE},
    {"add_session",
     [](In in) {
         const SessionEntry made = read_session(in.problems, in.names, in.value, in.path());
         return Action{fmt::format("{} {} of {} made by the host", plural(made.count, "session"),
                                   session_state_word(made.spec.state), made.target),
                       [=](Site& site, Host& host) { site.add_sessions(host, made); }};
     },
     A_TABLE},
    {"fail_logins",
     [](In in) {
         const bool failing = in.fields.flag(in.key).value_or(false);
         return Action{failing ? "logins begin to fail" : "logins succeed again",
                       [=](Site&, Host& host) { host.fail_logins(failing); },
                       {{"logins", failing ? "fail" : "succeed"}}};
     }},
    {"login_seconds",
     [](In in) {
         const double seconds = in.fields.seconds(in.key).value_or(0);
         return Action{fmt::format("logins now take {}", shared::duration_text(seconds)),
                       [=](Site&, Host& host) { host.set_login_seconds(seconds); },
                       {{"login_seconds", fmt::format("{}", seconds)}}};
     }},
    {"remove_volume",
     [](In in) {
         const std::string name = in.reader().volume(in.fields, in.key);
         return Action{fmt::format("volume {} removed", name), [=](Site&, Host& host) { host.remove_volume(name); }};
     }},
    {"write_config",
     [](In in) {
         const ConfigChanges changes = read_config_changes(in.problems, in.value, in.path());
         std::string text = "operator sets";
         for (const auto& [key, value] : changes) {
             text += fmt::format(" {}={}", key, value);
         }
         return Action{text, [=](Site&, Host& host) { write_config(host, changes); }, changes};
     },
     A_TABLE},
    {"write_config_line",
     [](In in) {
         const std::string line = in.fields.text(in.key).value_or("");
         check_logs_paths(in.fields, in.key, line);
         return Action{fmt::format("operator adds the line \"{}\"", line),
                       [=](Site&, Host& host) { write_config_line(host, line); }, config_line_values(line)};
     }},
    {"write_config_file",
     [](In in) {
         const std::string text = in.fields.text(in.key).value_or("");
         check_logs_paths(in.fields, in.key, text);
         return Action{fmt::format("operator replaces the configuration file ({} bytes)", text.size()),
                       [=](Site&, Host& host) { host.write_file(CONFIG_FILE, text); }, config_file_values(text)};
     }},
    {"remove_config",
     [](In in) {
         read_true(in);
         return Action{"operator removes the configuration file",
                       [](Site&, Host& host) { host.remove_file(CONFIG_FILE); }};
     }},
    {"fault",
     [](In in) {
         const simhost::Fault fault = read_fault(in.problems, in.value, in.path());
         return Action{fmt::format("fault set: {} fails at call {}{}", fault.operation, fault.nth,
                                   fault.persistent ? " and from then on" : ""),
                       [=](Site&, Host& host) { host.fail(fault); }};
     },
     A_TABLE},
    {"clear_faults",
     [](In in) {
         read_true(in);
         return Action{"all faults cleared", [](Site&, Host& host) { host.clear_faults(); }};
     }},
};

}  // namespace

std::span<const EventKind> event_kinds() {
    return KINDS;
}

}  // namespace ostrel_simhost
