#include "scenario.h"

#include <fmt/format.h>

#include <algorithm>

#include "overrides.h"
#include "scenario_parts.h"
#include "shared/duration.h"

namespace ostrel_simhost {

namespace {

constexpr std::size_t ADAPTER_NAME_CAPACITY = 12;
constexpr std::size_t EUI_CAPACITY = 40;
constexpr std::size_t IQN_CAPACITY = 223;  // RFC 3720: the longest iSCSI name
constexpr std::int64_t MOST_ADAPTERS = 32;

// By their numbers.
constexpr std::string_view SESSION_STATES[] = {"FREE",      "XPT_WAIT",  "XPT_UP",           "IN_LOGIN",
                                               "LOGGED_IN", "IN_LOGOUT", "LOGOUT_REQUESTED", "CLEANUP_WAIT"};

bool is_plain_name(std::string_view name) {
    return std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c < '\x7f' && c != '/'; });
}

// A name for something new: printable, without blanks and slashes, within its capacity.
std::string read_new_name(Fields& fields, std::string_view key, std::size_t capacity) {
    const std::string expected = fmt::format("a name of at most {} characters, without blanks and slashes", capacity);
    std::string name = fields.required_text(key, expected);
    if (!name.empty() && (name.size() > capacity || !is_plain_name(name))) {
        fields.complain(key, expected);
        return {};
    }
    return name;
}

// `group`: of a volume; several volumes of a group may stand behind one target. Empty: the name is to be new.
void take_iqn(Problems& problems, Names& names, Fields& fields, const std::string& iqn, const std::string& owner,
              const std::string& group) {
    if (iqn.empty() || iqn.size() > IQN_CAPACITY || !is_plain_name(iqn)) {
        fields.complain("iqn", fmt::format("an iSCSI name of at most {} characters", IQN_CAPACITY));
        return;
    }
    const auto [place, added] = names.iqns.try_emplace(iqn, Names::Owner{owner, group});
    if (!added && (group.empty() || place->second.group != group)) {
        problems.add(
            fields.line(), fields.key_name("iqn"),
            group.empty() ? "an iSCSI name of its own" : "an iSCSI name of its own or of a volume of its group",
            fmt::format("that of {}", place->second.name));
    }
}

void read_host(Problems& problems, const TomlValue& table, Scenario& scenario) {
    Fields fields(problems, table, "host");
    scenario.login_seconds = fields.seconds("login_seconds").value_or(scenario.login_seconds);
    scenario.claim_seconds = fields.seconds("claim_seconds", -1).value_or(scenario.claim_seconds);
    // A rediscovery isn't over before its logins are, unless the scenario says so.
    scenario.discovery_seconds = fields.seconds("discovery_seconds").value_or(scenario.login_seconds);
    if (const TomlValue* start = fields.find("start_time")) {
        constexpr std::int64_t latest = 253402300799;  // the end of year 9999
        if ((start->kind == TomlValue::Kind::moment || start->kind == TomlValue::Kind::integer) &&
            start->integer >= 0 && start->integer <= latest) {
            scenario.start_time = start->integer;
        } else {
            fields.complain("start_time", "a date and time such as 2024-05-01T08:00:00Z, 1970 or later");
        }
    }
    scenario.oxd_version = fields.text("oxd_version").value_or(scenario.oxd_version);
    scenario.psp_version = fields.text("psp_version").value_or(scenario.psp_version);
    fields.finish();
}

void read_adapter(Problems& problems, Names& names, const TomlValue& table, Scenario& scenario) {
    Fields fields(problems, table, "adapter");
    AdapterEntry adapter;
    adapter.name = read_new_name(fields, "name", ADAPTER_NAME_CAPACITY);
    adapter.nics = NameReader(problems, names).new_addresses(fields, "nics");
    fields.finish();
    if (!adapter.name.empty() && !names.adapters.try_emplace(adapter.name, adapter.nics).second) {
        fields.complain("name", "a name that no other adapter has");
        return;
    }
    scenario.adapters.push_back(std::move(adapter));
}

