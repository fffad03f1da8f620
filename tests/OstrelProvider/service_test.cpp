#include "OstrelProvider/service.h"

#include <poll.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <thread>

#include "OstrelConnections/renewal/renewal_state.h"
#include "OstrelProvider/config.h"
#include "OstrelProvider/wait_debug.h"
#include "OstrelProvider/worker.h"
#include "oxd_ima_utility/oid_cache.h"
#include "support/golden.h"
#include "support/log_lines.h"
#include "support/service_test.h"
#include "support/site.h"

namespace {

using testing_support::count_lines;
using testing_support::ServiceTest;

TEST_F(ServiceTest, OneWorkerRunsFromAStartToAStop) {
    start();
    EXPECT_EQ(StartService(), 0);
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGUSR1), 0);
    const std::string id = std::to_string(tid.load());
    EXPECT_EQ(StopService(), 0);
    host->write_file("/var/log/ostrel/oxr.log", std::regex_replace(host->log(), std::regex(id), "#"));
    testing_support::Golden("OstrelProvider", "worker").add_log(*host);
    host->write_file("/etc/ostrel/oxdversion.txt", "4.0\n");
    start();
    EXPECT_STREQ(service_versions().oxd_version, "4.0");
}

TEST_F(ServiceTest, CyclesComeAnIntervalApartEachWithItsLockFileAndTheLogFollows) {
    std::vector<double> begun;
    host->observe([&](const simhost::Event& event) {
        if (event.kind == simhost::Event::Kind::pass_begun) {
            begun.push_back(event.time);
            EXPECT_TRUE(host->exists(OSTREL_LOCK_FILE));
        }
    });
    start();
    std::filesystem::create_directories(host->path("/vmfs/volumes/logs"));
    host->write_file(OSTREL_CONFIG_FILE,
                     "#\ninterval=60\nuse_ostrel_timeouts=1\nostrel_logs_path=/vmfs/volumes/logs\n");
    run_to(185);
    EXPECT_EQ(begun, (std::vector<double>{0, 120, 180}));
    EXPECT_FALSE(host->exists(OSTREL_LOCK_FILE));
    EXPECT_EQ(said().back(), "INFO do_work: Waking up after interval = 120 seconds to poll Ostrel array connection");
    EXPECT_EQ(count_lines(host->read_file("/vmfs/volumes/logs/oxr.log"), "interval = 60"), 5) << "and wakes up once";
}

TEST_F(ServiceTest, EachWorkerIsStoppedOnceWhoeverAsks) {
    std::vector<std::jthread> threads(4);
    for (std::jthread& thread : threads) {
        thread = std::jthread([] {
            for (int i = 0; i < 10; ++i) {
                EXPECT_EQ(StartService(), 0);
                EXPECT_EQ(StopService(), 0);
            }
        });
    }
    threads.clear();  // when all is done
    EXPECT_EQ(host->calls("pthread_join"), host->calls("pthread_create"));
    EXPECT_EQ(oxr_thread, 0U);
}

TEST_F(ServiceTest, AStopThatComesWhileAWorkerIsCreatedEndsIt) {
    std::atomic<bool> stopped{false};
    std::thread stopping;
    simhost::after_thread_creation([&] {
        stopping = std::thread([&] { stopped = StopService() == 0; });
        for (int waits = 0; !stopped && waits < 100; ++waits) {
            poll(nullptr, 0, 1);
        }
    });
    EXPECT_EQ(StartService(), 0);
    stopping.join();
    EXPECT_EQ(oxr_thread, 0U);
    EXPECT_EQ(count_lines(host->log(), "StopService: do_work thread killed"), 1);
}

TEST_F(ServiceTest, WhoeverSharesADatumWaitsForItsMutex) {
    const std::pair<oxr::Mutex*, std::function<void()>> cases[] = {
        {&lock_file_mutex, [this] { testing_support::run_cycle(*host); }},
        {&log_file_mutex, [] { set_log_filename("/var/log/ostrel/oxr.log"); }},
        {&start_service_mutex, [] { (void)StartService(); }},
    };
    for (const auto& [mutex, operate] : cases) {
        const std::uint64_t unlinked = host->calls("unlink");  // of the lock file, as a cycle ends
        std::atomic<bool> done{false};
        std::jthread operating;
        const oxr::MutexLock held(*mutex);
        operating = std::jthread([&, operate = operate] {
            operate();
            done = true;
        });
        poll(nullptr, 0, 50);
        EXPECT_FALSE(done || host->calls("unlink") != unlinked);
    }
}

