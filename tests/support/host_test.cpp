#include "support/host_test.h"

#include "support/engine.h"
#include "support/log_lines.h"
#include "support/site.h"

namespace testing_support {

Lines said(simhost::Host& host) {
    Lines lines = short_lines(host.log());
    host.write_file("/var/log/ostrel/oxr.log", "");
    return lines;
}

Lines said(simhost::Host& host, std::string_view level) {
    Lines lines = said(host);
    std::erase_if(lines, [&](const std::string& line) { return !line.starts_with(level); });
    return lines;
}

HostTest::HostTest(std::unique_ptr<simhost::Host> made) : host(std::move(made)) {}

HostTest::HostTest() : HostTest(make_host()) {}

void HostTest::TearDown() {
    expect_nothing_held(*host);
}

}  // namespace testing_support
