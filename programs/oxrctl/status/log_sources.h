// Which logs `oxrctl status` was given.
#pragma once

#include <string>
#include <vector>

namespace oxrctl {

struct LogSource {
    std::string host;
    std::string file;  // "-": standard input
};

// Each argument is a log; HOST=LOG; a folder, with its oxr.log or those of its folders, one for each host; "-". Throws
// a Refusal for what isn't there, for a folder without a log, and for a host that comes twice.
std::vector<LogSource> find_logs(const std::vector<std::string>& given);

}  // namespace oxrctl
