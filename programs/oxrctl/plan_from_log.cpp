#include "oxrctl/plan_from_log.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <tuple>

#include "configuration/config_keys.h"
#include "configuration/logs_path_rule.h"
#include "oxrctl/config_report.h"
#include "oxrctl/status/log_files.h"
#include "oxrctl/status/log_sources.h"
#include "oxrctl/text.h"
#include "shared/name_list.h"
#include "shared/needs.h"

namespace oxrctl {

namespace {

// What a scenario can take.
constexpr std::size_t LONGEST_NAME = 40;
constexpr std::size_t LONGEST_IQN = 223;
constexpr int MOST_NICS = 32;
constexpr int MOST_SESSIONS = 32;
constexpr int MOST_ADAPTERS_OF_A_VOLUME = 8;
constexpr int MOST_ARRAYS = 32;

// Every group has as many arrays as its targets tell, so that a plan with one array more adds it to all of them.
struct GroupKind {
    bool static_mode = false;
    int arrays = 1;

    auto operator<=>(const GroupKind&) const = default;
    std::string name() const { return static_mode ? "static" : fmt::format("arrays-{}", arrays); }
};

// A volume or a group-scoped target of the scenario.
struct ScenarioEntry {
    std::string name, iqn, behind;
    GroupKind group;
    int arrays = 1;     // that it is striped over, or that serve it
    int nics = 0;       // 0: all
    int sessions = -1;  // -1: as the host makes them

    bool same_but_name(const ScenarioEntry& other) const {
        return iqn.empty() && other.iqn.empty() && behind == other.behind && group == other.group &&
               arrays == other.arrays && nics == other.nics && sessions == other.sessions;
    }
};

// "db-07": "db-", 7 and its two digits. Without digits, or with too many, a stem alone.
struct NumberedName {
    std::string_view stem;
    int number = -1;
    std::size_t width = 0;
};

NumberedName numbered(std::string_view name) {
    constexpr std::size_t most_digits = 5;
    const std::size_t digits = name.find_last_not_of("0123456789") + 1;
    NumberedName parts{name.substr(0, digits), -1, name.size() - digits};
    if (parts.width == 0 || parts.width > most_digits) {
        return {name};
    }
    std::from_chars(name.data() + digits, name.data() + name.size(), parts.number);
    return parts;
}

bool comes_before(const ScenarioEntry& a, const ScenarioEntry& b) {
    const NumberedName x = numbered(a.name), y = numbered(b.name);
    return std::tie(x.stem, x.number, a.name) < std::tie(y.stem, y.number, b.name);
}

bool is_usable_name(std::string_view name, std::size_t longest = LONGEST_NAME) {
    return !name.empty() && name.size() <= longest && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               std::string_view("._:-").find(c) != std::string_view::npos;
    });
}

// Known, and what a scenario can have.
int within(int value, int least, int most, int otherwise) {
    return value == TargetStory::unknown ? otherwise : std::clamp(value, least, most);
}

struct Config {
    std::map<std::string, std::string> values;  // in force
    std::string text;                           // of the file; empty: there is none
};

// As a text of TOML over several lines, in ASCII.
std::string toml_lines(std::string_view text) {
    std::string quoted = "\"\"\"\n";
    for (const char c : text) {
        quoted += c == '\\' || c == '"' ? "\\" : "";
        quoted += c == '\n' || c == '\t' || (c >= ' ' && c < '\x7f') ? c : '?';
    }
    return quoted + "\"\"\"\n";
}

class Maker {
public:
    Maker(const Story& story, Config config) : story_(story), config_(std::move(config)) {
        for (const auto& [key, value] : config_.values) {
            const ConfigKey* const known = find_config_key(key);
            if (known != nullptr && known->number != nullptr) {
                std::from_chars(value.data(), value.data() + value.size(), values_.*known->number);
            }
        }
    }