TEST_F(ServiceTest, AStopWaitsForARenewalButNotForEver) {
    for (const auto& [has_worker, seconds] : {std::pair{true, 3}, {true, 1000}, {false, 3}}) {
        SCOPED_TRACE(testing::Message() << has_worker << " " << seconds);
        if (has_worker) {
            host->set_horizon(host->now());
            start();
        }
        conn_renew_thread = pthread_self();
        host->at(host->now() + seconds - 0.5, "renewal ends", [](auto&) { conn_renew_thread = 0; });
        (void)said();
        // A sleeping worker would take the clock on to the new horizon.
        std::thread mover([&] {
            while (!worker_ended) {
                std::this_thread::yield();
            }
            host->set_horizon(host->now() + 100);
        });
        EXPECT_EQ(StopService(), 0);
        mover.join();
        EXPECT_EQ(count_lines(host->log(), "waiting to complete"), std::min(seconds, 60));
        EXPECT_EQ(count_lines(host->log(), "even after 60 seconds"), seconds > 60 ? 1 : 0);
        conn_renew_thread = 0;
    }
}

TEST_F(ServiceTest, AVersionIsTheFirstWordOfItsFile) {
    for (const auto& [text, version] : {std::pair("3.5.0", "3.5.0"),
                                        {" \n\t\v\f\r3.5 rest\n", "3.5"},
                                        {"12345678901234567890", "1234567890123456789"},
                                        {" \n\t ", ""}}) {
        host->write_file("/etc/ostrel/oxdversion.txt", text);
        char found[VERSION_TEXT_SIZE] = "";
        EXPECT_EQ(getOxdVersion(found), *version != '\0' ? 1 : -1) << text;
        EXPECT_STREQ(found, version);
    }
    host->remove_file("/etc/ostrel/pspversion.txt");
    start();
    EXPECT_STREQ(service_versions().oxd_version, "0.0.0");
    EXPECT_STREQ(service_versions().psp_version, "0.0.0");
}

TEST_F(ServiceTest, APassIsSkippedWhileToldSoButNothingElse) {
    IscsiOidQuery query;
    make_oid_query(query, "vmhba64", "iqn.x", "");
    for (const auto& [stop, renewal, message] :
         {std::tuple(2, 1, "INFO do_work: worker_stop = 2 continue to sleep."),
          {0, 1, "INFO do_work: renewal connections(iscsi digest) in progress continue to sleep"},
          {0, 0, "INFO handle_ostrel_connections: found 0 Ostrel volumes, total_vol_paths = 0"}}) {
        host->write_file(OSTREL_CONFIG_FILE, "#\nworker_stop=" + std::to_string(stop) + "\n");
        renew_connections_running = renewal;
        add_target_oid(query, {});
        testing_support::run_cycle(*host);
        EXPECT_EQ(said().back(), message);
        EXPECT_FALSE(host->exists(OSTREL_LOCK_FILE));
        IMA_OID oid{};
        EXPECT_EQ(fetch_target_oid("vmhba64", "iqn.x", "", oid), 0);
    }
}

TEST_F(ServiceTest, AStopInMidPassLeavesTheLockFileForTheNextPass) {
    host = nullptr;
    host = testing_support::make_site(2);
    testing_support::add_volumes(*host, 3, 2);
    host->set_horizon(1);  // the pass waits until second 2
    start();
    EXPECT_EQ(StopService(), 0);
    EXPECT_TRUE(host->exists(OSTREL_LOCK_FILE));
    {
        const oxr::MutexLock lock(lock_file_mutex);
        EXPECT_FALSE(cycle_under_way);  // it is the file that holds renewals off now
    }
    EXPECT_EQ(StartService(), 0);
    run_to(100);
    EXPECT_FALSE(host->exists(OSTREL_LOCK_FILE));
}

TEST_F(ServiceTest, TheDebuggerWaitEndsWhenItsFlagIsCleared) {
    const std::string ids = "pid=" + std::to_string(getpid()) + ", ppid=" + std::to_string(getppid()) + "\n";
    std::atomic<std::int32_t> flag{5};
    testing::internal::CaptureStderr();
    unsetenv("WAIT_PROC");
    wait_for_debugger(flag);
    EXPECT_EQ(flag, 0);
    setenv("WAIT_PROC", "", 1);
    host->set_horizon(100);
    host->at(2.5, "debugger attaches", [&](auto&) { flag = 0; });
    wait_for_debugger(flag);
    const std::string line = "Waiting for vmkgdbd attach:" + ids;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Current process:" + ids + line + line + line);
}

}  // namespace