void read_group(Problems& problems, Names& names, const TomlValue& table, Scenario& scenario) {
    Fields fields(problems, table, "group");
    simhost::GroupSpec group;
    group.name = read_new_name(fields, "name", EUI_CAPACITY);
    if (!group.name.empty() && !names.groups.try_emplace(group.name).second) {
        fields.complain("name", "a name that no other group has");
    }
    if (fields.find("mode") != nullptr) {
        group.mode = read_mode(fields, "mode");
    }
    group.discovery_ip = NameReader(problems, names).new_address(fields, "discovery_ip");
    for (const TomlValue* array : fields.tables("arrays")) {
        group.arrays.push_back(read_array(problems, names, *array, "group.arrays", group.name));
    }
    const TomlValue* arrays = fields.find("arrays");
    if (arrays == nullptr || (arrays->kind == TomlValue::Kind::list && arrays->items.empty())) {
        fields.complain("arrays", "at least one array, such as { name = \"a1\", data_ips = [\"10.1.1.1\"] }");
    }
    fields.finish();
    scenario.groups.push_back(std::move(group));
}

void read_group_scoped_target(Problems& problems, Names& names, const TomlValue& table, Scenario& scenario) {
    Fields fields(problems, table, "group_scoped_target");
    NameReader reader(problems, names);
    GroupScopedTargetEntry target;
    target.name = read_new_name(fields, "name", EUI_CAPACITY);
    target.spec.group = reader.group(fields, "group");
    target.spec.iqn = fields.text("iqn").value_or("iqn.2012-07.com.ostrel:" + target.name);
    target.spec.active_arrays = reader.array_list(fields, "active_arrays", target.spec.group);
    target.spec.adapters = reader.adapter_list(fields, "adapters");
    target.sessions =
        static_cast<int>(fields.integer("sessions", 0, MOST_SESSIONS_PER_TARGET).value_or(USUAL_SESSIONS));
    fields.finish();
    if (target.name.empty()) {
        return;
    }
    if (!names.group_scoped_targets.try_emplace(target.name, target.spec.group).second) {
        fields.complain("name", "a name that no other group-scoped target has");
        return;
    }
    take_iqn(problems, names, fields, target.spec.iqn, target.name, "");
    scenario.group_scoped_targets.push_back(std::move(target));
    if (scenario.group_scoped_targets.size() == MOST_GROUP_SCOPED_TARGETS + 1) {
        fields.complain("name", fmt::format("at most {} group-scoped targets", MOST_GROUP_SCOPED_TARGETS));
    }
}

void read_static_target(Problems& problems, Names& names, const TomlValue& table, Scenario& scenario) {
    Fields fields(problems, table, "static_target");
    NameReader reader(problems, names);
    ScenarioStaticTarget entry;
    entry.target = reader.volume(fields, "target");
    entry.spec.adapter = reader.adapter(fields, "adapter");
    entry.spec.portal_ip = fields.required_text("portal_ip", "an IPv4 address");
    if (!entry.spec.portal_ip.empty() && !is_ipv4(entry.spec.portal_ip)) {
        fields.complain("portal_ip", "an IPv4 address");
    }
    entry.spec.port = static_cast<std::uint16_t>(fields.integer("port", 1, 65535).value_or(3260));
    entry.spec.chap = fields.flag("chap").value_or(false);
    entry.spec.by_host_name = fields.flag("by_host_name").value_or(false);
    fields.finish();
    scenario.static_targets.push_back(std::move(entry));
}

void read_config(Problems& problems, Fields& document, Scenario& scenario) {
    if (const auto text = document.text("config_file")) {
        check_logs_paths(document, "config_file", *text);
        scenario.config_text = *text;
    }
    if (const TomlValue* table = document.table("config")) {
        if (scenario.config_text) {
            document.complain("config", "either config_file or [config], not both");
        }
        scenario.config_text = config_file_text(read_config_changes(problems, *table, "config"));
    }
}

