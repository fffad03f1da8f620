#include "soak/happenings.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

#include "simhost/operations.h"

namespace soak {

using fmt::format;

// Each $word of an event is one of its choices; the same one when `then` happens, `within` seconds later at most. No
// choice: nothing happens.
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
    {"session dropped", 12, "drop_sessions = { target = \"$target\", count = $count }"},
    {"all sessions dropped", 3, "drop_sessions = { target = \"$target\", count = 32 }"},
    {"session flaps", 6, "set_state = { target = \"$target\", $on_nic state = \"$state\" }", 200,
     "set_state = { target = \"$target\", state = \"$back\", count = 32 }"},
    {"session fails for good", 2, "set_state = { target = \"$target\", state = \"$state\" }", 200,
     "drop_sessions = { target = \"$target\" }"},
    {"logins fail", 3, "fail_logins = true", 600, "fail_logins = false"},
    {"login time changed", 3, "login_seconds = $seconds"},
    {"discovery fails", 2, "discovery_outcome = { adapter = \"$adapter\", status = $status }", 900,
     "discovery_outcome = { adapter = \"$adapter\", status = 2 }"},
    {"digest setting changed", 2, "digests = { adapter = \"$adapter\", on = $flag }"},
    {"file edited", 6, "write_config_file = $edit"},
    {"file damaged", 4, "write_config_file = $damage"},
    {"file removed", 1, "remove_config = $absence"},
    {"worker held off", 2, "write_config_file = $hold_off", 600, "write_config_file = $edit"},
    {"call fails", 7, "fault = { $fault }"},
    {"calls fail from then on", 3, "fault = { $fault, persistent = true }", 400, "clear_faults = true"},
};

// What a word may stand for at this moment.
std::vector<std::string> Happenings::choices(const std::string& word) {
    std::map<std::string, std::vector<std::string>> all{
        {"count", {"1", "2", "3"}},
        {"flag", {"true", "false"}},
        {"state", {"XPT_WAIT", "XPT_UP", "IN_LOGIN", "IN_LOGOUT", "CLEANUP_WAIT"}},
        {"status", {"0", "1", "3", "4", "5"}}};
    const std::map<std::string, std::function<std::vector<std::string>()>> made_anew{
        {"edit", [&] { return std::vector{operator_.edit(false)}; }},
        {"hold_off", [&] { return std::vector{operator_.edit(true)}; }},
        {"damage", [&] { return std::vector{operator_.damage()}; }},
        {"absence", [&] { return std::vector{operator_.removal()}; }},
        {"seconds", [&] { return std::vector{format("{}", site_.dice.one_in(3) ? 0 : site_.dice.seconds(40))}; }},
        {"fault", [&] { return fault(); }},
        {"new_volume", [&] { return site_.new_volume(); }},
        {"new_device", [&] { return site_.new_device(); }},
    };
    if (const auto found = made_anew.find(word); found != made_anew.end()) {
        return found->second();
    }
    for (const auto& each : site_.scenario().adapters) {
        all["adapter"].push_back(each.name);
    }
    for (const simhost::NicView& each : site_.host().nics()) {
        all[each.up ? "nic" : "lost_nic"].push_back(each.ip);
        all["on_nic"].push_back(format("local_ip = \"{}\",", each.ip));
    }
    for (const simhost::GroupView& each : site_.host().groups()) {
        const bool is_static = each.mode == simhost::GroupMode::static_discovery;
        all["switch"].push_back(format("group = \"{}\", mode = \"{}\"", each.name, is_static ? "dynamic" : "static"));
        all[is_static ? "static_group" : "dynamic_group"].push_back(each.name);
        if (each.arrays.size() < 4) {
            all["new_array"].push_back(
                format("group = \"{}\", {}", each.name, array_keys(each.name, each.arrays.size() + 1)));
        }
        for (const simhost::ArrayView& array : each.arrays) {
            all[array.up ? "array" : "lost_array"].push_back(each.name + "/" + array.name);
        }
    }
    for (const simhost::TargetView& each : site_.host().targets()) {
        all["target"].push_back(each.group_scoped ? each.iqn.substr(each.iqn.find(':') + 1) : each.devices.front());
        all["volume"].insert(all["volume"].end(), each.devices.begin(), each.devices.end());
    }
    if (all["lost_array"].empty()) {  // nothing logs in to an array that is lost
        all["back"] = {"LOGGED_IN"};
    }
    return all[word];
}