    void make() {
        find_nics();
        for (const TargetStory& target : story_.targets) {
            by_iqn_[target.iqn].push_back(&target);
        }
        for (const TargetStory& target : story_.targets) {
            if (target.group_scoped) {
                add_group_scoped(target);
            } else if (!target.devices.empty()) {
                add_volume(target);
            }
        }
        std::sort(volumes_.begin(), volumes_.end(), comes_before);
        tell_what_is_left_out();
    }

    std::vector<std::string> guesses() const {
        std::vector<std::string> all = guesses_;
        for (const auto& [what, names] : of_targets_) {
            all.push_back(fmt::format("{}: {}", what, shared::name_list(names)));
        }
        return all;
    }

    std::string text() const {
        // Time enough for some passes.
        const auto run_for = std::clamp<std::uint64_t>(std::uint64_t{values_.interval} * 5, 3600, 30 * 86400);
        return fmt::format("title = \"made from a log\"\nrun_for = {}\n", run_for) + config_text() + adapters_text() +
               groups_text() + targets_text() + volumes_text();
    }

private:
    void guess(std::string text) { guesses_.push_back(std::move(text)); }
    void guess_of(const std::string& what, const std::string& name) { of_targets_[what].push_back(name); }

    // --- adapters ---
    void find_nics() {
        std::set<int> numbers;
        for (const TargetStory& target : story_.targets) {
            if (target.nics > 0) {
                numbers.insert(target.nics);
            }
        }
        nics_ = numbers.empty() ? 2 : std::min(*numbers.rbegin(), MOST_NICS);
        each_on_its_own_ = numbers.size() > 1 && nics_ <= MOST_ADAPTERS_OF_A_VOLUME;
        guess(fmt::format("the addresses and adapters of {}, {}",
                          count_of(static_cast<std::size_t>(nics_), "NIC", "NICs"),
                          numbers.empty()            ? "and that there are so many"
                          : values_.vmknic_count > 0 ? "whose number is that of vmknic_count"
                                                     : "whose number is that of those that carry paths"));
    }

    // A target with fewer NICs than others is on some of the adapters only.
    int nics_of(const TargetStory& target, const std::string& name) {
        if (target.static_mode || target.nics == nics_) {
            return 0;
        }
        if (target.nics > 0 && each_on_its_own_) {
            return target.nics;
        }
        guess_of("that they use all NICs, though the log tells fewer", name);
        return 0;
    }

    std::string adapters_text() const {
        std::string text;
        for (int i = 0; i < nics_; ++i) {
            if (i == 0 || each_on_its_own_) {
                text += fmt::format("{}\n[[adapter]]\nname = \"vmhba{}\"\nnics = [", i == 0 ? "" : "]\n", 64 + i);
            }
            text += fmt::format("{}\"10.0.1.{}\"", text.ends_with('[') ? "" : ", ", 1 + i);
        }
        return text + "]\n";
    }

    // --- groups ---
    GroupKind group_of(const TargetStory& target, int arrays) {
        const GroupKind kind{target.static_mode, target.static_mode ? 2 : arrays};
        groups_.insert(kind);
        return kind;
    }

    std::string groups_text() const {
        std::string text;
        int number = 0;
        for (const GroupKind& group : groups_) {
            ++number;
            text += fmt::format("\n[[group]]\nname = \"{}\"\nmode = \"{}\"\ndiscovery_ip = \"10.0.0.{}\"\narrays = [\n",
                                group.name(), group.static_mode ? "static" : "dynamic", number);
            for (int i = 1; i <= group.arrays; ++i) {
                text += fmt::format("    {{ name = \"a{}\", data_ips = [\"10.1.{}.{}\"] }},\n", i, number, i);
            }
            text += "]\n";
        }
        return text;
    }

    // --- targets ---
    std::string new_name(std::string_view wanted, const char* otherwise) {
        std::string name(wanted);
        for (int i = 1; !is_usable_name(name) || !names_.insert(name).second; ++i) {
            name = fmt::format("{}-{}", otherwise, i);
        }
        if (name != wanted) {
            guess_of("names in place of ones that a scenario can't have", name);
        }
        return name;
    }

