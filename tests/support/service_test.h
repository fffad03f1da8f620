// The fixture of tests that run the worker, on a clock that goes as far as they say.
#pragma once

#include "OstrelProvider/service.h"
#include "support/host_test.h"

namespace testing_support {

class ServiceTest : public HostTest {
protected:
    ServiceTest() { host->set_horizon(0); }
    void TearDown() override {
        EXPECT_EQ(StopService(), 0);
        HostTest::TearDown();
    }

    // The worker's first cycle up to its sleep.
    void start() {
        EXPECT_EQ(StartService(), 0);
        ASSERT_TRUE(host->wait_for_horizon(10));
    }
    // Lets the clock run; returns when the worker sleeps past that moment.
    void run_to(double seconds) {
        host->set_horizon(seconds);
        ASSERT_TRUE(host->wait_for_horizon(10));
    }
};

}  // namespace testing_support
