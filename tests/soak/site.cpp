#include "soak/site.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

namespace soak {

using fmt::format;

namespace {

// Hazards of the procedures that are let pass, each exactly in its own case.
constexpr char allowed[] =
    "allow = ['stale counts', 'group-scoped count', 'failed host count', 'static renewal', 'digest change', "
    "'switch in mid-pass']\n";

// Some of these as the value of a key; nothing, which stands for all, in most cases.
template <typename Items>
std::string some_of(Dice& dice, int once_in, std::string_view key, const Items& items) {
    std::string names;
    for (const auto& each : items) {
        names += dice.one_in(2) ? format("'{}', ", each.name) : "";
    }
    return names.empty() || !dice.one_in(once_in) ? "" : format(", {} = [{}]", key, names);
}

[[noreturn]] void give_up(const std::string& text, const std::vector<ostrel_simhost::Problem>& problems) {
    throw std::logic_error(text + "\n" + ostrel_simhost::problems_text(problems, "soak"));
}

}  // namespace

std::string array_keys(std::string_view group, std::size_t number) {
    const std::string address = format("10.9.{}.", group.substr(1));
    return format("name = 'a{}', data_ips = ['{}{}'{}]", number, address, number,
                  number % 3 == 0 ? format(", '{}{}'", address, 100 + number) : "");
}

RandomSite::RandomSite(std::uint64_t seed) : dice(seed), large(dice.one_in(30)), has_deep_logs(dice.one_in(2)) {
    text_ = describe_host();
    read();
    text_ += describe_volumes();
    read();
    host_ = std::make_unique<simhost::Host>(ostrel_simhost::host_options(scenario_));
    site_.build(*host_);
}

void RandomSite::read() {
    auto result = ostrel_simhost::read_scenario(text_);
    if (!result.problems.empty()) {
        give_up(text_, result.problems);
    }
    scenario_ = std::move(result.scenario);
}

// All but its volumes. Not every group has one at first.
std::string RandomSite::describe_host() {
    const double login = dice.one_in(3) ? 0 : dice.seconds(8);
    std::string text = allowed;
    text += format("host = {{ login_seconds = {}, discovery_seconds = {}, claim_seconds = {} }}\n", login,
                   login + dice.any(0, 1), dice.pick(std::vector{0, 5, 30, 45}));
    text += has_deep_logs ? format("config = {{ ostrel_logs_path = '{}' }}\n", DEEP_LOGS) : "";
    text += "adapter = [\n";
    for (int a = 0, adapters = dice.any(1, 4); a < adapters; ++a) {
        std::string nics;
        for (int n = dice.one_in(6) ? 3 : dice.any(1, 2); n > 0; --n) {
            nics += format("'10.{}.1.{}', ", a, n);
        }
        text += format("  {{ name = 'vmhba{}', nics = [{}] }},\n", 64 + a, nics);
    }
    text += "]\ngroup = [\n";
    for (int g = 0, groups = dice.any(1, 6); g < groups; ++g) {
        const std::string name = format("g{}", g);
        std::string arrays;
        for (std::size_t n = dice.any<std::size_t>(1, 3); n > 0; --n) {
            arrays += format("{{ {} }}, ", array_keys(name, n));
        }
        text += format("  {{ name = '{}', mode = '{}', discovery_ip = '10.9.{}.200', arrays = [{}] }},\n", name,
                       dice.one_in(4) ? "static" : "dynamic", g, arrays);
    }
    return text + "]\n";
}

std::string RandomSite::describe_volumes() {
    std::string targets = "group_scoped_target = [\n";
    std::string volumes = "volumes = [\n";
    std::string sessions = "session = [\n";
    for (int t = 0, count = dice.any(0, 3); t < count; ++t) {
        const std::string name = format("gst{}", t);
        const simhost::GroupSpec& group = dice.pick(scenario_.groups);
        targets +=
            format("  {{ name = '{}', group = '{}'{}{} }},\n", name, group.name,
                   some_of(dice, 3, "active_arrays", group.arrays), some_of(dice, 4, "adapters", scenario_.adapters));
        // A switch to static discovery gets stuck when several of a target's devices report it: seldom more than one.
        for (int devices = dice.one_in(4) ? dice.any(2, 3) : dice.any(0, 1); devices > 0; --devices) {
            volumes += format("  {},\n", device_of(group.name, name));
        }
    }
    int room = 1900;
    for (int v = large ? dice.any(170, 240) : dice.any(1, 10); v > 0; --v) {
        // A static group's target gets a session to each portal; another one a session over each NIC, and often more.
        const simhost::GroupSpec& group = dice.pick(scenario_.groups);
        const bool is_dynamic = group.mode == simhost::GroupMode::dynamic_discovery;
        const int made = is_dynamic ? std::min(std::max(room, 0), dice.any(large ? 4 : 1, large ? 8 : 12)) : 0;
        room -= is_dynamic ? made : 16;
        volumes += format("  {},\n", volume_of(group, is_dynamic || room <= 0 ? format(", sessions = {}", made) : ""));
        if (is_dynamic && dice.one_in(8)) {  // that an administrator made by hand
            sessions += format("  {{ target = 'vol{}', kind = 'static' }},\n", next_volume_ - 1);
        }
    }
    return targets + "]\n" + volumes + "]\n" + sessions + "]\n";
}

std::string RandomSite::volume_of(const simhost::GroupSpec& group, const std::string& more) {
    return format("{{ name = 'vol{}', group = '{}'{}{}{}{} }}", next_volume_++, group.name,
                  some_of(dice, 3, "arrays", group.arrays), some_of(dice, 4, "adapters", scenario_.adapters),
                  dice.one_in(12) ? ", supported = false" : "", more);
}

std::string RandomSite::device_of(const std::string& group, const std::string& target) {
    return format("{{ name = 'pe{}', group = '{}', behind = '{}', protocol_endpoint = {} }}", next_volume_++, group,
                  target, dice.one_in(2));
}

// Without sessions: the host logs in by itself.
std::vector<std::string> RandomSite::new_volume() {
    if (is_full()) {
        return {};
    }
    return {volume_of(dice.pick(scenario_.groups), ", sessions = 0")};
}

std::vector<std::string> RandomSite::new_device() {
    auto targets = scenario_.group_scoped_targets;
    // Several devices of a target hold up switches of its group: seldom more than one.
    std::erase_if(targets, [&](const ostrel_simhost::GroupScopedTargetEntry& each) {
        return !host_->target(each.spec.iqn).devices.empty() && !dice.one_in(8);
    });
    if (is_full() || targets.empty()) {
        return {};
    }
    const auto& behind = dice.pick(targets);
    return {device_of(behind.spec.group, behind.name)};
}

void RandomSite::happen(const std::string& event) {
    std::vector<ostrel_simhost::Problem> problems;
    const auto read = ostrel_simhost::read_event(event, scenario_, problems);
    if (!read) {
        give_up(event, problems);
    }
    text_ += format("[[event]]\nat = {}\n{}\n", host_->now(), event);
    read->action.act(site_, *host_);
}

void RandomSite::remark(const std::string& text) {
    text_ += format("# at {} s: {}\n", host_->now(), text);
}

}  // namespace soak
