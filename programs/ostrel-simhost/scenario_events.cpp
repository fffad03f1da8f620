#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "scenario_parts.h"

namespace program {

namespace {

// Every operation of the host that can be made to fail.
constexpr std::array FAULT_OPERATIONS = std::to_array<std::string_view>({"IMA_GetLhbaOidList",
                                                                         "IMA_GetPhbaOidList",
                                                                         "IMA_GetTargetOidList",
                                                                         "IMA_GetTargetProperties",
                                                                         "IMA_GetSessionOidList",
                                                                         "IMA_GetSessionProperties",
                                                                         "IMA_GetConnectionOidList",
                                                                         "IMA_GetConnectionProperties",
                                                                         "IMA_RemoveStaticDiscoveryTarget",
                                                                         "IMA_FreeMemory",
                                                                         "IMA_VMW_GetLhbaOidList",
                                                                         "IMA_VMW_GetLhbaProperties",
                                                                         "IMA_VMW_GetConnectionStatus",
                                                                         "IMA_VMW_AddSession",
                                                                         "IMA_VMW_RemoveSession",
                                                                         "IMA_VMW_Rediscover",
                                                                         "IMA_VMW_GetDiscoveryStatus",
                                                                         "IMA_VMW_GetNicOidList",
                                                                         "IMA_VMW_GetStaticDiscoveryTargetOidList",
                                                                         "IMA_VMW_GetStaticDiscoveryTargetProperties",
                                                                         "IMA_VMW_GetInitiatorAuthParms",
                                                                         "psp.open",
                                                                         "psp.0",
                                                                         "psp.1",
                                                                         "psp.3",
                                                                         "psp.4",
                                                                         "psp.5",
                                                                         "psp.6",
                                                                         "psp.7",
                                                                         "open",
                                                                         "fopen",
                                                                         "read",
                                                                         "write",
                                                                         "close",
                                                                         "stat",
                                                                         "access",
                                                                         "mkdir",
                                                                         "unlink",
                                                                         "rename",
                                                                         "ftruncate",
                                                                         "new",
                                                                         "pthread_create",
                                                                         "pthread_join",
                                                                         "pthread_kill",
                                                                         "pthread_mutex_init",
                                                                         "pthread_mutex_destroy",
                                                                         "sigaction"});

struct ErrorName {
    std::string_view name;
    int number;
};
constexpr std::array<ErrorName, 14> ERROR_NAMES = {{{"EPERM", EPERM},
                                                    {"ENOENT", ENOENT},
                                                    {"EINTR", EINTR},
                                                    {"EIO", EIO},
                                                    {"ENXIO", ENXIO},
                                                    {"EAGAIN", EAGAIN},
                                                    {"ENOMEM", ENOMEM},
                                                    {"EACCES", EACCES},
                                                    {"EBUSY", EBUSY},
                                                    {"ENODEV", ENODEV},
                                                    {"EINVAL", EINVAL},
                                                    {"EMFILE", EMFILE},
                                                    {"ENOSPC", ENOSPC},
                                                    {"EROFS", EROFS}}};

int read_errno(Fields& fields) {
    const Value* value = fields.find("errno");
    if (value == nullptr) {
        return 0;
    }
    constexpr std::int64_t most = 4095;
    if (value->kind == Value::Kind::integer && value->integer >= 1 && value->integer <= most) {
        return static_cast<int>(value->integer);
    }
    std::string all;
    for (const ErrorName& error : ERROR_NAMES) {
        if (value->kind == Value::Kind::text && value->text == error.name) {
            return error.number;
        }
        all += fmt::format("{}, ", error.name);
    }
    fields.complain("errno", fmt::format("{}or a number from 1 to {}", all, most));
    return 0;
}

simhost::Fault read_fault(Problems& problems, const Value& table) {
    Fields fields(problems, table, "event.fault");
    simhost::Fault fault;
    fault.operation = fields.required_text("operation", "the name of an operation of the host");
    if (!fault.operation.empty() &&
        std::find(FAULT_OPERATIONS.begin(), FAULT_OPERATIONS.end(), fault.operation) == FAULT_OPERATIONS.end()) {
        fields.complain("operation", fmt::format("one of {}", fmt::join(FAULT_OPERATIONS, ", ")));
    }
    fault.nth = static_cast<std::uint64_t>(fields.integer("nth", 1, 1000000000).value_or(1));
    fault.persistent = fields.flag("persistent").value_or(false);
    const auto status = fields.integer("status", 1, 0xffffffffLL);
    fault.status = static_cast<std::uint32_t>(status.value_or(fault.status));
    fault.error = read_errno(fields);
    fault.short_by = static_cast<std::size_t>(fields.integer("short_by", 0, 1 << 20).value_or(0));
    fault.path_contains = fields.text("path_contains").value_or("");
    fields.finish();
    const bool is_ima = fault.operation.starts_with("IMA_");
    if (fault.error == 0 && !is_ima && !status && fault.short_by == 0) {
        fault.error = EIO;  // what a device or file answers when nothing else is asked for
    }
    return fault;
}

}  // namespace

void EventReader::collect(const std::vector<const Value*>& events) {
    for (const Value* event : events) {
        if (const Value* table = event->member("add_array"); table != nullptr && table->kind == Value::Kind::table) {
            Fields fields(problems_, *table, "event.add_array");
            AddArray added;
            added.group = NameReader(problems_, names_).group(fields, "group");
            Value array = *table;
            std::erase_if(array.items, [](const Value& item) { return item.key == "group"; });
            added.array = read_array(problems_, names_, array, "event.add_array", added.group);
            added_arrays_.emplace(event, std::move(added));
        }
        if (const Value* table = event->member("add_volumes"); table != nullptr && table->kind == Value::Kind::table) {
            added_volumes_.emplace(event, AddVolumes{read_volumes(problems_, names_, *table, "event.add_volumes")});
        }
    }
}

std::optional<TimedAction> EventReader::read(const Value& table) {
    Fields fields(problems_, table, "event");
    TimedAction timed;
    const auto at = fields.seconds("at");
    if (table.member("at") == nullptr) {
        fields.complain_missing("at", "a time such as \"90s\" or \"10m\"");
    }
    timed.at_seconds = at.value_or(0);
    timed.note = fields.text("note").value_or("");

    // What brings something in was read before.
    const Value* added_array = fields.find("add_array");
    const Value* added_volumes = fields.find("add_volumes");
    const std::size_t known_before = static_cast<std::size_t>(added_array != nullptr) + (added_volumes != nullptr);
    std::optional<Action> action;
    if (added_array != nullptr) {
        if (const auto place = added_arrays_.find(&table); place != added_arrays_.end()) {
            action = place->second;
        } else {
            fields.complain("add_array", "a table { group, name, data_ips }");
        }
    }
    if (added_volumes != nullptr) {
        if (const auto place = added_volumes_.find(&table); place != added_volumes_.end()) {
            action = place->second;
        } else {
            fields.complain("add_volumes", "a table { name, group, ... }");
        }
    }
    if (auto other = read_action(fields)) {
        action = std::move(other);
    }
    fields.finish();

    std::size_t keys = known_before;
    for (const Value& item : table.items) {
        const bool brings_in = item.key == "add_array" || item.key == "add_volumes";
        keys += !brings_in && item.key != "at" && item.key != "note" ? 1U : 0U;
    }
    if (keys != 1) {
        problems_.add(table.line, "event", "one action", keys == 0 ? "none" : fmt::format("{}", keys));
    }
    timed.action = std::move(action).value_or(ClearFaults{});
    return at && action && keys == 1 ? std::optional(std::move(timed)) : std::nullopt;
}

std::optional<Action> EventReader::read_action(Fields& fields) {
    // All are asked, so that every key of an action is a known one.
    std::optional<Action> result;
    for (auto read :
         {&EventReader::read_network_action, &EventReader::read_session_action, &EventReader::read_volume_action,
          &EventReader::read_config_action, &EventReader::read_fault_action}) {
        if (auto action = (this->*read)(fields)) {
            result = std::move(action);
        }
    }
    return result;
}

std::optional<Action> EventReader::read_network_action(Fields& fields) {
    NameReader reader(problems_, names_);
    std::optional<Action> action;
    if (fields.find("nic_down") != nullptr) {
        action = NicDown{reader.nic(fields, "nic_down")};
    }
    if (fields.find("nic_up") != nullptr) {
        action = NicUp{reader.nic(fields, "nic_up")};
    }
    if (fields.find("array_down") != nullptr) {
        auto [group, array] = reader.array(fields, "array_down");
        action = ArrayDown{std::move(group), std::move(array)};
    }
    if (fields.find("array_up") != nullptr) {
        auto [group, array] = reader.array(fields, "array_up");
        action = ArrayUp{std::move(group), std::move(array)};
    }
    if (const Value* table = fields.table("switch_mode")) {
        Fields inner(problems_, *table, "event.switch_mode");
        SwitchMode change;
        change.group = reader.group(inner, "group");
        change.mode = read_mode(inner, "mode");
        if (inner.find("mode") == nullptr) {
            inner.complain_missing("mode", "\"dynamic\" or \"static\"");
        }
        inner.finish();
        action = std::move(change);
    }
    if (const Value* table = fields.table("digests")) {
        Fields inner(problems_, *table, "event.digests");
        Digests digests;
        digests.adapter = reader.adapter(inner, "adapter");
        digests.on = inner.flag("on").value_or(true);
        inner.finish();
        action = std::move(digests);
    }
    if (const Value* table = fields.table("discovery_outcome")) {
        Fields inner(problems_, *table, "event.discovery_outcome");
        DiscoveryOutcome outcome;
        outcome.adapter = reader.adapter(inner, "adapter");
        outcome.status = static_cast<std::uint32_t>(inner.integer("status", 0, 0xffffffffLL).value_or(0));
        inner.finish();
        action = std::move(outcome);
    }
    return action;
}

std::optional<Action> EventReader::read_session_action(Fields& fields) {
    NameReader reader(problems_, names_);
    std::optional<Action> action;
    if (const Value* table = fields.table("drop_sessions")) {
        Fields inner(problems_, *table, "event.drop_sessions");
        DropSessions drop;
        drop.target = reader.target(inner, "target");
        drop.count = static_cast<int>(inner.integer("count", 1, MOST_SESSIONS_PER_TARGET).value_or(1));
        inner.finish();
        action = std::move(drop);
    }
    if (const Value* table = fields.table("set_state")) {
        Fields inner(problems_, *table, "event.set_state");
        SetState change;
        change.target = reader.target(inner, "target");
        if (inner.find("local_ip") != nullptr) {
            change.local_ip = reader.nic(inner, "local_ip");
        }
        change.state = read_session_state(inner, "state").value_or(simhost::LOGGED_IN);
        change.count = static_cast<int>(inner.integer("count", 1, MOST_SESSIONS_PER_TARGET).value_or(1));
        inner.finish();
        action = std::move(change);
    }
    if (const Value* table = fields.table("add_session")) {
        action = AddSession{read_session(problems_, names_, *table, "event.add_session")};
    }
    if (const auto failing = fields.flag("fail_logins")) {
        action = FailLogins{*failing};
    }
    if (const auto seconds = fields.seconds("login_seconds")) {
        action = LoginSeconds{*seconds};
    }
    return action;
}

std::optional<Action> EventReader::read_volume_action(Fields& fields) {
    if (fields.find("remove_volume") != nullptr) {
        return RemoveVolume{NameReader(problems_, names_).volume(fields, "remove_volume")};
    }
    return std::nullopt;
}

std::optional<Action> EventReader::read_config_action(Fields& fields) {
    std::optional<Action> action;
    if (const Value* table = fields.table("write_config")) {
        action = WriteConfig{read_config_changes(problems_, *table, "event.write_config")};
    }
    if (const auto line = fields.text("write_config_line")) {
        check_logs_paths(fields, "write_config_line", *line);
        action = WriteConfigLine{*line};
    }
    if (const auto text = fields.text("write_config_file")) {
        check_logs_paths(fields, "write_config_file", *text);
        action = WriteConfigFile{*text};
    }
    if (const auto remove = fields.flag("remove_config")) {
        if (!*remove) {
            fields.complain("remove_config", "true");
        }
        action = RemoveConfig{};
    }
    return action;
}

std::optional<Action> EventReader::read_fault_action(Fields& fields) {
    std::optional<Action> action;
    if (const Value* table = fields.table("fault")) {
        action = InjectFault{read_fault(problems_, *table)};
    }
    if (const auto clear = fields.flag("clear_faults")) {
        if (!*clear) {
            fields.complain("clear_faults", "true");
        }
        action = ClearFaults{};
    }
    return action;
}

}  // namespace program