    int sessions_left(const TargetStory& target, const std::string& name) {
        if (target.static_mode) {
            const int share = static_share();
            guess_of(share < 0 ? "the sessions in static mode: one to each of two portals"
                               : "the sessions in static mode: an equal part of those that the host has besides",
                     name);
            return share;
        }
        const int sessions = sessions_of(story_, target);
        if (sessions != TargetStory::unknown) {
            const auto left = std::int64_t{sessions} + target.added - target.removed;
            return static_cast<int>(std::clamp<std::int64_t>(left, 0, MOST_SESSIONS));
        }
        if (target.group_scoped && story_.path_limit) {
            guess_of("the sessions: as many as the number of the host's paths makes likely", name);
            return likely_sessions();
        }
        if (target.paths == 0 || (target.paths > 0 && !target.group_scoped)) {
            guess_of("the sessions: as many as active paths", name);
            return std::min(target.paths, MOST_SESSIONS);
        }
        guess_of("the sessions: as many as required", name);
        return within(target.required, 0, MOST_SESSIONS, -1);
    }

    // A session to a group-scoped target brings a path to each of its volumes.
    int likely_sessions() const {
        std::int64_t paths = story_.paths, volumes = 0;
        for (const TargetStory& target : story_.targets) {
            paths -= target.group_scoped ? 0 : std::max(target.paths, 0);
            volumes += target.group_scoped ? static_cast<std::int64_t>(target.devices.size()) : 0;
        }
        const std::int64_t each = volumes == 0 ? 0 : (paths + volumes - 1) / volumes;
        return static_cast<int>(std::clamp<std::int64_t>(each, 0, MOST_SESSIONS));
    }

    void add_volume(const TargetStory& target) {
        ScenarioEntry entry;
        entry.name = new_name(target.devices.front(), "volume");
        int most_arrays = target.arrays;
        const std::vector<const TargetStory*>& sharing = by_iqn_.at(target.iqn);
        for (const TargetStory* other : sharing) {
            most_arrays = std::max(most_arrays, other->arrays);
        }
        if (std::any_of(sharing.begin(), sharing.end(),
                        [&](const TargetStory* other) { return other->required != target.required; })) {
            guess_of("the sessions, which volumes on one target change by turns", entry.name);
        }
        if (!target.static_mode && target.arrays < 1) {
            guess_of("that there is one array", entry.name);
        }
        entry.arrays = within(target.arrays, 1, MOST_ARRAYS, 1);
        entry.group = group_of(target, std::clamp(most_arrays, 1, MOST_ARRAYS));
        entry.iqn = sharing.size() > 1 && is_usable_name(target.iqn, LONGEST_IQN) ? target.iqn : "";
        entry.nics = nics_of(target, entry.name);
        entry.sessions = sessions_left(target, entry.name);
        note_state(target, entry.name);
        volumes_.push_back(std::move(entry));
    }

    void add_group_scoped(const TargetStory& target) {
        const std::string_view iqn = target.iqn;
        ScenarioEntry entry;
        entry.name = new_name(iqn.substr(iqn.rfind(':') + 1), "target");
        entry.arrays = within(target.arrays, 1, MOST_ARRAYS, 1);
        entry.group = group_of(target, arrays_of_group(target, entry.name));
        entry.nics = nics_of(target, entry.name);
        entry.sessions = sessions_left(target, entry.name);
        note_state(target, entry.name);
        if (entry.arrays < entry.group.arrays) {
            guess_of("to which arrays the sessions are, and so how many of their paths are active", entry.name);
        }
        for (const std::string& device : target.devices) {
            ScenarioEntry volume;
            volume.name = new_name(device, "volume");
            volume.behind = entry.name;
            volume.group = entry.group;
            volume.arrays = volume.group.arrays;
            volume.nics = entry.nics;
            volumes_.push_back(std::move(volume));
        }
        group_scoped_.push_back(std::move(entry));
    }

