#include "fields.h"

#include <fmt/format.h>

#include <algorithm>

#include "shared/duration.h"

namespace ostrel_simhost {

void Problems::add(int line, std::string key, std::string expected, std::string found) {
    problems_.push_back({line, std::move(key), std::move(expected), std::move(found)});
}

Fields::Fields(Problems& problems, const TomlValue& table, std::string path)
    : problems_(problems), table_(table), path_(std::move(path)) {}

std::string Fields::key_name(std::string_view key) const {
    return path_.empty() ? std::string(key) : fmt::format("{}.{}", path_, key);
}

const TomlValue* Fields::find(std::string_view key) {
    if (std::find(known_.begin(), known_.end(), key) == known_.end()) {
        known_.emplace_back(key);
    }
    return table_.member(key);
}

void Fields::complain(std::string_view key, std::string expected) {
    if (const TomlValue* value = table_.member(key)) {
        problems_.add(value->line, key_name(key), std::move(expected), describe(*value));
    } else {
        complain_missing(key, expected);
    }
}

void Fields::complain_missing(std::string_view key, std::string_view expected) {
    problems_.add(table_.line, key_name(key), std::string(expected), "nothing");
}

std::optional<std::string> Fields::text(std::string_view key) {
    const TomlValue* value = find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    if (value->kind != TomlValue::Kind::text) {
        complain(key, "a text in quotes");
        return std::nullopt;
    }
    if (value->text.find('\0') != std::string::npos) {
        complain(key, "a text without NUL");
        return std::nullopt;
    }
    return value->text;
}

std::string Fields::required_text(std::string_view key, std::string_view expected) {
    const TomlValue* value = find(key);
    if (value == nullptr) {
        complain_missing(key, expected);
        return {};
    }
    if (value->kind != TomlValue::Kind::text || value->text.empty() || value->text.find('\0') != std::string::npos) {
        complain(key, std::string(expected));
        return {};
    }
    return value->text;
}

std::optional<std::int64_t> Fields::integer(std::string_view key, std::int64_t least, std::int64_t most) {
    const TomlValue* value = find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    if (value->kind != TomlValue::Kind::integer || value->integer < least || value->integer > most) {
        complain(key, fmt::format("a whole number from {} to {}", least, most));
        return std::nullopt;
    }
    return value->integer;
}

std::optional<double> Fields::seconds(std::string_view key, double least) {
    const TomlValue* value = find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    std::optional<double> result;
    if (value->kind == TomlValue::Kind::integer) {
        result = static_cast<double>(value->integer);
    } else if (value->kind == TomlValue::Kind::real) {
        result = value->real;
    } else if (value->kind == TomlValue::Kind::text) {
        result = shared::parse_duration(value->text);
    }
    if (!result || !(*result >= least && *result <= shared::LONGEST_DURATION_SECONDS)) {
        complain(key, least > 0    ? "a time of at least 1 second, such as 90 (seconds), \"90s\", \"10m\" or \"1h30m\""
                      : least == 0 ? "a time such as 90 (seconds), \"90s\", \"10m\" or \"1h30m\""
                                   : "a number of seconds, or -1 for never");
        return std::nullopt;
    }
    return result;
}

std::optional<bool> Fields::flag(std::string_view key) {
    const TomlValue* value = find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    if (value->kind != TomlValue::Kind::flag) {
        complain(key, "true or false");
        return std::nullopt;
    }
    return value->flag;
}

std::vector<Word> Fields::texts(std::string_view key) {
    std::vector<Word> words;
    const TomlValue* value = find(key);
    if (value == nullptr) {
        return words;
    }
    if (value->kind != TomlValue::Kind::list) {
        complain(key, "a list of texts in brackets");
        return words;
    }
    for (const TomlValue& item : value->items) {
        if (item.kind != TomlValue::Kind::text || item.text.find('\0') != std::string::npos) {
            problems_.add(item.line, key_name(key), "a text in quotes", describe(item));
        } else {
            words.push_back({item.text, item.line});
        }
    }
    return words;
}

std::vector<const TomlValue*> Fields::tables(std::string_view key) {
    std::vector<const TomlValue*> result;
    const TomlValue* value = find(key);
    if (value == nullptr) {
        return result;
    }
    if (value->kind != TomlValue::Kind::list) {
        complain(key, path_.empty() ? fmt::format("[[{}]] in double brackets", key) : "a list of tables");
        return result;
    }
    for (const TomlValue& item : value->items) {
        if (item.kind != TomlValue::Kind::table) {
            problems_.add(item.line, key_name(key), "a table", describe(item));
        } else {
            result.push_back(&item);
        }
    }
    return result;
}

const TomlValue* Fields::table(std::string_view key) {
    const TomlValue* value = find(key);
    if (value != nullptr && value->kind != TomlValue::Kind::table) {
        complain(key, path_.empty() ? fmt::format("a table, [{}]", key) : "a table { ... }");
        return nullptr;
    }
    return value;
}

std::optional<std::size_t> Fields::choice(std::string_view key, std::span<const std::string_view> words) {
    const TomlValue* value = find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    if (value->kind == TomlValue::Kind::text) {
        const auto found = std::find(words.begin(), words.end(), value->text);
        if (found != words.end()) {
            return static_cast<std::size_t>(found - words.begin());
        }
    }
    complain(key, fmt::format("\"{}\"", fmt::join(words, "\" or \"")));
    return std::nullopt;
}

void Fields::finish() {
    for (const TomlValue& value : table_.items) {
        if (std::find(known_.begin(), known_.end(), value.key) == known_.end()) {
            problems_.add(value.line, key_name(value.key), fmt::format("one of the keys {}", fmt::join(known_, ", ")),
                          fmt::format("the key {}", value.key));
        }
    }
}

}  // namespace ostrel_simhost