void read_site(Problems& problems, Names& names, Fields& document, Scenario& scenario) {
    if (const TomlValue* host = document.table("host")) {
        read_host(problems, *host, scenario);
    }
    for (const TomlValue* adapter : document.tables("adapter")) {
        read_adapter(problems, names, *adapter, scenario);
    }
    if (document.find("adapter") == nullptr) {
        document.complain_missing("adapter", "at least one [[adapter]]");
    } else if (scenario.adapters.size() > MOST_ADAPTERS) {
        document.complain("adapter", fmt::format("at most {} adapters", MOST_ADAPTERS));
    }
    for (const TomlValue* group : document.tables("group")) {
        read_group(problems, names, *group, scenario);
    }
    for (const TomlValue* target : document.tables("group_scoped_target")) {
        read_group_scoped_target(problems, names, *target, scenario);
    }
    for (const TomlValue* volumes : document.tables("volumes")) {
        auto entries = read_volumes(problems, names, *volumes, "volumes");
        std::move(entries.begin(), entries.end(), std::back_inserter(scenario.volumes));
    }
}

}  // namespace

std::vector<VolumeEntry> read_volumes(Problems& problems, Names& names, const TomlValue& table,
                                      const std::string& path) {
    Fields fields(problems, table, path);
    NameReader reader(problems, names);
    VolumeEntry volume;
    const std::string pattern = read_new_name(fields, "name", EUI_CAPACITY);
    const auto count = fields.integer("count", 1, MOST_VOLUMES).value_or(1);
    const TomlValue* const count_given = fields.find("count");
    const int count_line = count_given != nullptr ? count_given->line : table.line;
    if (count_line < 0) {
        names.overridden_count = count_line;
    }
    const auto first = fields.integer("first", 0, 99999).value_or(1);
    volume.spec.group = reader.group(fields, "group");
    volume.spec.arrays = reader.array_list(fields, "arrays", volume.spec.group);
    volume.spec.adapters = reader.adapter_list(fields, "adapters");
    if (fields.find("behind") != nullptr) {
        volume.spec.group_scoped_target = fields.required_text("behind", "the name of a group-scoped target");
        const auto target = names.group_scoped_targets.find(volume.spec.group_scoped_target);
        if (target == names.group_scoped_targets.end()) {
            fields.complain("behind", "the name of a group-scoped target");
        } else if (target->second != volume.spec.group) {
            fields.complain("behind", fmt::format("a group-scoped target of group {}", volume.spec.group));
        }
    }
    volume.spec.protocol_endpoint = fields.flag("protocol_endpoint").value_or(false);
    volume.spec.supported = fields.flag("supported").value_or(true);
    const bool behind = !volume.spec.group_scoped_target.empty();
    volume.sessions =
        static_cast<int>(fields.integer("sessions", 0, MOST_SESSIONS_PER_TARGET).value_or(USUAL_SESSIONS));
    if (behind && fields.find("sessions") != nullptr) {
        fields.complain("sessions", "no sessions of its own for a volume behind a group-scoped target");
    }
    if (const auto iqn = fields.text("iqn")) {
        volume.spec.iqn = *iqn;
        if (count > 1 || behind) {
            fields.complain("iqn", "no iqn for several volumes or for one behind a group-scoped target");
        } else {
            take_iqn(problems, names, fields, *iqn, pattern, volume.spec.group);
        }
    }
    fields.finish();

    std::vector<VolumeEntry> volumes;
    const std::size_t hash = pattern.find('#');
    const std::size_t width = hash == std::string::npos ? 0
                              : pattern.find_first_not_of('#', hash) == std::string::npos
                                  ? pattern.size() - hash
                                  : pattern.find_first_not_of('#', hash) - hash;
    if (pattern.empty()) {
        return volumes;
    }
    if (count > 1 && width == 0) {
        fields.complain("name", "a name with # for the number when count is more than 1, such as \"db-##\"");
        return volumes;
    }
    for (std::int64_t number = first; number < first + count; ++number) {
        volume.spec.eui = pattern;
        if (width > 0) {
            volume.spec.eui.replace(hash, width, fmt::format("{:0{}}", number, width));
        }
        if (volume.spec.eui.size() > EUI_CAPACITY) {
            fields.complain("name", fmt::format("names of at most {} characters", EUI_CAPACITY));
            return volumes;
        }
        if (names.group_scoped_targets.contains(volume.spec.eui)) {
            fields.complain("name", "a name that no group-scoped target has");
            return volumes;
        }
        if (const auto [place, added] = names.volumes.try_emplace(volume.spec.eui, table.line); !added) {
            problems.add(count_line, path + ".name", "names that no other volume has",
                         fmt::format("{}, {}", volume.spec.eui, taken_text(place->second)));
            return volumes;
        }
        if (names.volumes.size() == MOST_VOLUMES + 1) {
            problems.add(names.overridden_count.value_or(count_line), path + ".count",
                         fmt::format("at most {} volumes in all", MOST_VOLUMES), "more of them");
        }
        volumes.push_back(volume);
    }
    return volumes;
}

