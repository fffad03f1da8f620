// Which logs `oxrctl status` was given.
#pragma once

#include <string>
#include <vector>

namespace oxrctl {

struct LogSource {
    std::string host;
    std::string file;  // "-": standard input; a folder: no log is in it
};

struct Logs {
    std::vector<LogSource> sources;
    bool of_hosts = false;  // not a single log: each host has a row
};

// Each argument is a log; HOST=LOG; a folder, with its oxr.log or those of its folders, one for each host; "-". Throws
// a Refusal for an empty name and for a host that comes twice.
Logs find_logs(const std::vector<std::string>& given);

}  // namespace oxrctl
