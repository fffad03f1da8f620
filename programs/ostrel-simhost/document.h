// A TOML text as a tree of values that know the line they stand on. The TOML library is seen by document.cpp
// alone.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ostrel_simhost {

struct TomlValue {
    enum class Kind { flag, integer, real, text, moment, list, table };

    Kind kind = Kind::table;
    int line = 1;
    bool flag = false;
    std::int64_t integer = 0;  // moment: seconds since the epoch
    double real = 0;
    std::string text;
    std::vector<TomlValue> items;  // of a list, or of a table in the order of the text
    std::string key;               // that it stands under in its table

    const TomlValue* member(std::string_view name) const;  // of a table; null when absent
};

// What a value is, for "found ...": "text", 12, a list, ...
std::string describe(const TomlValue& value);

struct SyntaxError {
    int line = 1;
    std::string message;
};

// Reads `text`. On failure `error` is filled and the result is empty. Nothing is thrown.
std::optional<TomlValue> parse_document(std::string_view text, SyntaxError& error);

}  // namespace ostrel_simhost
