// The files of a log, read in their order.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "oxrctl/status/log_story.h"

namespace oxrctl {

// One file of a log.
struct LogFile {
    std::string name;
    std::string problem;  // why it could not be read; empty: it was
};

struct LogReading {
    std::vector<LogFile> files;      // those that were looked at, the oldest (.6) first
    std::vector<std::string> notes;  // what is odd about the files
    Story story;
};

enum class HowMuch {
    all,
    end,  // enough for the judgement and for the totals since a position; the changes are those of what was read
};

// Reads the log `file` with its older files, or standard input for "-". Throws a Refusal when `file` itself can't be
// read. `since`: what the totals are counted from.
// `naming`: a pattern for the warnings and errors that are kept, as StoryReader takes it.
LogReading read_log(const std::string& file, HowMuch how_much = HowMuch::all, LogPosition since = {},
                    const std::string& naming = "");

// Refuses a file in which nothing was logged by the connection manager.
[[noreturn]] void refuse_foreign(const std::string& file);

}  // namespace oxrctl
