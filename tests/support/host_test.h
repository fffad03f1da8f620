// The fixture of tests that act on one host and read what was logged.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "simhost/host.h"
#include "support/faults.h"

namespace testing_support {

using Lines = std::vector<std::string>;

// The messages logged since the last call, as short_lines() has them. Empties the log.
Lines said(simhost::Host& host);

// Those of them that have this level.
Lines said(simhost::Host& host, std::string_view level);

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
