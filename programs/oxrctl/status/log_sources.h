// Which logs `oxrctl status` was given.
#pragma once

#include <string>
#include <vector>

namespace oxrctl {

struct LogSource {
    std::string host;
    std::string file;  // "-": standard input
};

struct Logs {
    std::vector<LogSource> sources;
    bool of_hosts = false;  // not a single log: each host has a row
};

// Each argument is a log; HOST=LOG; a folder, with its oxr.log or those of its folders, one for each host; "-". Throws
// a Refusal for what isn't there, for a folder without a log, and for a host that comes twice.
Logs find_logs(const std::vector<std::string>& given);

}  // namespace oxrctl
