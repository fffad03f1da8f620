// What every command of oxrctl gives back, and how it refuses.
#pragma once

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace oxrctl {

// oxrctl's exit codes: nothing to say against it; something to look at; what was given can't be used, or what was
// found can't be written; another program that is needed can't be run.
enum ExitCode { EXIT_FINE = 0, EXIT_FOUND = 1, EXIT_UNUSABLE = 2, EXIT_NOT_RUN = 3 };

// What a command prints to standard output, and the exit code.
struct Answer {
    std::string text;
    ExitCode exit_code = EXIT_FINE;
    std::string complaint = {};  // one line for standard error; empty: none
};

// Ends a command with one line on standard error.
class Refusal : public std::runtime_error {
public:
    explicit Refusal(const std::string& what, ExitCode code = EXIT_UNUSABLE)
        : std::runtime_error(what), exit_code(code) {}
    const ExitCode exit_code;
};

using Json = nlohmann::ordered_json;

// Of what the commands print with --json; a field's removal or new meaning makes it another.
inline constexpr int JSON_VERSION = 1;

// The object on lines of its own, indented. Bytes that are not UTF-8 are replaced.
std::string json_text(const Json& object);

// A number of things: "1 line", "2 lines".
std::string count_of(std::size_t number, const std::string& one, const std::string& many);

}  // namespace oxrctl
