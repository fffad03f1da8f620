#include "support/host_test.h"

#include <regex>

#include "support/log_lines.h"
#include "support/site.h"

namespace testing_support {

Lines said(simhost::Host& host) {
    Lines lines = short_lines(host.log());
    static const std::regex source_line("at line (number )?[0-9]+");
    for (std::string& line : lines) {
        line = std::regex_replace(line, source_line, "at line $1#");
    }
    host.write_file("/var/log/ostrel/oxr.log", "");
    return lines;
}

Lines said(simhost::Host& host, std::string_view level) {
    Lines lines = said(host);
    std::erase_if(lines, [&](const std::string& line) { return !line.starts_with(level); });
    return lines;
}

std::string ima_error(const std::string& function, const std::string& text) {
    return "ERROR do_print_ima_error_msg: At function " + function +
           " at line number # of file oxd_ima_utility - got IMA Error: " + text + "\n";
}

simhost::Fault failing(const std::string& operation, std::uint64_t nth) {
    simhost::Fault fault;
    fault.operation = operation;
    fault.nth = nth;
    return fault;
}

simhost::Fault failing_with(const std::string& operation, int error, const std::string& path_contains) {
    simhost::Fault fault = failing(operation);
    fault.error = error;
    fault.path_contains = path_contains;
    return fault;
}

HostTest::HostTest(std::unique_ptr<simhost::Host> made) : host(std::move(made)) {}

HostTest::HostTest() : HostTest(make_host()) {}

void HostTest::TearDown() {
    EXPECT_EQ(host->lists_held(), 0U);
    EXPECT_EQ(host->descriptors_held(), 0U);
    EXPECT_EQ(host->violations(), Lines());
}

}  // namespace testing_support
