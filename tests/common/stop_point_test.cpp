#include "common/stop_point.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "support/host_test.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing_support::HostTest;

TEST_F(HostTest, WaitsPassTheirTimeInOnePieceAndNoneForNothing) {
    oxr::wait_seconds(-5);
    oxr::wait_milliseconds(0);
    EXPECT_EQ(host->sleeps(), 0U);
    oxr::wait_seconds(604800);
    oxr::wait_milliseconds(1500);
    EXPECT_EQ(host->sleeps(), 2U);
    EXPECT_DOUBLE_EQ(host->now(), 604801.5);
}

TEST_F(HostTest, AStopThatCannotBeSignalledIsWithdrawn) {
    host->fail(testing_support::failing_with("pthread_kill", ESRCH));
    EXPECT_EQ(oxr::request_stop(pthread_self()), ESRCH);
    oxr::enable_stop_points([](int) { ADD_FAILURE() << "stopped"; });
    oxr::stop_point();
}

// A thread that has the signal blocked, as the worker has; so has everyone else.
class StopPointTest : public ::testing::Test {
protected:
    StopPointTest() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGUSR1);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }
    static pthread_t run(void* (*body)(void*)) {
        pthread_t thread{};
        EXPECT_EQ(pthread_create(&thread, nullptr, body, nullptr), 0);
        return thread;
    }
    static void exit_as_stopped(int) { pthread_exit(const_cast<char*>("stopped")); }
    static bool stopped(pthread_t thread) {
        void* result = nullptr;
        EXPECT_EQ(pthread_join(thread, &result), 0);
        return result != nullptr;
    }
};

TEST_F(StopPointTest, AStopComesToAThreadThatAskedForItAndNoLongerHoldsItOff) {
    EXPECT_TRUE(stopped(run([](void*) -> void* {
        EXPECT_EQ(oxr::request_stop(pthread_self()), 0);
        EXPECT_FALSE(oxr::stop_point());
        oxr::enable_stop_points(exit_as_stopped);
        {
            const oxr::StopHold hold;
            oxr::wait_seconds(600);
            EXPECT_TRUE(oxr::stop_point());
        }
        oxr::wait_seconds(600);
        return nullptr;
    })));
    oxr::clear_stop_request();
}

TEST_F(StopPointTest, ASignalToTheProcessNeitherStopsAWaitNorIsLost) {
    kill(getpid(), SIGUSR1);
    static const auto begun = Clock::now();
    const pthread_t thread = run([](void*) -> void* {
        oxr::enable_stop_points(exit_as_stopped);
        oxr::wait_milliseconds(20);
        EXPECT_GE(Clock::now() - begun, 20ms);
        oxr::wait_seconds(600);
        return nullptr;
    });
    usleep(30000);
    EXPECT_EQ(oxr::request_stop(thread), 0);
    EXPECT_TRUE(stopped(thread));
    EXPECT_LT(Clock::now() - begun, 10s) << "a stop ends a wait at once";
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGUSR1), 1);
}

}  // namespace
