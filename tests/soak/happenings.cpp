#include "soak/happenings.h"

#include <fmt/format.h>

#include <algorithm>

#include "simhost/operations.h"

namespace soak {

using fmt::format;

// Each $word of an event, and each $(one|of|these), is one of its choices; the same one when `then` happens, `within`
// seconds later at most. No choice: nothing happens.
struct Happenings::Kind {
    const char* name;
    int weight;
    const char* event;
    double within = 0;
    const char* then = "";
};

const Happenings::Kind Happenings::kinds[] = {
    {"mode switched in a pass", 0, "switch_mode = { $switch }"},
    {"mode switched", 6, "switch_mode = { $switch }"},
    {"NIC lost", 8, "nic_down = \"$nic\""},
    {"NIC back", 9, "nic_up = \"$lost_nic\""},
    {"array lost", 5, "array_down = \"$array\""},
    {"array back", 7, "array_up = \"$lost_array\""},
    {"array added", 1, "add_array = { $new_array }"},
    {"volume added", 4, "add_volumes = $new_volume"},
    {"device added behind a group-scoped target", 1, "add_volumes = $new_device"},
    {"volume removed", 2, "remove_volume = \"$volume\""},
    {"session dropped", 12, "drop_sessions = { target = \"$target\", count = $(1|2|3) }"},
    {"all sessions dropped", 3, "drop_sessions = { target = \"$target\", count = 32 }"},
    {"session flaps", 6,
     "set_state = { target = \"$target\", $on_nic state = \"$(XPT_WAIT|XPT_UP|IN_LOGIN|IN_LOGOUT|CLEANUP_WAIT)\" }",
     200, "set_state = { target = \"$target\", state = \"$back\", count = 32 }"},
    {"session fails for good", 2,
     "set_state = { target = \"$target\", state = \"$(XPT_WAIT|XPT_UP|IN_LOGIN|IN_LOGOUT|CLEANUP_WAIT)\" }", 200,
     "drop_sessions = { target = \"$target\" }"},
    {"logins fail", 3, "fail_logins = true", 600, "fail_logins = false"},
    {"login time changed", 3, "login_seconds = $seconds"},
    {"discovery fails", 2, "discovery_outcome = { adapter = \"$adapter\", status = $(0|1|3|4|5) }", 900,
     "discovery_outcome = { adapter = \"$adapter\", status = 2 }"},
    {"digest setting changed", 2, "digests = { adapter = \"$adapter\", on = $(true|false) }"},
    {"file edited", 6, "write_config_file = $edit"},
    {"file damaged", 4, "write_config_file = $damage"},
    {"file removed", 1, "remove_config = $removal"},
    {"worker held off", 2, "write_config_file = $hold_off", 600, "write_config_file = $edit"},
    {"call fails", 7, "fault = { $fault }"},
    {"calls fail from then on", 3, "fault = { $fault, persistent = true }", 400, "clear_faults = true"},
};

namespace {

template <typename Items, typename Text>
std::vector<std::string> texts(const Items& items, Text text_of) {
    std::vector<std::string> all;
    std::transform(std::begin(items), std::end(items), std::back_inserter(all), text_of);
    return all;
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

// "GROUP/ARRAY"
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

}  // namespace

const Happenings::Word Happenings::words[] = {
    {"nic", [](Happenings& on) { return nics(on.host(), true); }},
    {"lost_nic", [](Happenings& on) { return nics(on.host(), false); }},
    {"array", [](Happenings& on) { return arrays(on.host(), true); }},
    {"lost_array", [](Happenings& on) { return arrays(on.host(), false); }},
    {"adapter",
     [](Happenings& on) { return texts(on.site_.scenario().adapters, [](const auto& each) { return each.name; }); }},
    {"target", [](Happenings& on) { return texts(on.host().targets(), Site::name_of); }},
    {"volume", [](Happenings& on) { return on.site_.volumes(); }},
    {"new_volume", [](Happenings& on) { return on.site_.new_ones(on.dice_, false); }},
    {"new_device", [](Happenings& on) { return on.site_.new_ones(on.dice_, true); }},
    {"fault", [](Happenings& on) { return on.fault(); }},
    {"edit", [](Happenings& on) { return on.operator_.edits(); }},
    {"hold_off", [](Happenings& on) { return on.operator_.edits(true); }},
    {"damage", [](Happenings& on) { return on.operator_.damages(); }},
    {"removal", [](Happenings& on) { return on.operator_.removals(); }},
    {"on_nic",
     [](Happenings& on) {
         return texts(on.host().nics(), [](const auto& each) { return format("local_ip = \"{}\",", each.ip); });
     }},
    {"switch",
     [](Happenings& on) {
         return texts(on.host().groups(), [](const simhost::GroupView& each) {
             const bool is_static = each.mode == simhost::GroupMode::static_discovery;
             return format("group = \"{}\", mode = \"{}\"", each.name, is_static ? "dynamic" : "static");
         });
     }},
    {"new_array",
     [](Happenings& on) {
         auto groups = on.host().groups();
         std::erase_if(groups, [](const simhost::GroupView& each) { return each.arrays.size() == 4; });
         return texts(groups, [](const simhost::GroupView& each) {
             return format("group = \"{}\", {}", each.name, array_keys(each.name, each.arrays.size() + 1));
         });
     }},
    {"back",  // nothing logs in to an array that is lost
     [](Happenings& on) { return std::vector<std::string>(arrays(on.host(), false).empty() ? 1 : 0, "LOGGED_IN"); }},
    {"seconds",
     [](Happenings& on) {
         return texts(std::vector{0, 1, 2}, [&](int n) { return format("{}", n == 0 ? 0 : on.dice_.seconds(40)); });
     }},
};

std::vector<std::string> Happenings::choices(std::string_view word) {
    if (word.starts_with('(')) {
        std::vector<std::string> all;
        while (word.size() > 1) {
            word.remove_prefix(1);
            all.emplace_back(word.substr(0, word.find_first_of("|)")));
            word.remove_prefix(all.back().size());
        }
        return all;
    }
    return std::find_if(std::begin(words), std::end(words), [&](const Word& each) { return each.name == word; })
        ->choices(*this);
}

// Of each call one fault. Calls of the worker's own stop and start are not among them.
std::vector<std::string> Happenings::fault() {
    const auto& operation =
        simhost::OPERATIONS[dice_.any(0, static_cast<int>(std::size(simhost::OPERATIONS)) - 1)].name;
    if (operation == "sigaction" || (operation.starts_with("pthread_") && operation != "pthread_create")) {
        return {};
    }
    const std::string call =
        format("operation = \"{}\", nth = {}", operation, dice_.one_in(2) ? dice_.any(1, 5) : dice_.any(1, 150));
    if (operation.starts_with("IMA_")) {
        return {call};
    }
    std::vector<std::string> all = texts(std::vector<const char*>{"EIO", "ENOSPC", "EACCES", "EAGAIN"},
                                         [&](const char* each) { return format("{}, errno = \"{}\"", call, each); });
    for (int n = 0; n < 4 && operation.starts_with("psp."); ++n) {
        all.push_back(format("{}, status = {}", call, dice_.any(1, 7)));
    }
    for (int n = 0; n < 4 && operation == "write"; ++n) {
        all.push_back(format("{}, short_by = {}", call, dice_.any(1, 60)));
    }
    return all;
}

void Happenings::happen(std::string event, Words& bound) {
    for (std::size_t at = 0; (at = event.find('$', at)) != std::string::npos;) {
        const bool is_list = event[at + 1] == '(';
        const std::size_t end =
            is_list ? event.find(')', at) + 1 : event.find_first_not_of("abcdefghijklmnopqrstuvwxyz_", at + 1);
        const std::string word = event.substr(at + 1, std::min(end, event.size()) - at - 1);
        if (!bound.contains(word)) {
            const auto possible = choices(word);
            if (possible.empty()) {
                return;
            }
            bound[word] = dice_.pick(possible);
        }
        event.replace(at, word.size() + 1, bound[word]);
        at += bound[word].size();
    }
    site_.happen(event);
}

void Happenings::happen(const Kind& kind) {
    ++tally_.of(kind.name);
    Words bound;
    happen(kind.event, bound);
    if (kind.within > 0) {
        later(dice_.seconds(kind.within), [this, &kind, bound]() mutable {
            const auto targets = choices("target");
            if (!bound.contains("target") || std::count(targets.begin(), targets.end(), bound["target"]) > 0) {
                happen(kind.then, bound);
            }
        });
    }
}

void Happenings::happen_any() {
    int total = 0;
    for (const Kind& each : kinds) {
        total += each.weight;
    }
    const Kind* kind = kinds;
    for (int left = dice_.any(1, total) - kind->weight; left > 0; left -= kind->weight) {
        ++kind;
    }
    happen(*kind);
}

void Happenings::later(double seconds, std::function<void()> act) {
    host().at(host().now() + seconds, "something", [this, act = std::move(act), planned_in = round_](simhost::Host&) {
        if (planned_in == round_) {
            act();
        }
    });
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

void Happenings::end() {
    ++round_;
    Words bound;
    for (const char* const event : {"clear_faults = true", "fail_logins = false", "write_config_file = $edit"}) {
        happen(event, bound);
    }
    site_.happen(format("login_seconds = {}", site_.scenario().login_seconds));
    for (const std::string& adapter : choices("adapter")) {
        site_.happen(format("discovery_outcome = {{ adapter = \"{}\", status = 2 }}", adapter));
    }
    // Every group has an array; some NICs stay lost.
    const bool all = !dice_.one_in(4);
    for (const std::string& ip : choices("lost_nic")) {
        if (all || dice_.one_in(2)) {
            site_.happen(format("nic_up = \"{}\"", ip));
        }
    }
    for (const std::string& array : choices("lost_array")) {
        site_.happen(format("array_up = \"{}\"", array));
    }
    // A switch that came back in mid-pass can have cost static target entries: the administrator's script once more.
    for (const simhost::GroupView& each : host().groups()) {
        if (each.mode == simhost::GroupMode::static_discovery) {
            site_.happen(format("switch_mode = {{ group = \"{}\", mode = \"static\" }}", each.name));
        }
    }
    for (const std::string& target : choices("target")) {
        site_.happen(format("set_state = {{ target = \"{}\", state = \"LOGGED_IN\", count = 32 }}", target));
    }
}

}  // namespace soak
