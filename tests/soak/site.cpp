#include "soak/site.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace soak {

namespace {

// Hazards of the procedures that are let pass, each exactly in its own case.
const std::vector<std::string> ALLOWED{"stale counts",   "group-scoped count", "failed host count",
                                       "static renewal", "digest change",      "switch in mid-pass"};
constexpr int most_groups = 6;

std::string list(const std::vector<std::string>& texts) {
    return fmt::format("[\"{}\"]", fmt::join(texts, "\", \""));
}

// Some of them as the value of a key; nothing, which stands for all, in most cases.
std::string some_of(Dice& dice, int once_in, std::string_view key, std::vector<std::string> all) {
    std::erase_if(all, [&](const auto&) { return dice.one_in(2); });
    return all.empty() || !dice.one_in(once_in) ? "" : fmt::format(", {} = {}", key, list(all));
}

template <typename Items>
std::vector<std::string> names(const Items& items) {
    std::vector<std::string> all;
    for (const auto& each : items) {
        all.push_back(each.name);
    }
    return all;
}

[[noreturn]] void give_up(const std::string& text, const std::vector<program::Problem>& problems) {
    std::fprintf(stdout, "%s\n%s", text.c_str(), program::problems_text(problems, "soak").c_str());
    std::fflush(stdout);
    std::abort();
}

}  // namespace

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (const char each : text) {
        result += each == '"' || each == '\\'              ? fmt::format("\\{}", each)
                  : static_cast<unsigned char>(each) < ' ' ? fmt::format("\\u{:04x}", static_cast<unsigned>(each))
                                                           : std::string(1, each);
    }
    return result + '"';
}

std::string array_keys(std::string_view group, std::size_t number) {
    std::vector<std::string> ips{fmt::format("10.9.{}.{}", group.substr(1), number)};
    if (number % 3 == 0) {
        ips.push_back(fmt::format("10.9.{}.{}", group.substr(1), 100 + number));
    }
    return fmt::format("name = \"a{}\", data_ips = {}", number, list(ips));
}

Site::Site(Dice& dice) : large_(dice.one_in(30)), deep_logs_(dice.one_in(2)) {
    text_ = describe_host(dice);
    read();
    text_ += describe_volumes(dice);
    read();
    host_ = std::make_unique<simhost::Host>(program::host_options(scenario_));
    site_.build(*host_);
}

void Site::read() {
    auto result = program::read_scenario(text_);
    if (!result.problems.empty()) {
        give_up(text_, result.problems);
    }
    scenario_ = std::move(result.scenario);
}

// All but its volumes. Not every group has one at first.
std::string Site::describe_host(Dice& dice) {
    const double login = dice.one_in(3) ? 0 : dice.seconds(8);
    const std::vector<int> claims{0, 5, 30, 45};
    std::string text =
        fmt::format("allow = {}\nhost = {{ login_seconds = {}, discovery_seconds = {}, claim_seconds = {} }}\n",
                    list(ALLOWED), login, login + (dice.one_in(2) ? 0 : 1), dice.pick(claims));
    if (deep_logs_) {
        text += fmt::format("config = {{ ostrel_logs_path = \"{}\" }}\n", DEEP_LOGS);
    }
    text += "adapter = [\n";
    for (int a = 0, adapters = dice.any(1, 4); a < adapters; ++a) {
        std::vector<std::string> nics;
        for (int n = dice.one_in(6) ? 3 : dice.any(1, 2); n > 0; --n) {
            nics.push_back(fmt::format("10.{}.1.{}", a, n));
        }
        text += fmt::format("  {{ name = \"vmhba{}\", nics = {} }},\n", 64 + a, list(nics));
    }
    text += "]\ngroup = [\n";
    const int groups = dice.any(1, most_groups);
    for (int g = 0; g < groups; ++g) {
        const std::string name = fmt::format("g{}", g);
        std::vector<std::string> arrays;
        for (std::size_t n = 1, most = static_cast<std::size_t>(dice.any(1, 3)); n <= most; ++n) {
            arrays.push_back("{ " + array_keys(name, n) + " }");
        }
        text += fmt::format("  {{ name = \"{}\", mode = \"{}\", discovery_ip = \"10.9.{}.200\", arrays = [{}] }},\n",
                            name, dice.one_in(4) ? "static" : "dynamic", g, fmt::join(arrays, ", "));
    }
    return text + "]\n";
}

