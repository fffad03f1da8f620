// Checked access to a table of a document: every complaint is kept with its line, key, what was expected and
// what was found; reading goes on with a stand-in so that one run lists all complaints.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "document.h"

namespace ostrel_simhost {

struct Problem {
    int line = 1;
    std::string key;
    std::string expected;
    std::string found;
    std::string option = {};  // of the command line, when not a line of the text is to blame
};

class Problems {
public:
    void add(int line, std::string key, std::string expected, std::string found);
    std::vector<Problem> take() { return std::move(problems_); }

private:
    std::vector<Problem> problems_;
};

struct Word {
    std::string text;
    int line = 1;
};

class Fields {
public:
    // `path` names the table in complaints ("adapter"); empty for the document itself.
    Fields(Problems& problems, const TomlValue& table, std::string path);

    int line() const { return table_.line; }
    std::string key_name(std::string_view key) const;  // "adapter.name"

    // The value of a key, which is thereby a known one; null when absent.
    const TomlValue* find(std::string_view key);

    std::optional<std::string> text(std::string_view key);
    std::string required_text(std::string_view key, std::string_view expected);  // empty after a complaint
    std::optional<std::int64_t> integer(std::string_view key, std::int64_t least, std::int64_t most);
    std::optional<double> seconds(std::string_view key, double least = 0);  // a number or a duration's text
    std::optional<bool> flag(std::string_view key);
    std::vector<Word> texts(std::string_view key);               // a list of texts
    std::vector<const TomlValue*> tables(std::string_view key);  // [[key]], or a list of tables
    const TomlValue* table(std::string_view key);                // [key]
    std::optional<std::size_t> choice(std::string_view key, std::span<const std::string_view> words);
    std::optional<std::size_t> choice(std::string_view key, std::initializer_list<std::string_view> words) {
        return choice(key, std::span(words.begin(), words.size()));
    }

    void complain(std::string_view key, std::string expected);               // about the value of `key`
    void complain_missing(std::string_view key, std::string_view expected);  // `key` is absent

    // Complains about every key of the table that was never looked for.
    void finish();

private:
    Problems& problems_;
    const TomlValue& table_;
    std::string path_;
    std::vector<std::string> known_;
};

}  // namespace ostrel_simhost
