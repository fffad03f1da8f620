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

TEST_F(HostTest, AStopThatCannotBeSignalledIsWithdrawn) {
    host->fail(testing_support::failing_with("pthread_kill", ESRCH));
    EXPECT_EQ(oxr::request_stop(pthread_self()), ESRCH);
    oxr::enable_stop_points([](int) { ADD_FAILURE() << "stopped"; });
    oxr::stop_point();
}

// Begins a thread that has the signal blocked, as the worker has; so has everyone else.
pthread_t run(void* (*body)(void*)) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    pthread_t thread{};
    EXPECT_EQ(pthread_create(&thread, nullptr, body, nullptr), 0);
    return thread;
}

void exit_as_stopped(int) {
    pthread_exit(const_cast<char*>("stopped"));
}

bool stopped(pthread_t thread) {
    void* result = nullptr;
    EXPECT_EQ(pthread_join(thread, &result), 0);
    return result != nullptr;
}

TEST(StopPoint, AStopComesToAThreadThatAskedForItAndNoLongerHoldsItOff) {
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

TEST(StopPoint, ASignalToTheProcessNeitherStopsAWaitNorIsLost) {
    static const auto begun = Clock::now();
    const pthread_t thread = run([](void*) -> void* {
        oxr::enable_stop_points(exit_as_stopped);
        oxr::wait_milliseconds(20);
        EXPECT_GE(Clock::now() - begun, 20ms);
        oxr::wait_seconds(600);
        return nullptr;
    });
    kill(getpid(), SIGUSR1);
    usleep(30000);
    EXPECT_EQ(oxr::request_stop(thread), 0);
    EXPECT_TRUE(stopped(thread));
    EXPECT_LT(Clock::now() - begun, 10s) << "a stop ends a wait at once";
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGUSR1), 1);
}

}  // namespace
