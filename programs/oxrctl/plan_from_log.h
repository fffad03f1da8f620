// A scenario made of what a log tells of a host.
#pragma once

#include <string>
#include <vector>

namespace oxrctl {

struct ScenarioFromLog {
    std::string text;                  // TOML
    std::string log;                   // for people: the file, or "standard input"
    std::string read;                  // what the log tells that the scenario rests on
    std::vector<std::string> guesses;  // what the log doesn't tell, so that it is made up or left out
};

// Of the log's last pass. The configuration is that of `config_file`; with an empty name, the one that the log tells.
// `given` is the log of one host, as `oxrctl status` takes it. Throws a Refusal when there are several, when a file
// can't be read, or the log tells of no volume.
ScenarioFromLog scenario_from_log(const std::string& given, const std::string& config_file);

}  // namespace oxrctl
