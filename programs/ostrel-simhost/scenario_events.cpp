#include <fmt/format.h>

#include <algorithm>

#include "events.h"
#include "scenario_parts.h"

namespace program {

namespace {

bool is_action(const Value& item) {
    return item.key != "at" && item.key != "note";
}

}  // namespace

void EventReader::collect(const std::vector<const Value*>& events) {
    for (const Value* event : events) {
        Fields fields(problems_, *event, "event");
        for (const EventKind& kind : event_kinds()) {
            const Value* const value = event->member(kind.key);
            if (kind.brings_in && value != nullptr && value->kind == Value::Kind::table) {
                brought_in_.emplace(value, kind.read({problems_, names_, fields, kind.key, *value}));
            }
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

    // All are asked, so that every key of an action is a known one.
    std::optional<Action> action;
    for (const EventKind& kind : event_kinds()) {
        const Value* const value = fields.find(kind.key);
        if (value != nullptr && !kind.table.empty() && value->kind != Value::Kind::table) {
            fields.complain(kind.key, std::string(kind.table));
        } else if (value != nullptr) {
            action = kind.brings_in ? brought_in_.at(value) : kind.read({problems_, names_, fields, kind.key, *value});
        }
    }
    fields.finish();
    const auto actions = std::count_if(table.items.begin(), table.items.end(), is_action);
    if (actions != 1) {
        problems_.add(table.line, "event", "one action", actions == 0 ? "none" : fmt::format("{}", actions));
    }
    if (!at || !action || actions != 1) {
        return std::nullopt;
    }
    timed.action = std::move(*action);
    timed.by_option = table.line < 0;
    return timed;
}

}  // namespace program
