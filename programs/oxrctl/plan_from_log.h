// A scenario made of what a log tells of a host.
#pragma once

#include <string>
#include <vector>

namespace oxrctl {

struct ScenarioFromLog {
    std::string text;                  // TOML
    std::vector<std::string> guesses;  // what the log doesn't tell, so that it is made up or left out
};

// Of the log's last pass. The configuration is that of `config_file`; with an empty name, the one that the log tells.
// Throws a Refusal when a file can't be read, or the log tells of no volume.
ScenarioFromLog scenario_from_log(const std::string& log, const std::string& config_file);

}  // namespace oxrctl
