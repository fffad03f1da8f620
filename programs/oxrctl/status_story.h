// How `oxrctl status` shows a log's story.
#pragma once

#include <string>
#include <vector>

#include "oxrctl/command.h"
#include "oxrctl/log_story.h"

namespace oxrctl {

// What the log doesn't tell; empty where it isn't known.
struct Versions {
    std::string oxd, psp;
};

std::string story_text(const std::vector<LogFile>& files, const Story& story, const Versions& versions);
Json story_json(const std::vector<LogFile>& files, const Story& story, const Versions& versions);

}  // namespace oxrctl