simhost::ArraySpec read_array(Problems& problems, Names& names, const TomlValue& table, const std::string& path,
                              const std::string& group) {
    Fields fields(problems, table, path);
    simhost::ArraySpec array;
    array.name = read_new_name(fields, "name", EUI_CAPACITY);
    array.data_ips = NameReader(problems, names).new_addresses(fields, "data_ips");
    fields.finish();
    const auto place = names.groups.find(group);
    if (place != names.groups.end() && !array.name.empty() && !place->second.insert(array.name).second) {
        fields.complain("name", "a name that no other array of the group has");
    }
    return array;
}

SessionEntry read_session(Problems& problems, Names& names, const TomlValue& table, const std::string& path) {
    Fields fields(problems, table, path);
    NameReader reader(problems, names);
    SessionEntry session;
    session.target = reader.target(fields, "target");
    if (fields.find("adapter") != nullptr) {
        session.spec.adapter = reader.adapter(fields, "adapter");
    }
    if (fields.find("local_ip") != nullptr) {
        session.spec.local_ip = reader.nic(fields, "local_ip");
    }
    if (const auto remote = fields.text("remote_ip")) {
        session.spec.current_remote_ip = *remote;
        if (!is_ipv4(*remote)) {
            fields.complain("remote_ip", "an IPv4 address");
        }
    }
    session.spec.made_dynamic = fields.choice("kind", {"dynamic", "static"}).value_or(0) == 0;
    session.spec.state = read_session_state(fields, "state").value_or(simhost::LOGGED_IN);
    session.count = static_cast<int>(fields.integer("count", 1, MOST_SESSIONS_PER_TARGET).value_or(1));
    fields.finish();
    return session;
}

ConfigChanges read_config_changes(Problems& problems, const TomlValue& table, const std::string& path) {
    Fields fields(problems, table, path);
    ConfigChanges changes;
    for (const ConfigKey& key : config_keys) {
        if (key.number == nullptr) {
            if (const auto logs_path = fields.text(key.name)) {
                check_logs_paths(fields, key.name, fmt::format("{}={}\n", key.name, *logs_path));
                changes.emplace_back(key.name, *logs_path);
            }
        } else if (const auto number = fields.integer(key.name, -2147483648LL, 4294967295LL)) {
            changes.emplace_back(key.name, fmt::format("{}", *number));
        }
    }
    fields.finish();
    return changes;
}

void check_logs_paths(Fields& fields, std::string_view key, std::string_view text) {
    for (const std::string& path : logs_paths_of(text)) {
        if (!is_simulated_logs_path(path)) {
            fields.complain(key, fmt::format("an ostrel_logs_path within {}", DEFAULT_LOG_DIR));
        }
    }
}

simhost::GroupMode read_mode(Fields& fields, std::string_view key) {
    return fields.choice(key, {"dynamic", "static"}).value_or(0) == 0 ? simhost::GroupMode::dynamic_discovery
                                                                      : simhost::GroupMode::static_discovery;
}

std::optional<std::uint32_t> read_session_state(Fields& fields, std::string_view key) {
    const auto choice = fields.choice(key, SESSION_STATES);
    return choice ? std::optional(static_cast<std::uint32_t>(*choice)) : std::nullopt;
}