// Calls of the worker's own stop and start are not among them.
std::vector<std::string> Happenings::fault() {
    Dice& dice = site_.dice;
    const std::string operation(dice.pick(simhost::OPERATIONS).name);
    if (operation == "sigaction" || (operation.starts_with("pthread_") && operation != "pthread_create")) {
        return {};
    }
    std::string answer;
    if (operation.starts_with("psp.") && dice.one_in(2)) {
        answer = format(", status = {}", dice.any(1, 7));
    } else if (operation == "write" && dice.one_in(2)) {
        answer = format(", short_by = {}", dice.any(1, 60));
    } else if (!operation.starts_with("IMA_")) {
        answer = format(", errno = \"{}\"", dice.pick(std::vector{"EIO", "ENOSPC", "EACCES", "EAGAIN"}));
    }
    const int nth = dice.one_in(2) ? dice.any(1, 5) : dice.any(1, 150);
    return {format("operation = \"{}\", nth = {}{}", operation, nth, answer)};
}

void Happenings::happen(std::string event, Words& bound) {
    for (std::size_t at = 0; (at = event.find('$', at)) != std::string::npos;) {
        const std::size_t end = event.find_first_not_of("abcdefghijklmnopqrstuvwxyz_", at + 1);
        const std::string word = event.substr(at + 1, std::min(end, event.size()) - at - 1);
        if (!bound.contains(word)) {
            const auto possible = choices(word);
            if (possible.empty()) {
                return;
            }
            bound[word] = site_.dice.pick(possible);
        }
        event.replace(at, word.size() + 1, bound[word]);
        at += bound[word].size();
    }
    site_.happen(event);
}

void Happenings::happen(const Kind& kind) {
    ++site_.counts[kind.name];
    Words bound;
    happen(kind.event, bound);
    if (kind.within > 0) {
        later(site_.dice.seconds(kind.within), [this, &kind, bound]() mutable {
            const auto targets = choices("target");
            if (!bound.contains("target") || std::count(targets.begin(), targets.end(), bound["target"]) > 0) {
                happen(kind.then, bound);
            }
        });
    }
}

void Happenings::happen_any() {
    const int total = std::accumulate(std::begin(kinds), std::end(kinds), 0,
                                      [](int sum, const Kind& each) { return sum + each.weight; });
    const Kind* kind = kinds;
    for (int left = site_.dice.any(1, total); left > kind->weight; ++kind) {
        left -= kind->weight;
    }
    happen(*kind);
}

void Happenings::later(double seconds, std::function<void()> act) {
    simhost::Host& host = site_.host();
    host.at(host.now() + seconds, "something", [this, act = std::move(act), planned_in = round_](simhost::Host&) {
        if (planned_in == round_) {
            act();
        }
    });
}

void Happenings::plan(int count, double seconds) {
    for (int i = 0; i < count; ++i) {
        later(site_.dice.seconds(seconds), [this] { happen_any(); });
    }
}

void Happenings::in_pass() {
    if (site_.dice.one_in(6)) {
        const double moment = site_.dice.seconds(site_.dice.one_in(2) ? 2.5 : 12);
        const bool is_switch = site_.dice.one_in(3);
        later(moment, [this, is_switch] { is_switch ? happen(kinds[0]) : happen_any(); });
    }
}

void Happenings::happen_to_each(const std::string& word, const std::string& event) {
    for (const std::string& each : choices(word)) {
        Words bound{{word, each}};
        happen(event, bound);
    }
}

void Happenings::end() {
    ++round_;
    Words bound{{"usual", format("{}", site_.scenario().login_seconds)}};
    for (const char* const event :
         {"clear_faults = true", "fail_logins = false", "write_config_file = $edit", "login_seconds = $usual"}) {
        happen(event, bound);
    }
    happen_to_each("adapter", "discovery_outcome = { adapter = \"$adapter\", status = 2 }");
    // Some NICs stay lost; every group has an array.
    const bool all = !site_.dice.one_in(4);
    for (const std::string& ip : choices("lost_nic")) {
        if (all || site_.dice.one_in(2)) {
            site_.happen(format("nic_up = \"{}\"", ip));
        }
    }
    happen_to_each("lost_array", "array_up = \"$lost_array\"");
    // A switch that came back in mid-pass can have cost static target entries: the administrator's script once more.
    happen_to_each("static_group", "switch_mode = { group = \"$static_group\", mode = \"static\" }");
    happen_to_each("target", "set_state = { target = \"$target\", state = \"LOGGED_IN\", count = 32 }");
}

}  // namespace soak