    // The number of the group's arrays that brings about the required sessions.
    int arrays_of_group(const TargetStory& target, const std::string& name) {
        const int active = within(target.arrays, 1, MOST_ARRAYS, 1);
        const int nics = std::min(target.nics, MOST_NICS);
        for (int total = active; total <= MOST_ARRAYS; ++total) {
            if (shared::required_for_group_scoped_target(values_, nics, active, total) == target.required) {
                return total;
            }
        }
        guess_of("the arrays of the group: those that serve the target", name);
        return active;
    }

    void note_state(const TargetStory& target, const std::string& name) {
        if (target.mode_changed) {
            guess_of("that no switch of the mode is under way, though one is", name);
        }
        if (target.pending > 0) {
            guess_of("that all sessions are logged in, though some are logging in", name);
        }
        if (target.dead_paths > 0) {
            guess_of("that there are no dead paths, though there are some", name);
        }
        if (target.pass > story_.ended_pass) {
            guess_of("that they are as the pass tells them in which the log ends", name);
        }
    }

    void tell_what_is_left_out() {
        guess("the portals and the groups: a group for each number of arrays");
        if (story_.without_nics > 0) {
            guess("that there are no volumes without a path, though there are some" +
                  (story_.vanished.empty() ? std::string() : ": " + shared::name_list(story_.vanished)));
        }
        guess("that logins take no time");
        const bool at_rest = std::all_of(story_.targets.begin(), story_.targets.end(), [](const TargetStory& target) {
            return !target.static_mode && target.added == 0 && target.removed == 0;
        });
        if (const std::int64_t others = other_sessions(); at_rest && others > 0) {
            guess(fmt::format("that there is more room than on the host: {} of none of these targets are left out",
                              count_of(static_cast<std::size_t>(others), "session", "sessions")));
        }
        compare_paths();
    }

    // A session of the scenario brings a path to each volume of its target.
    void compare_paths() {
        std::map<std::string, std::int64_t> volumes_behind;
        std::int64_t planned = 0;
        bool known = std::all_of(story_.targets.begin(), story_.targets.end(),
                                 [](const TargetStory& target) { return target.added == 0 && target.removed == 0; });
        for (const ScenarioEntry& volume : volumes_) {
            ++volumes_behind[volume.behind];
            const bool own_sessions = volume.iqn.empty() && volume.sessions >= 0;
            known = known && (!volume.behind.empty() || own_sessions);
            planned += volume.behind.empty() ? volume.sessions : 0;
        }
        for (const ScenarioEntry& target : group_scoped_) {
            known = known && target.sessions >= 0;
            planned += target.sessions * volumes_behind[target.name];
        }
        const std::int64_t others = known ? story_.paths - planned : 0;
        if (others > 0) {
            guess(
                fmt::format("that there is more room for paths than on the host: {} of none of these sessions, such "
                            "as dead ones, are left out",
                            count_of(static_cast<std::size_t>(others), "path", "paths")));
        } else if (others < 0) {
            guess(fmt::format("that each session brings its paths, though the host has {} fewer",
                              count_of(static_cast<std::size_t>(-others), "path", "paths")));
        }
    }

    // The sessions of the host that aren't those of targets in dynamic mode.
    std::int64_t other_sessions() const {
        std::int64_t others = story_.sessions;
        for (const TargetStory& target : story_.targets) {
            const int sessions = target.static_mode ? 0 : sessions_of(story_, target);
            if (sessions == TargetStory::unknown) {
                return TargetStory::unknown;
            }
            others -= sessions;
        }
        return others;
    }

