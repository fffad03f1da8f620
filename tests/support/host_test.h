// The fixture of tests that act on one host and read what was logged.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "simhost/host.h"

namespace testing_support {

using Lines = std::vector<std::string>;

// The messages logged since the last call, as short_lines() has them; source line numbers inside the texts read
// "#". Empties the log.
Lines said(simhost::Host& host);

// Those of them that have this level.
Lines said(simhost::Host& host, std::string_view level);

// The message of an IMA failure in `function`, as said() has it.
std::string ima_error(const std::string& function, const std::string& text = "General OS-specific failure");

// Makes one call fail: its n-th from now, once.
simhost::Fault failing(const std::string& operation, std::uint64_t nth = 1);
simhost::Fault failing_with(const std::string& operation, int error, const std::string& path_contains = "");

// Every test ends with each list and descriptor given back and no invariant of the host broken.
class HostTest : public ::testing::Test {
protected:
    std::unique_ptr<simhost::Host> host;

    explicit HostTest(std::unique_ptr<simhost::Host> made);
    HostTest();
    void TearDown() override;

    Lines said() { return testing_support::said(*host); }
    Lines said(std::string_view level) { return testing_support::said(*host, level); }
};

}  // namespace testing_support
