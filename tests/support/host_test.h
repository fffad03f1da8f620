// The fixture of tests that act on one host and read what was logged.
#pragma once

#include <gtest/gtest.h>

#include "OstrelProvider/log_level.h"
#include "simhost/host.h"
#include "support/engine.h"
#include "support/site.h"

namespace testing_support {

// Every test ends with each list and descriptor given back and no invariant of the host broken.
class HostTest : public ::testing::Test {
protected:
    std::unique_ptr<simhost::Host> host;

    explicit HostTest(std::unique_ptr<simhost::Host> made = make_host()) : host(std::move(made)) {}
    void TearDown() override { expect_nothing_held(*host); }

    Lines said(std::string_view beginning = {}) { return testing_support::said(*host, beginning); }
};

}  // namespace testing_support
