#include "soak/happenings.h"

#include <fmt/format.h>

#include <algorithm>

#include "simhost/operations.h"

namespace soak {

using fmt::format;

namespace {

// Those in this state, "GROUP/ARRAY".
std::vector<std::string> arrays(const simhost::Host& host, bool up) {
    std::vector<std::string> found;
    for (const simhost::GroupView& group : host.groups()) {
        for (const simhost::ArrayView& each : group.arrays) {
            if (each.up == up) {
                found.push_back(group.name + "/" + each.name);
            }
        }
    }
    return found;
}

std::vector<std::string> nics(const simhost::Host& host, bool up) {
    std::vector<std::string> found;
    for (const simhost::NicView& each : host.nics()) {
        if (each.up == up) {
            found.push_back(each.ip);
        }
    }
    return found;
}

// One of them as the event's value; no event when there is none.
std::string event_with_any(Dice& dice, const char* key, const std::vector<std::string>& of) {
    return of.empty() ? "" : format("{} = \"{}\"", key, dice.pick(of));
}

// Calls that are made to fail. Those of the worker's own stop and start are not among them.
std::vector<std::string> failing_operations() {
    std::vector<std::string> all;
    for (const simhost::Operation& each : simhost::OPERATIONS) {
        if (each.name == "pthread_create" || !(each.name.starts_with("pthread_") || each.name == "sigaction")) {
            all.emplace_back(each.name);
        }
    }
    return all;
}

std::string discovery(const std::string& adapter, int outcome) {
    return format("discovery_outcome = {{ adapter = \"{}\", status = {} }}", adapter, outcome);
}

std::string switch_to(const std::string& group, const char* mode) {
    return format("switch_mode = {{ group = \"{}\", mode = \"{}\" }}", group, mode);
}

}  // namespace

const Happenings::Kind Happenings::kinds[] = {
    {"mode switched in a pass", 0, [](Happenings& on) { return on.switch_mode(); }},
    {"NIC lost", 8, [](Happenings& on) { return event_with_any(on.dice_, "nic_down", nics(on.host(), true)); }},
    {"NIC back", 9, [](Happenings& on) { return event_with_any(on.dice_, "nic_up", nics(on.host(), false)); }},
    {"array lost", 5, [](Happenings& on) { return event_with_any(on.dice_, "array_down", arrays(on.host(), true)); }},
    {"array back", 7, [](Happenings& on) { return event_with_any(on.dice_, "array_up", arrays(on.host(), false)); }},
    {"array added", 1,
     [](Happenings& on) {
         const simhost::GroupView group = on.dice_.pick(on.host().groups());
         const std::size_t arrays = group.arrays.size();
         return arrays == 4
                    ? ""
                    : format("add_array = {{ group = \"{}\", {} }}", group.name, array_keys(group.name, arrays + 1));
     }},
    {"volume added", 4,
     [](Happenings& on) {
         // Without sessions: the host logs in by itself.
         const std::string group = on.dice_.pick(on.site_.scenario().groups).name;
         return on.site_.has_room_for_volumes()
                    ? "add_volumes = " + on.site_.new_volume(on.dice_, group, ", sessions = 0")
                    : "";
     }},
    {"device added behind a group-scoped target", 1,
     [](Happenings& on) {
         const auto& targets = on.site_.scenario().group_scoped_targets;
         if (targets.empty() || !on.site_.has_room_for_volumes()) {
             return std::string();
         }
         const program::GroupScopedTargetEntry& behind = on.dice_.pick(targets);
         // Several devices of a target hold up switches of its group: seldom more than one.
         if (!on.host().target(behind.spec.iqn).devices.empty() && !on.dice_.one_in(8)) {
             return std::string();
         }
         return "add_volumes = " + on.site_.new_device(on.dice_, behind.spec.group, behind.name);
     }},
    {"volume removed", 2,
     [](Happenings& on) {
         const auto volumes = on.site_.volumes();
         return volumes.size() < 2 ? "" : event_with_any(on.dice_, "remove_volume", volumes);
     }},
    {"sessions dropped", 12, [](Happenings& on) { return on.drop(on.dice_.any(1, 3)); }},
    {"all sessions dropped", 3, [](Happenings& on) { return on.drop(program::MOST_SESSIONS_PER_TARGET); }},
    {"session flaps", 8, [](Happenings& on) { return on.flap(); }},
    {"logins fail", 3,
     [](Happenings& on) {
         on.later(on.dice_.seconds(600), "fail_logins = false");
         return std::string("fail_logins = true");
     }},
    {"login time changed", 3,
     [](Happenings& on) { return format("login_seconds = {}", on.dice_.one_in(3) ? 0 : on.dice_.seconds(40)); }},
    {"discovery fails", 2,
     [](Happenings& on) {
         const std::string adapter = on.dice_.pick(on.site_.scenario().adapters).name;
         on.later(on.dice_.seconds(900), discovery(adapter, 2));
         return discovery(adapter, on.dice_.any(0, 5));
     }},
    {"mode switched", 6, [](Happenings& on) { return on.switch_mode(); }},
    {"digest setting changed", 2,
     [](Happenings& on) {
         return format("digests = {{ adapter = \"{}\", on = {} }}", on.dice_.pick(on.site_.scenario().adapters).name,
                       on.dice_.one_in(2));
     }},
    {"file edited", 6, [](Happenings& on) { return on.operator_.edit(), std::string(); }},
    {"file damaged", 4, [](Happenings& on) { return on.operator_.damage(), std::string(); }},
    {"file removed", 1, [](Happenings& on) { return on.operator_.remove(), std::string(); }},
    {"worker held off", 2,
     [](Happenings& on) {
         on.operator_.edit(true);
         on.later(on.dice_.seconds(600), [&on] { on.operator_.edit(); });
         return std::string();
     }},
    {"fault set", 10, [](Happenings& on) { return on.set_fault(); }},
};

void Happenings::later(double seconds, std::function<void()> act) {
    host().at(host().now() + seconds, "something", [this, act = std::move(act), planned_in = round_](simhost::Host&) {
        if (planned_in == round_) {
            act();
        }
    });
}

void Happenings::later(double seconds, const std::string& event) {
    later(seconds, [this, event] { site_.happen(event); });
}

void Happenings::plan(int count, double seconds) {
    for (int i = 0; i < count; ++i) {
        later(dice_.seconds(seconds), [this] { happen_any(); });
    }
}

void Happenings::in_pass() {
    if (dice_.one_in(6)) {
        const double moment = dice_.seconds(dice_.one_in(2) ? 2.5 : 12);
        const bool is_switch = dice_.one_in(3);
        later(moment, [this, is_switch] { is_switch ? happen(kinds[0]) : happen_any(); });
    }
}

void Happenings::happen_any() {
    int total = 0;
    for (const Kind& each : kinds) {
        total += each.weight;
    }
    int left = dice_.any(1, total);
    for (const Kind& each : kinds) {
        left -= each.weight;
        if (left <= 0 && each.weight > 0) {
            return happen(each);
        }
    }
}

void Happenings::happen(const Kind& kind) {
    ++tally_.of(kind.name);
    if (const std::string event = kind.make(*this); !event.empty()) {
        site_.happen(event);
    }
}

std::string Happenings::drop(int most) {
    const auto targets = host().targets();
    return targets.empty()
               ? ""
               : format("drop_sessions = {{ target = \"{}\", count = {} }}", Site::name_of(dice_.pick(targets)), most);
}

// A session fails and comes back, or the newest ones of its target fail for good.
std::string Happenings::flap() {
    const auto sessions = host().sessions();
    if (sessions.empty()) {
        return {};
    }
    const simhost::SessionView& session = dice_.pick(sessions);
    const std::string name = Site::name_of(host().target(session.target_iqn));
    const std::vector<const char*> states{"XPT_WAIT", "XPT_UP", "IN_LOGIN", "IN_LOGOUT", "CLEANUP_WAIT"};
    flapping_.insert(name);
    const bool for_good = dice_.one_in(4);
    later(dice_.seconds(200), [this, name, for_good] { end_flap(name, for_good); });
    return format("set_state = {{ target = \"{}\", local_ip = \"{}\", state = \"{}\" }}", name, session.local_ip,
                  dice_.pick(states));
}

// Sessions of a target log in again, unless it is for good or an array is lost that they may want: then the newest one
// is lost.
void Happenings::end_flap(const std::string& name, bool for_good) {
    const auto targets = host().targets();
    const bool exists =
        std::any_of(targets.begin(), targets.end(), [&](const auto& each) { return Site::name_of(each) == name; });
    const bool back = !for_good && arrays(host(), false).empty();
    if (exists) {
        site_.happen(back ? format("set_state = {{ target = \"{}\", state = \"LOGGED_IN\", count = {} }}", name,
                                   program::MOST_SESSIONS_PER_TARGET)
                          : format("drop_sessions = {{ target = \"{}\" }}", name));
    }
    if (back || !exists) {
        flapping_.erase(name);
    }
}

std::string Happenings::switch_mode() {
    const simhost::GroupView group = dice_.pick(host().groups());
    const bool is_static = group.mode == simhost::GroupMode::static_discovery;
    return switch_to(group.name, is_static ? "dynamic" : "static");
}

std::string Happenings::set_fault() {
    static const std::vector<std::string> operations = failing_operations();
    const std::string operation = dice_.pick(operations);
    const bool persistent = dice_.one_in(4);
    std::string how;
    if (operation.starts_with("psp.") && !dice_.one_in(2)) {
        how = format(", status = {}", dice_.any(1, 7));
    } else if (operation == "write" && dice_.one_in(2)) {
        how = format(", short_by = {}", dice_.any(1, 60));
    } else if (!operation.starts_with("IMA_")) {
        const std::vector<const char*> errors{"EIO", "ENOSPC", "EACCES", "EAGAIN"};
        how = format(", errno = \"{}\"", dice_.pick(errors));
    }
    if (persistent) {
        later(dice_.seconds(400), "clear_faults = true");
    }
    return format("fault = {{ operation = \"{}\", nth = {}, persistent = {}{} }}", operation,
                  dice_.one_in(2) ? dice_.any(1, 5) : dice_.any(1, 150), persistent, how);
}

void Happenings::end() {
    ++round_;
    site_.happen("clear_faults = true");
    site_.happen("fail_logins = false");
    site_.happen(format("login_seconds = {}", site_.scenario().login_seconds));
    for (const program::AdapterEntry& each : site_.scenario().adapters) {
        site_.happen(discovery(each.name, 2));
    }
    // Every group has an array; some parts stay lost.
    const bool all = !dice_.one_in(4);
    for (const std::string& ip : nics(host(), false)) {
        if (all || dice_.one_in(2)) {
            site_.happen(format("nic_up = \"{}\"", ip));
        }
    }
    for (const std::string& array : arrays(host(), false)) {
        site_.happen(format("array_up = \"{}\"", array));
    }
    // A switch that came back in mid-pass can have cost static target entries: the administrator's script once more.
    for (const simhost::GroupView& each : host().groups()) {
        if (each.mode == simhost::GroupMode::static_discovery) {
            site_.happen(switch_to(each.name, "static"));
        }
    }
    const std::set<std::string> flapping = flapping_;
    for (const std::string& name : flapping) {
        if (dice_.one_in(2)) {
            end_flap(name, true);
        }
        end_flap(name, false);
    }
}

}  // namespace soak
