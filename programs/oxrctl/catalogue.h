// What the log's messages and the codes mean and what to do about them: one catalogue, kept in catalogue.toml, which
// the program carries in itself and docs/operations.md is made from too.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace oxrctl {

struct MessageEntry {
    std::string subject;
    std::string level;               // ERROR, WARN, INFO or DEBUG
    std::vector<std::string> texts;  // formats, letter by letter as in the source; alike ones share an entry
    std::string meaning;
    std::string action;  // empty: nothing to do
};

struct CodeEntry {
    std::string kind;  // "OXD": answers of the methods over CIM; "PSP": of the path-selection plug-in's control device
    int code = 0;
    std::string name;
    std::string text;  // what a client gets with it; may be empty
    std::string meaning;
    std::string action;
};

// Why `oxrctl status` doesn't call a host well.
struct ReasonEntry {
    std::string name;
    std::string health;              // what it makes of the host: "warning", "critical" or "unknown"
    std::vector<std::string> texts;  // formats of what the judgement says
    std::string meaning;
    std::string action;
};

// Messages by subject; those of one place of the file stand together, one entry a level.
struct Catalogue {
    std::vector<MessageEntry> messages;
    std::vector<CodeEntry> codes;
    std::vector<ReasonEntry> reasons;          // the weightiest first
    std::map<std::string, std::string> named;  // formats of the messages that have a name
};

// The catalogue; read once, lives as long as the program.
const Catalogue& catalogue();

struct FoundMessage {
    const MessageEntry* entry = nullptr;  // null: there is none
    const std::string* format = nullptr;  // which of its texts

    explicit operator bool() const { return entry != nullptr; }
};

// The entry that a logged text (without its prefix and line feed) belongs to: of all that fit, the one whose format
// has most letters of its own. The first line of a text of several is enough, and blanks may be lost at its ends or
// where there were several; a format itself is found too. With a `level`, one of that level goes first.
FoundMessage find_format(std::string_view text, std::string_view level = {});

// The reasons that `oxrctl status` tells in this text, whatever stands around them and wherever the line is broken.
std::vector<const ReasonEntry*> find_reasons(std::string_view text);

// Its entry alone. Null: there is none.
const MessageEntry* find_message(std::string_view text, std::string_view level = {});

}  // namespace oxrctl