    // Of each target in static mode, whose sessions the log doesn't tell; -1: not that either.
    int static_share() const {
        const std::int64_t others = other_sessions();
        const auto number = std::count_if(story_.targets.begin(), story_.targets.end(),
                                          [](const TargetStory& each) { return each.static_mode; });
        const bool is_equal = others > 0 && others % number == 0 && others / number <= MOST_SESSIONS;
        return is_equal ? static_cast<int>(others / number) : -1;
    }

    // --- TOML ---
    std::string config_text() const {
        if (!config_.text.empty()) {
            return "config_file = " + toml_lines(config_.text);
        }
        std::string text = "\n[config]\n";
        for (const ConfigKey& key : config_keys) {
            if (key.number != nullptr && config_.values.contains(std::string(key.name))) {
                text += fmt::format("{} = {}\n", key.name, values_.*key.number);
            }
        }
        return text;
    }

    static std::string array_list(std::string_view key, int number) {
        std::string text;
        for (int i = 1; i <= number; ++i) {
            text += fmt::format("{}\"a{}\"", i == 1 ? "" : ", ", i);
        }
        return fmt::format("{} = [{}]\n", key, text);
    }

    static std::string placed_text(const ScenarioEntry& entry) {
        std::string text = fmt::format("group = \"{}\"\n", entry.group.name());
        if (!entry.iqn.empty()) {
            text += fmt::format("iqn = \"{}\"\n", entry.iqn);
        }
        if (!entry.behind.empty()) {
            text += fmt::format("behind = \"{}\"\n", entry.behind);
        }
        for (int i = 0; i < entry.nics; ++i) {
            text += fmt::format("{}\"vmhba{}\"{}", i == 0 ? "adapters = [" : ", ", 64 + i,
                                i + 1 == entry.nics ? "]\n" : "");
        }
        return entry.sessions < 0 ? text : text + fmt::format("sessions = {}\n", entry.sessions);
    }

    std::string targets_text() const {
        std::string text;
        for (const ScenarioEntry& target : group_scoped_) {
            text += fmt::format("\n[[group_scoped_target]]\nname = \"{}\"\n{}{}", target.name,
                                array_list("active_arrays", target.arrays), placed_text(target));
        }
        return text;
    }

    // Volumes that differ in their numbers only stand in one entry.
    std::string volumes_text() const {
        std::string text;
        for (std::size_t i = 0; i < volumes_.size();) {
            const ScenarioEntry& first = volumes_[i];
            const NumberedName name = numbered(first.name);
            std::size_t count = 1;
            while (i + count < volumes_.size() && name.width > 0 && first.same_but_name(volumes_[i + count]) &&
                   volumes_[i + count].name ==
                       fmt::format("{}{:0{}}", name.stem, name.number + static_cast<int>(count), name.width)) {
                ++count;
            }
            text += "\n[[volumes]]\n";
            text += count == 1 ? fmt::format("name = \"{}\"\n", first.name)
                               : fmt::format("name = \"{}{:#>{}}\"\ncount = {}\n", name.stem, "", name.width, count);
            if (count > 1 && name.number != 1) {
                text += fmt::format("first = {}\n", name.number);
            }
            if (first.behind.empty() && first.arrays < first.group.arrays && !first.group.static_mode) {
                text += array_list("arrays", first.arrays);
            }
            text += placed_text(first);
            i += count;
        }
        return text;
    }

    const Story& story_;
    const Config config_;
    ConfigValues values_;
    std::map<std::string, std::vector<const TargetStory*>> by_iqn_;
    int nics_ = 0;
    bool each_on_its_own_ = false;  // one NIC an adapter
    std::set<GroupKind> groups_;
    std::set<std::string> names_;
    std::vector<ScenarioEntry> group_scoped_, volumes_;
    std::vector<std::string> guesses_;
    std::map<std::string, std::vector<std::string>> of_targets_;
};

Config config_of_log(const Story& story, std::vector<std::string>& guesses) {
    if (story.values.empty()) {
        guesses.emplace_back("the configuration: the default one");
    }
    return {{story.values.begin(), story.values.end()}, ""};
}

