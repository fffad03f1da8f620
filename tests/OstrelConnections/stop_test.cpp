// The worker is stopped at any moment of its passes: nothing stays locked, open or allocated, and the next start
// works.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <random>
#include <thread>

#include "OstrelProvider/service.h"
#include "OstrelProvider/worker.h"
#include "common/stop_point.h"
#include "support/engine.h"
#include "support/site.h"

using namespace testing_support;
using simhost::GroupMode;

class StopsAtRandomMoments : public ::testing::TestWithParam<unsigned> {};

TEST_P(StopsAtRandomMoments, LeaveNothingBehind) {
    const unsigned seed = GetParam() == 0 ? std::random_device{}() : GetParam();  // 0: one that nobody knows before
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    const simhost::HostOptions options{.root = {},
                                       .clock = simhost::ClockMode::scaled,
                                       .factor = 1000,  // a cycle of 60 seconds takes 60 ms
                                       .login_seconds = 2,
                                       .discovery_seconds = 3};
    const auto host = make_site(2, GroupMode::dynamic_discovery, options);
    host->write_file("/etc/ostrel/oxr.conf", "interval=60\nvol_sessions=6\n");
    const Lines iqns = add_volumes(*host, 4, 5);
    add_target(*host, "iqn.gst", {"a1"}, 4);
    int in_mid_pass = 0;
    for (unsigned stop = 0; stop < 50 && !HasFailure(); ++stop) {
        SCOPED_TRACE(testing::Message() << "stop " << stop);
        host->count_allocations(true);
        ASSERT_EQ(StartService(), 0);
        // Something to do for the pass: sessions go, or the group's mode switches.
        if (stop % 10 == 9) {
            host->switch_mode("g", stop % 20 == 9 ? GroupMode::static_discovery : GroupMode::dynamic_discovery);
        } else {
            host->drop_sessions(iqns[stop % iqns.size()], 2);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 20000));  // time of the host
        ASSERT_EQ(StopService(), 0);
        host->count_allocations(false);
        in_mid_pass += host->exists("/etc/ostrel/.lock") ? 1 : 0;
        EXPECT_EQ(oxr_thread.load(), pthread_t{0});
        EXPECT_EQ(what_is_held(*host), Lines{});
    }
    EXPECT_GT(in_mid_pass, 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, StopsAtRandomMoments, ::testing::Values(1, 2, 0));

// A thread sanitizer objects to asking for the stop with the host's lock held, as an observer does.
#ifndef __SANITIZE_THREAD__
namespace {

// A cycle on a thread that can be stopped as the worker can.
void* stoppable_cycle(void* host) {
    sigset_t stop_signal;
    sigemptyset(&stop_signal);
    sigaddset(&stop_signal, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &stop_signal, nullptr);
    oxr::enable_stop_points([](int) { pthread_exit(nullptr); });
    run_cycle(*static_cast<simhost::Host*>(host));
    return nullptr;
}

// What the cycles that follow make of the host.
std::string settle(simhost::Host& host) {
    for (int cycle = 0; cycle < 4; ++cycle) {
        run_cycle(host);
    }
    return describe(host);
}

}  // namespace

TEST(Stops, ComeBetweenAnyTwoChangesAndCutNoVolumeOff) {
    for (const GroupMode now : {GroupMode::dynamic_discovery, GroupMode::static_discovery}) {
        const std::string undisturbed = settle(*make_unbalanced_site(now));
        std::uint64_t stops = 0;
        for (bool asked = true; asked; ++stops) {
            SCOPED_TRACE(testing::Message() << (now == GroupMode::static_discovery) << ", change " << stops + 1);
            const auto host = make_unbalanced_site(now);
            asked = false;
            bool settling = false;
            std::uint64_t changed = 0;
            std::uint64_t requests = 0;
            std::uint64_t read = 0;
            host->observe([&](const simhost::Event&) {
                if (!asked && !settling && session_changes(*host) + adapter_requests(*host) == stops + 1) {
                    asked = true;
                    changed = session_changes(*host);
                    requests = adapter_requests(*host);
                    read = host->calls("IMA_VMW_GetConnectionStatus");
                    EXPECT_EQ(oxr::request_stop(pthread_self()), 0);
                }
            });
            host->count_allocations(true);
            pthread_t thread{};
            ASSERT_EQ(pthread_create(&thread, nullptr, stoppable_cycle, host.get()), 0);
            ASSERT_EQ(pthread_join(thread, nullptr), 0);
            host->count_allocations(false);
            oxr::clear_stop_request();
            if (asked) {
                EXPECT_EQ(session_changes(*host), changed);
                EXPECT_EQ(host->calls("IMA_VMW_GetConnectionStatus"), read) << "another volume is looked at";
                // A switch that has begun to remove deletes dead paths and rediscovers, on each of two adapters.
                EXPECT_LE(adapter_requests(*host) - requests, changed > 0 && requests < 4 ? 4U - requests : 0U);
            }
            for (const auto& target : host->targets()) {
                EXPECT_GE(target.active_paths, 2) << target.iqn;
            }
            EXPECT_EQ(what_is_held(*host), Lines{});
            settling = true;
            EXPECT_EQ(settle(*host), undisturbed);
            expect_nothing_held(*host);
        }
        EXPECT_GT(stops, 20U);
    }
}
#endif
