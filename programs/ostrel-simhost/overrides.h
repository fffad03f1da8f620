// Changes to the document of a scenario before it is read, as --set asks for them.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "document.h"
#include "fields.h"

namespace ostrel_simhost {

// Enters "KEY=VALUE" texts into the document, the later ones over the earlier. KEY is one of the configuration
// file, the name of a [[volumes]] entry with # (its count), NAME.sessions, a number of [host], or an event, which
// happens at the start. What can't be entered is complained about; a value that only the scenario reader can judge
// carries option_line() as its line. Gives what stays set until an event sets it: the configuration and [host].
std::map<std::string, std::string> apply_overrides(Problems& problems, TomlValue& document,
                                                   const std::vector<std::string>& overrides);

// The keys that can be overridden in the scenario of this text: those of every scenario, then those of its own volumes
// and group-scoped targets.
std::vector<std::string> override_keys(std::string_view text);

// Where no line of the text is to blame but the option of this index.
constexpr int option_line(std::size_t index) {
    return -1 - static_cast<int>(index);
}

// The option that such a line stands for; empty for a line of the text.
std::string option_of(int line, const std::vector<std::string>& overrides);

}  // namespace ostrel_simhost
