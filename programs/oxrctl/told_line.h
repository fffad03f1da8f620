// Lines in which our own programs tell a message of the log.
#pragma once

#include <optional>
#include <string>

namespace oxrctl {

struct ToldMessage {
    std::string level;  // may be empty
    std::string text;
};

// What is told by an entry of `oxrctl status`'s warnings and errors (its line, or that and the text below it), by a
// line of its that quotes a message, or by a line of the log as ostrel-simhost shows it. Empty for anything else. The
// text is empty when only the line above it was given.
std::optional<ToldMessage> told_message(const std::string& asked);

}  // namespace oxrctl
