#include "support/host_test.h"

#include "support/log_lines.h"

namespace testing_support {

Lines said(simhost::Host& host, std::string_view beginning) {
    Lines lines = short_lines(host.log());
    std::erase_if(lines, [&](const std::string& line) { return !line.starts_with(beginning); });
    host.write_file("/var/log/ostrel/oxr.log", "");
    return lines;
}

}  // namespace testing_support
