// What the log's messages and the codes mean and what to do about them: one catalogue, kept in catalogue.toml, which
// the program carries in itself and docs/operations.md is made from too.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace oxrctl {

struct MessageEntry {
    std::string level;               // ERROR, WARN, INFO or DEBUG
    std::vector<std::string> texts;  // formats, letter by letter as in the source; alike ones share an entry
    std::string meaning;
    std::string action;  // empty: nothing to do
};

struct CodeEntry {
    std::string kind;  // "OXD": answers of the methods over CIM; "PSP": of the path-selection plug-in's control device
    int code = 0;
    std::string name;
    std::string meaning;
    std::string action;
};

struct Catalogue {
    std::vector<MessageEntry> messages;
    std::vector<CodeEntry> codes;
};

// The catalogue; read once, lives as long as the program.
const Catalogue& catalogue();

// The entry that a logged text (without its prefix and line feed) belongs to: of all that fit, the one whose format
// has most letters of its own. Null: there is none.
const MessageEntry* find_message(std::string_view text);

}  // namespace oxrctl