// The text goes into the scenario, so that the service judges it. Its folder for logs is none of the simulated host.
Config config_of_file(const std::string& file, const Story& story, std::vector<std::string>& guesses) {
    Config config;
    for (const ConfigReport::KeyValue& value : judge_config_file(file).values) {
        config.values[value.key] = value.in_force;
    }
    for (const auto& [key, value] : story.values) {
        const std::string& of_file = config.values[key];
        if (of_file != value && key != LOGS_PATH_KEY) {
            guesses.push_back(fmt::format("{}={} as in the file; the log has {}", key, of_file, value));
        }
    }
    std::ifstream stream(file);
    std::string_view ignored;
    for (std::string line; std::getline(stream, line);) {
        config.text += logs_path_value(line, ignored) ? "" : line + "\n";
    }
    return config;
}

// What the scenario rests on.
std::string read_text(const Story& story) {
    const auto group_scoped = static_cast<std::size_t>(std::count_if(
        story.targets.begin(), story.targets.end(), [](const TargetStory& target) { return target.group_scoped; }));
    std::vector<std::string> parts;
    const auto add = [&parts](std::int64_t number, const std::string& one, const std::string& many) {
        if (number > 0) {
            parts.push_back(count_of(static_cast<std::size_t>(number), one, many));
        }
    };
    add(story.volumes, "volume", "volumes");
    add(static_cast<std::int64_t>(group_scoped), "group-scoped target", "group-scoped targets");
    add(story.sessions, "session", "sessions");
    add(story.paths, "path", "paths");
    if (!story.values.empty()) {
        parts.emplace_back("the configuration");
    }
    return fmt::format("{} in the pass of {}", fmt::join(parts, ", "), story.last_pass);
}

// Empty: it can be planned on.
std::string why_unusable(const Story& story) {
    if (story.passes == 0) {
        return "no pass ended in this log";
    }
    if (!story.targets.empty()) {
        return "";
    }
    return story.volumes > 0 ? fmt::format("the last pass doesn't name the {} that it found",
                                           count_of(static_cast<std::size_t>(story.volumes), "volume", "volumes"))
                             : "the last pass tells of no volume";
}

// Given as for `oxrctl status`, with what is said of it there.
LogSource log_of_one_host(const std::string& given) {
    std::vector<LogSource> sources = find_logs({given}).sources;
    const LogSource first = sources.front();
    std::erase_if(sources, [](const LogSource& source) { return std::filesystem::is_directory(source.file); });
    if (sources.size() > 1) {
        throw Refusal(fmt::format("--from-log: {} has the logs of {} hosts; give one of them, such as {}", given,
                                  sources.size(), sources.front().file));
    }
    return sources.empty() ? first : sources.front();
}

}  // namespace

ScenarioFromLog scenario_from_log(const std::string& given, const std::string& config_file) {
    const LogSource source = log_of_one_host(given);
    const std::string log = source.file == "-" ? "standard input" : source.file;
    const LogReading reading = read_log(source.file);
    const Story& story = reading.story;
    if (story.messages == 0) {
        refuse_foreign(log);
    }
    if (const std::string why = why_unusable(story); !why.empty()) {
        throw Refusal(fmt::format("{}: {}, so there is nothing to plan on", log, why));
    }
    ScenarioFromLog made{"", log, read_text(story), {}};
    Maker maker(story, config_file.empty() ? config_of_log(story, made.guesses)
                                           : config_of_file(config_file, story, made.guesses));
    maker.make();
    for (std::string& guess : maker.guesses()) {
        made.guesses.push_back(std::move(guess));
    }
    made.text = fmt::format("# Made from {}.\n# Read: {}.\n# Guessed, as the log doesn't tell it:\n", printable(log),
                            made.read);
    for (const std::string& guess : made.guesses) {
        made.text += fmt::format("# - {}\n", printable(guess, guess.size()));
    }
    made.text += maker.text();
    return made;
}

}  // namespace oxrctl