std::string Site::describe_volumes(Dice& dice) {
    std::string targets = "group_scoped_target = [\n";
    std::string volumes = "volumes = [\n";
    for (int t = 0, most = dice.any(0, 3); t < most; ++t) {
        const simhost::GroupSpec& group = dice.pick(scenario_.groups);
        const std::string name = fmt::format("gst{}", t);
        targets += fmt::format("  {{ name = \"{}\", group = \"{}\"{}{} }},\n", name, group.name,
                               some_of(dice, 3, "active_arrays", names(group.arrays)),
                               some_of(dice, 4, "adapters", names(scenario_.adapters)));
        // A switch to static discovery gets stuck when several of a target's devices report it: seldom more than one.
        for (int devices = dice.one_in(4) ? dice.any(2, 3) : dice.any(0, 1); devices > 0; --devices) {
            volumes += fmt::format("  {},\n", new_device(dice, group.name, name));
        }
    }
    std::string sessions = "session = [\n";
    int room = 1900;
    for (int v = large_ ? dice.any(170, 240) : dice.any(1, 10); v > 0; --v) {
        // A static group's target gets a session to each portal; another one a session over each NIC, and often more.
        const simhost::GroupSpec& group = dice.pick(scenario_.groups);
        const bool is_dynamic = group.mode == simhost::GroupMode::dynamic_discovery;
        const int made = is_dynamic ? std::min(room, dice.any(large_ ? 4 : 1, large_ ? 8 : 12)) : 0;
        room -= is_dynamic ? made : 16;
        volumes += fmt::format(
            "  {},\n",
            new_volume(dice, group.name, is_dynamic || room <= 0 ? fmt::format(", sessions = {}", made) : ""));
        if (is_dynamic && dice.one_in(8)) {  // that an administrator made by hand
            sessions += fmt::format("  {{ target = \"vol{}\", kind = \"static\" }},\n", next_volume_ - 1);
        }
    }
    return targets + "]\n" + volumes + "]\n" + sessions + "]\n";
}

std::string Site::new_volume(Dice& dice, const std::string& group, const std::string& more) {
    const auto in = std::find_if(scenario_.groups.begin(), scenario_.groups.end(),
                                 [&](const simhost::GroupSpec& each) { return each.name == group; });
    return fmt::format("{{ name = \"vol{}\", group = \"{}\"{}{}{}{} }}", next_volume_++, group,
                       some_of(dice, 3, "arrays", names(in->arrays)),
                       some_of(dice, 4, "adapters", names(scenario_.adapters)),
                       dice.one_in(12) ? ", supported = false" : "", more);
}

std::string Site::new_device(Dice& dice, const std::string& group, const std::string& target) {
    return fmt::format("{{ name = \"pe{}\", group = \"{}\", behind = \"{}\", protocol_endpoint = {} }}", next_volume_++,
                       group, target, dice.one_in(2));
}

// The table of a new volume; none when there is no room.
std::vector<std::string> Site::new_ones(Dice& dice, bool behind_group_scoped_target) {
    std::vector<program::GroupScopedTargetEntry> targets = scenario_.group_scoped_targets;
    // Several devices of a target hold up switches of its group: seldom more than one.
    std::erase_if(targets, [&](const program::GroupScopedTargetEntry& each) {
        return !host_->target(each.spec.iqn).devices.empty() && !dice.one_in(8);
    });
    if (static_cast<std::size_t>(next_volume_) == program::MOST_VOLUMES ||
        (behind_group_scoped_target && targets.empty())) {
        return {};
    }
    if (behind_group_scoped_target) {
        const program::GroupScopedTargetEntry& behind = dice.pick(targets);
        return {new_device(dice, behind.spec.group, behind.name)};
    }
    // Without sessions: the host logs in by itself.
    return {new_volume(dice, dice.pick(scenario_.groups).name, ", sessions = 0")};
}

std::vector<std::string> Site::volumes() const {
    std::vector<std::string> all;
    for (const simhost::TargetView& each : host_->targets()) {
        all.insert(all.end(), each.devices.begin(), each.devices.end());
    }
    return all;
}

std::string Site::name_of(const simhost::TargetView& target) {
    return target.group_scoped ? target.iqn.substr(target.iqn.find(':') + 1) : target.devices.front();
}

void Site::happen(const std::string& event) {
    std::vector<program::Problem> problems;
    const auto read = program::read_event(event, scenario_, problems);
    if (!read) {
        give_up(event, problems);
    }
    text_ += fmt::format("[[event]]\nat = {}\n{}\n", host_->now(), event);
    read->action.act(site_, *host_);
}

void Site::remark(const std::string& text) {
    text_ += fmt::format("# at {} s: {}\n", host_->now(), text);
}

std::string Site::written(std::string& problem) const {
    const std::string text = fmt::format("run_for = {}\n", host_->now() + 1) + text_;
    problem = program::problems_text(program::read_scenario(text).problems, "scenario");
    return text;
}

}  // namespace soak
