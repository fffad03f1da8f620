// The story of a log that a test wrote.
#pragma once

#include <sstream>
#include <string>

#include "oxrctl/status/log_story.h"

inline oxrctl::Story story_of(const std::string& log) {
    oxrctl::StoryReader reader;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        reader.take(line);
    }
    return reader.finish();
}
