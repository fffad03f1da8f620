#include "overrides.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "config_file.h"
#include "events.h"
#include "scenario_parts.h"
#include "shared/config_file.h"
#include "shared/nearest.h"

namespace ostrel_simhost {

namespace {

constexpr std::array<std::string_view, 3> HOST_KEYS = {"login_seconds", "claim_seconds", "discovery_seconds"};
constexpr std::string_view SESSIONS_SUFFIX = ".sessions";

template <class List>
bool contains(const List& list, std::string_view word) {
    return std::find(list.begin(), list.end(), word) != list.end();
}

bool is_config_key(std::string_view key) {
    return std::any_of(std::begin(config_keys), std::end(config_keys),
                       [key](const ConfigKey& each) { return each.name == key; });
}

bool is_event(std::string_view key) {
    const auto kinds = event_kinds();
    return std::any_of(kinds.begin(), kinds.end(), [key](const EventKind& kind) { return kind.key == key; });
}

void set_line(TomlValue& value, int line) {
    value.line = line;
    for (TomlValue& item : value.items) {
        set_line(item, line);
    }
}

template <class Number>
bool is_whole(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

TomlValue text_value(const std::string& key, const std::string& text, int line) {
    TomlValue value;
    value.kind = TomlValue::Kind::text;
    value.key = key;
    value.text = text;
    value.line = line;
    return value;
}

// As the value would stand in the text; what is no number stays a text, which the reader complains about.
TomlValue value_of(const std::string& key, const std::string& text, int line) {
    TomlValue value = text_value(key, text, line);
    if (key != LOGS_PATH_KEY && is_whole(text, value.integer)) {
        value.kind = TomlValue::Kind::integer;
    } else if (contains(HOST_KEYS, key) && is_whole(text, value.real)) {
        value.kind = TomlValue::Kind::real;
    }
    return value;
}

TomlValue* member(TomlValue& table, std::string_view name) {
    return const_cast<TomlValue*>(table.member(name));
}

void put(TomlValue& table, TomlValue value) {
    if (TomlValue* const present = member(table, value.key)) {
        *present = std::move(value);
    } else {
        table.items.push_back(std::move(value));
    }
}

// The table of the document, made when it isn't there. Null: something else has its name, which the reader tells.
TomlValue* table_of(TomlValue& document, const std::string& name, int line) {
    if (member(document, name) == nullptr) {
        TomlValue table;
        table.key = name;
        table.line = line;
        document.items.push_back(std::move(table));
    }
    TomlValue* const found = member(document, name);
    return found->kind == TomlValue::Kind::table ? found : nullptr;
}

// The entries of a [[list]] that have this name.
std::vector<TomlValue*> entries_named(TomlValue& document, std::string_view list, std::string_view name) {
    std::vector<TomlValue*> found;
    if (TomlValue* const entries = member(document, list)) {
        for (TomlValue& entry : entries->items) {
            const TomlValue* const its_name = entry.member("name");
            if (its_name != nullptr && its_name->kind == TomlValue::Kind::text && its_name->text == name) {
                found.push_back(&entry);
            }
        }
    }
    return found;
}

std::vector<std::string> names_in(const TomlValue& document, std::string_view list) {
    std::vector<std::string> names;
    if (const TomlValue* const entries = document.member(list)) {
        for (const TomlValue& entry : entries->items) {
            if (const TomlValue* const name = entry.member("name");
                name != nullptr && name->kind == TomlValue::Kind::text) {
                names.push_back(name->text);
            }
        }
    }
    return names;
}

// All that an override may begin with.
std::vector<std::string> keys_of(const TomlValue& document) {
    std::vector<std::string> keys;
    std::transform(std::begin(config_keys), std::end(config_keys), std::back_inserter(keys),
                   [](const ConfigKey& key) { return std::string(key.name); });
    keys.insert(keys.end(), HOST_KEYS.begin(), HOST_KEYS.end());
    for (const EventKind& kind : event_kinds()) {
        if (!contains(HOST_KEYS, kind.key)) {
            keys.emplace_back(kind.key);
        }
    }
    const std::vector<std::string> volumes = names_in(document, "volumes");
    std::copy_if(volumes.begin(), volumes.end(), std::back_inserter(keys),
                 [](const std::string& name) { return name.find('#') != std::string::npos; });
    for (const std::string_view list : {"volumes", "group_scoped_target"}) {
        for (const std::string& name : names_in(document, list)) {
            keys.push_back(name + std::string(SESSIONS_SUFFIX));
        }
    }
    return keys;
}

class Overrider {
public:
    Overrider(Problems& problems, TomlValue& document, const std::string& option, int line)
        : problems_(problems), document_(document), line_(line) {
        const std::size_t split = option.find('=');
        key_ = shared::trimmed(std::string_view(option).substr(0, split));
        text_ = split == std::string::npos ? "" : shared::trimmed(std::string_view(option).substr(split + 1));
        whole_ = split != std::string::npos && !key_.empty();
    }

    void apply(std::map<std::string, std::string>& set) {
        if (!whole_) {
            problems_.add(line_, "option", "KEY=VALUE, KEY being " + a_key(), key_.empty() ? "no key" : "no =");
        } else if (is_config_key(key_)) {
            set_config();
            set[key_] = text_;
        } else if (contains(HOST_KEYS, key_)) {
            set[key_] = text_;
            if (TomlValue* const host = table_of(document_, "host", line_)) {
                put(*host, value_of(key_, text_, line_));
            }
        } else if (is_event(key_)) {
            add_event();
        } else if (!set_sessions() && !set_count()) {
            problems_.add(line_, "key", a_key(), fmt::format("\"{}\"", key_));
        }
    }

private:
    void set_config() {
        const TomlValue value = value_of(key_, text_, line_);
        TomlValue* const file = member(document_, "config_file");
        if (file == nullptr) {
            if (TomlValue* const config = table_of(document_, "config", line_)) {
                put(*config, value);
            }
            return;
        }
        // The text of a file isn't judged key by key when it is read, so this one is judged here.
        TomlValue table;
        table.items.push_back(value);
        for (const auto& [key, text] : read_config_changes(problems_, table, "config_file")) {
            file->text = with_config_value(file->text, key, text);
        }
    }

    // An event at the start. A text needs no quotes.
    void add_event() {
        SyntaxError error;
        auto event = parse_document(fmt::format("{} = {}", key_, text_), error);
        if (!event && text_.find_first_of("{[\"'") == 0) {
            problems_.add(line_, key_, "TOML", error.message);
            return;
        }
        if (!event) {
            event.emplace().items.push_back(text_value(key_, text_, line_));
        }
        if (event->member("at") == nullptr) {
            event->items.push_back(value_of("at", "0", line_));
        }
        set_line(*event, line_);
        if (member(document_, "event") == nullptr) {
            TomlValue& events = document_.items.emplace_back();
            events.kind = TomlValue::Kind::list;
            events.key = "event";
        }
        member(document_, "event")->items.push_back(std::move(*event));
    }

    bool set_sessions() {
        if (!key_.ends_with(SESSIONS_SUFFIX)) {
            return false;
        }
        const std::string name = key_.substr(0, key_.size() - SESSIONS_SUFFIX.size());
        auto entries = entries_named(document_, "volumes", name);
        const auto targets = entries_named(document_, "group_scoped_target", name);
        entries.insert(entries.end(), targets.begin(), targets.end());
        return put_into(entries, "sessions");
    }

    bool set_count() {
        const auto entries = entries_named(document_, "volumes", key_);
        if (!entries.empty() && key_.find('#') == std::string::npos) {
            problems_.add(line_, "key", "a name of volumes with # for the number, which alone can be several",
                          fmt::format("\"{}\"", key_));
            return true;
        }
        return put_into(entries, "count");
    }

    // False: there is no entry.
    bool put_into(const std::vector<TomlValue*>& entries, const std::string& key) {
        if (entries.size() > 1) {
            problems_.add(line_, "key", "a name that one entry has", fmt::format("{} entries", entries.size()));
        } else if (entries.size() == 1) {
            put(*entries.front(), value_of(key, text_, line_));
        }
        return !entries.empty();
    }

    // What a mistyped key may be meant for, and where all are told.
    std::string a_key() const {
        constexpr std::size_t most = 3;
        const std::vector<std::string> keys = keys_of(document_);
        auto near = shared::nearest_names(key_, std::vector<std::string_view>(keys.begin(), keys.end()));
        near.resize(std::min(near.size(), most));
        return fmt::format("a key that ostrel-simhost --keys SCENARIO lists{}",
                           near.empty() ? "" : fmt::format(", such as {}", fmt::join(near, ", ")));
    }

    Problems& problems_;
    TomlValue& document_;
    const int line_;
    std::string key_, text_;
    bool whole_ = false;
};

}  // namespace

std::map<std::string, std::string> apply_overrides(Problems& problems, TomlValue& document,
                                                   const std::vector<std::string>& overrides) {
    std::map<std::string, std::string> set;
    for (std::size_t i = 0; i < overrides.size(); ++i) {
        Overrider(problems, document, overrides[i], option_line(i)).apply(set);
    }
    return set;
}

std::vector<std::string> override_keys(std::string_view text) {
    SyntaxError error;
    return keys_of(parse_document(text, error).value_or(TomlValue{}));
}

std::string option_of(int line, const std::vector<std::string>& overrides) {
    const auto index = static_cast<std::size_t>(-1 - line);
    return line < 0 && index < overrides.size() ? "--set " + overrides[index] : "";
}

}  // namespace ostrel_simhost
