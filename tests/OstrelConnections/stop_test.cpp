// The worker is stopped at any moment of its passes: nothing stays locked, open or allocated, and the next start
// works.
#include <gtest/gtest.h>
#include <sched.h>

#include <chrono>
#include <cstdio>
#include <random>
#include <thread>

#include "OstrelProvider/service.h"
#include "common/stop_point.h"
#include "support/engine.h"
#include "support/log_lines.h"
#include "support/site.h"

using namespace testing_support;
using simhost::GroupMode;

namespace {

constexpr double seconds_a_second = 1000;  // a cycle of 60 seconds takes 60 ms

// Time of the host.
void let_pass(std::chrono::milliseconds time) {
    std::this_thread::sleep_for(time);
}

std::unique_ptr<simhost::Host> make_busy_site() {
    simhost::HostOptions options;
    options.clock = simhost::ClockMode::scaled;
    options.factor = seconds_a_second;
    options.login_seconds = 2;
    options.discovery_seconds = 3;
    auto host = make_site(2, GroupMode::dynamic_discovery, options);
    host->write_file("/etc/ostrel/oxr.conf", "interval=60\nvol_sessions=6\n");
    add_volumes(*host, 4, 5);
    host->add_group_scoped_target({"iqn.gst", "g", {"a1"}, {}});
    simhost::VolumeSpec device;
    device.eui = "pe";
    device.group = "g";
    device.group_scoped_target = "iqn.gst";
    host->add_volume(device);
    host->connect("iqn.gst", 4);
    return host;
}

void stop_at_random_moments(unsigned seed, int stops) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::printf("seed %u\n", seed);
    std::mt19937 random(seed);
    const auto host = make_busy_site();
    OstrelProviderInit();
    ASSERT_EQ(StopService(), 0);
    int in_mid_pass = 0;
    for (int stop = 0; stop < stops; ++stop) {
        SCOPED_TRACE(testing::Message() << "stop " << stop);
        host->count_allocations(true);
        ASSERT_EQ(StartService(), 0);
        // Something to do for the pass: sessions go, or the group's mode switches.
        if (stop % 10 == 9) {
            host->switch_mode("g", stop % 20 == 9 ? GroupMode::static_discovery : GroupMode::dynamic_discovery);
        } else {
            host->drop_sessions(host->iqn_of("vol-" + std::to_string(stop % 4)), 2);
        }
        let_pass(std::chrono::milliseconds(random() % 20000));
        ASSERT_EQ(StopService(), 0);
        host->count_allocations(false);
        in_mid_pass += host->exists("/etc/ostrel/.lock") ? 1 : 0;
        EXPECT_EQ(oxr_thread.load(), pthread_t{0});
        ASSERT_EQ(shared_mutexes_held(), Lines{});
        ASSERT_EQ(host->lists_held(), 0U);
        ASSERT_EQ(host->descriptors_held(), 0U);
        ASSERT_EQ(host->blocks_held(), 0);
        if (stop % 25 == 24) {
            host->write_file("/var/log/ostrel/oxr.log", "");
        }
    }
    std::printf("%d of %d stops came in mid-pass\n", in_mid_pass, stops);
    EXPECT_GT(in_mid_pass, 0);
    // After all that a worker still makes its passes, and takes away the lock file that a stopped one left.
    ASSERT_EQ(StartService(), 0);
    const std::uint64_t passes = host->calls("psp.0");
    for (int waited = 0; host->calls("psp.0") < passes + 2 && waited < 10000; ++waited) {
        let_pass(std::chrono::seconds(1));
    }
    EXPECT_GE(host->calls("psp.0"), passes + 2);
    EXPECT_EQ(StopService(), 0);
}

}  // namespace

TEST(Stops, AtRandomMomentsLeaveNothingBehind1) {
    stop_at_random_moments(1, 50);
}
TEST(Stops, AtRandomMomentsLeaveNothingBehind2) {
    stop_at_random_moments(2, 50);
}
TEST(Stops, AtRandomMomentsLeaveNothingBehind3) {
    stop_at_random_moments(3, 50);
}
TEST(Stops, AtRandomMomentsLeaveNothingBehind4) {
    stop_at_random_moments(std::random_device{}(), 50);
}

TEST(Stops, InMidPassLeaveTheLockFileToTheNextWorker) {
    const auto host = make_busy_site();
    OstrelProviderInit();
    ASSERT_EQ(StopService(), 0);
    host->remove_file("/etc/ostrel/.lock");
    ASSERT_EQ(StartService(), 0);
    // The pass waits two seconds before it counts sessions: a millisecond here.
    while (!host->exists("/etc/ostrel/.lock")) {
        std::this_thread::yield();
    }
    ASSERT_EQ(StopService(), 0);
    const bool left = host->exists("/etc/ostrel/.lock");
    const std::string log = host->log();
    EXPECT_TRUE(
        in_order(log, {"Signal 10 caught. Performing cleanup of resources allocated by polling thread.",
                       "Polling thread exiting. Thread id = ", "do_work thread killed. pthread_join returned 0"}));
    ASSERT_EQ(StartService(), 0);
    for (int waited = 0; (host->exists("/etc/ostrel/.lock") || host->calls("psp.0") < 3) && waited < 10000; ++waited) {
        let_pass(std::chrono::milliseconds(100));
    }
    EXPECT_FALSE(host->exists("/etc/ostrel/.lock")) << "left by the stopped worker: " << left;
    EXPECT_EQ(StopService(), 0);
    EXPECT_EQ(shared_mutexes_held(), Lines{});
}

// A thread sanitizer objects to asking for the stop with the host's lock held, as an observer does.
#ifndef __SANITIZE_THREAD__
TEST(Stops, ComeBetweenTwoVolumes) {
    const auto host = make_site(2);
    const auto iqns = add_volumes(*host, 2, 3);
    host->observe([&](const simhost::Event& event) {
        if (event.kind == simhost::Event::Kind::session_added && event.target == iqns[0]) {
            EXPECT_EQ(oxr::request_stop(pthread_self()), 0);
        }
    });
    ASSERT_EQ(StartService(), 0);
    // Three NICs are in use, two arrays are there.
    for (int waited = 0; count_sessions(*host, iqns[0]) < 6 && waited < 10'000'000; ++waited) {
        sched_yield();
    }
    EXPECT_EQ(StopService(), 0);
    EXPECT_EQ(count_sessions(*host, iqns[0]), 6);
    EXPECT_EQ(count_sessions(*host, iqns[1]), 3);
    expect_nothing_held(*host);
}
#endif