std::string_view session_state_word(std::uint32_t state) {
    return state < std::size(SESSION_STATES) ? SESSION_STATES[state] : "INVALID_STATE";
}

ScenarioOrProblems read_scenario(std::string_view text, const std::vector<std::string>& overrides) {
    ScenarioOrProblems result;
    SyntaxError error;
    auto document = parse_document(text, error);
    if (!document) {
        result.problems.push_back({error.line, "syntax", "TOML", error.message});
        return result;
    }
    Problems problems;
    Scenario& scenario = result.scenario;
    scenario.set_by_options = apply_overrides(problems, *document, overrides);
    Fields fields(problems, *document, "");
    scenario.names = std::make_shared<Names>();
    Names& names = *scenario.names;
    scenario.title = fields.text("title").value_or("");
    scenario.run_for_seconds = fields.seconds("run_for", 1).value_or(scenario.run_for_seconds);
    for (const Word& hazard : fields.texts("allow")) {
        if (!simhost::is_hazard(hazard.text)) {
            problems.add(hazard.line, "allow", fmt::format("one of \"{}\"", fmt::join(simhost::HAZARDS, "\", \"")),
                         fmt::format("\"{}\"", hazard.text));
        }
        scenario.allowed_hazards.push_back(hazard.text);
    }
    read_config(problems, fields, scenario);
    read_site(problems, names, fields, scenario);

    const auto events = fields.tables("event");
    EventReader event_reader(problems, names);
    event_reader.collect(events);
    for (const TomlValue* entry : fields.tables("static_target")) {
        read_static_target(problems, names, *entry, scenario);
    }
    for (const TomlValue* session : fields.tables("session")) {
        scenario.sessions.push_back(read_session(problems, names, *session, "session"));
    }
    for (const TomlValue* event : events) {
        if (auto action = event_reader.read(*event)) {
            scenario.actions.push_back(std::move(*action));
        }
    }
    std::stable_sort(scenario.actions.begin(), scenario.actions.end(),
                     [](const TimedAction& a, const TimedAction& b) { return a.at_seconds < b.at_seconds; });
    fields.finish();

    result.problems = problems.take();
    for (Problem& problem : result.problems) {
        problem.option = option_of(problem.line, overrides);
    }
    std::stable_sort(result.problems.begin(), result.problems.end(),
                     [](const Problem& a, const Problem& b) { return a.line < b.line; });
    return result;
}

std::optional<TimedAction> read_event(std::string_view line, const Scenario& scenario, std::vector<Problem>& problems) {
    SyntaxError error;
    auto document = parse_document(line, error);
    if (!document) {
        problems.push_back({error.line, "syntax", "TOML", error.message});
        return std::nullopt;
    }
    if (document->items.empty()) {
        return std::nullopt;
    }
    Problems found;
    if (const TomlValue* const at = document->member("at")) {
        found.add(at->line, "event.at", "no time, for it happens at once", describe(*at));
    } else {
        TomlValue now;
        now.kind = TomlValue::Kind::integer;
        now.key = "at";
        document->items.push_back(now);
    }
    EventReader reader(found, *scenario.names);
    reader.collect({&*document});
    auto event = reader.read(*document);
    problems = found.take();
    return problems.empty() ? event : std::nullopt;
}

std::string problems_text(const std::vector<Problem>& problems, std::string_view file, std::size_t most) {
    std::string text;
    for (std::size_t i = 0; i < problems.size() && i < most; ++i) {
        const Problem& problem = problems[i];
        const std::string place = problem.option.empty() ? fmt::format("{}:{}", file, problem.line)
                                                         : fmt::format("ostrel-simhost: {}", problem.option);
        text += fmt::format("{}: {}: expected {}, found {}\n", place, problem.key, problem.expected, problem.found);
    }
    if (problems.size() > most) {
        text += fmt::format("{}: {} more\n", file, problems.size() - most);
    }
    return text;
}

}  // namespace ostrel_simhost
