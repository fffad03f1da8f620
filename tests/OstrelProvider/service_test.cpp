#include "OstrelProvider/service.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <thread>

#include "OstrelConnections/renewal/renewal_state.h"
#include "OstrelProvider/config.h"
#include "OstrelProvider/wait_debug.h"
#include "OstrelProvider/worker.h"
#include "oxd_ima_utility/oid_cache.h"
#include "support/host_test.h"
#include "support/log_lines.h"
#include "support/service_test.h"
#include "support/site.h"

namespace {

using simhost::Event;
using testing_support::Lines;
using testing_support::ServiceTest;

constexpr char DEBUG_CONFIG[] = "#\nlog_level=2\nuse_ostrel_timeouts=1\nostrel_logs_path=/var/log/ostrel\n";

TEST_F(ServiceTest, AStartPreparesTheFilesAndRunsOneCycle) {
    start();
    const std::string values =
        "interval = 120, vol_sessions = 0, min_vol_sessions = 2, max_vol_sessions = 8 "
        "worker_stop = 0 log_level = 1 vmknic_count = 0, min_pe_sessions = 4, "
        "max_pe_sessions = 32, use_ostrel_timeouts = 1, logs_path = /var/log/ostrel.";
    EXPECT_EQ(said(),
              (Lines{
                  "INFO OSTREL_CreateConfigFile: Config dir exists. No need to create.",
                  "INFO OSTREL_CreateConfigFile: Config file does NOT exist. Create the file with default settings",
                  "INFO StartService: Creating worker thread",
                  "INFO OSTREL_GetConfigValues: vmknic count read from oxr.conf file = 0",
                  "INFO do_work: " + values,
                  "INFO handle_ostrel_connections: found 0 Ostrel volumes, total_vol_paths = 0",
                  "INFO do_work: About to sleep for interval = 120 seconds",
              }));
    EXPECT_STREQ(service_versions().oxd_version, "3.5.0");
    EXPECT_STREQ(service_versions().psp_version, "1.7.2");

    EXPECT_EQ(StartService(), 0);
    EXPECT_EQ(said(), Lines{"INFO StartService: Worker thread exists; no need to create."});
    EXPECT_EQ(host->calls("pthread_create"), 1U);
}

TEST_F(ServiceTest, CyclesComeAnIntervalApartEachWithItsLockFile) {
    host->write_file(OSTREL_CONFIG_FILE, DEBUG_CONFIG);
    std::vector<double> begun;
    std::vector<double> ended;
    host->observe([&](const Event& event) {
        if (event.kind == Event::Kind::pass_begun) {
            begun.push_back(event.time);
            EXPECT_TRUE(host->exists(OSTREL_LOCK_FILE));
        } else if (event.kind == Event::Kind::pass_ended) {
            ended.push_back(event.time);
        }
    });
    start();
    host->write_file(OSTREL_CONFIG_FILE, "#\ninterval=60\n");  // takes effect behind the next read
    run_to(119);
    EXPECT_EQ(begun.size(), 1U);
    run_to(185);
    EXPECT_EQ(begun, (std::vector<double>{0, 120, 180}));
    EXPECT_EQ(ended, begun);
    EXPECT_FALSE(host->exists(OSTREL_LOCK_FILE));
    EXPECT_TRUE(testing_support::in_order(
        host->log(),
        {"log_level = 2", "lock file does NOT exist. Creating...", "lock file has been deleted",
         "About to sleep for interval = 120 seconds",
         "Waking up after interval = 120 seconds to poll Ostrel array connection", "interval = 60, vol_sessions = 0",
         "About to sleep for interval = 60 seconds",
         "Waking up after interval = 60 seconds to poll Ostrel array connection", "interval = 60, vol_sessions = 0"}));
}

TEST_F(ServiceTest, AStopEndsTheSleepAndAStartBeginsAnew) {
    start();
    EXPECT_NE(tid.load(), 0);
    const std::string id = std::to_string(tid.load());
    host->write_file(OSTREL_CONFIG_FILE, "# now with\ninterval=60\n");
    host->write_file("/etc/ostrel/oxdversion.txt", "4.0\n");
    (void)said();
    EXPECT_EQ(StopService(), 0);
    EXPECT_EQ(said(),
              (Lines{
                  "INFO StopService: Killing the worker thread - threadid = " + id + ".",
                  "INFO sigusr1_handler: Signal 10 caught. Performing cleanup of resources allocated by polling "
                  "thread.",
                  "INFO sigusr1_handler: Polling thread exiting. Thread id = " + id,
                  "INFO StopService: do_work thread killed. pthread_join returned 0",
              }));
    EXPECT_EQ(oxr_thread, 0U);
    EXPECT_STREQ(service_versions().oxd_version, "3.5.0");
    start();
    EXPECT_STREQ(service_versions().oxd_version, "4.0");
    EXPECT_EQ(said().back(), "INFO do_work: About to sleep for interval = 60 seconds");
}

TEST_F(ServiceTest, AStopWithoutAWorkerSignalsNobody) {
    EXPECT_EQ(StopService(), 0);
    EXPECT_EQ(host->calls("pthread_kill"), 0U);
    EXPECT_EQ(host->calls("pthread_join"), 0U);
}

TEST_F(ServiceTest, OfTwoStopsAtOnceOneJoins) {
    start();
    int other = -1;
    std::thread stopping([&] { other = StopService(); });
    EXPECT_EQ(StopService(), 0);
    stopping.join();
    EXPECT_EQ(other, 0);
    EXPECT_EQ(host->calls("pthread_kill"), 1U);
    EXPECT_EQ(testing_support::count_lines(host->log(), "INFO", "sigusr1_handler", "Polling thread exiting"), 1);
}

TEST_F(ServiceTest, StartsAndStopsAtOnceLeaveOneWorkerOrNone) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 10; ++i) {
                EXPECT_EQ(t % 2 == 0 ? StartService() : StopService(), 0);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(StopService(), 0);
    const std::string log = host->log();
    EXPECT_EQ(testing_support::count_lines(log, "INFO", "StartService", "Creating worker thread"),
              testing_support::count_lines(log, "INFO", "sigusr1_handler", "Polling thread exiting"));
}

TEST_F(ServiceTest, AStopThatComesWhileAWorkerIsCreatedEndsIt) {
    std::atomic<bool> stopped{false};
    std::thread stopping;
    simhost::after_thread_creation([&] {
        stopping = std::thread([&] {
            EXPECT_EQ(StopService(), 0);
            stopped = true;
        });
        for (int waits = 0; !stopped && waits < 100; ++waits) {
            poll(nullptr, 0, 1);
        }
    });
    EXPECT_EQ(StartService(), 0);
    stopping.join();
    EXPECT_EQ(oxr_thread, 0U);
    EXPECT_EQ(testing_support::count_lines(host->log(), "INFO", "StopService", "No worker thread exists"), 0);
}

TEST_F(ServiceTest, WhoeverSharesADatumWaitsForItsMutex) {
    const auto cycle = [] {
        ConfigValues values;
        run_worker_cycle(values);
    };
    const struct {
        const char* what;
        oxr::Mutex& mutex;
        std::function<void()> operate;
    } cases[] = {
        {"a start", start_service_mutex, [] { (void)StartService(); }},
        {"the lock file of a cycle", lock_file_mutex, cycle},
        {"the configuration of a cycle", config_file_mutex, cycle},
        {"a message", log_file_mutex, [] { oxr_log_to_file(LOG_LEVEL_ERROR, "x\n"); }},
        {"the log's name", log_file_mutex, [] { set_log_filename("/var/log/ostrel/oxr.log"); }},
    };
    for (const auto& each : cases) {
        std::atomic<bool> done{false};
        std::thread operating;
        {
            const oxr::MutexLock held(each.mutex);
            operating = std::thread([&] {
                each.operate();
                done = true;
            });
            poll(nullptr, 0, 50);
            EXPECT_FALSE(done) << each.what;
        }
        operating.join();
    }
}

TEST_F(ServiceTest, AStopWaitsForARenewalButNotForEver) {
    for (const auto& [has_worker, seconds] : {std::pair{false, 3}, {false, 1000}, {true, 3}, {true, 1000}}) {
        SCOPED_TRACE(testing::Message() << has_worker << " " << seconds);
        if (has_worker) {
            host->set_horizon(host->now());
            start();
        }
        conn_renew_thread = pthread_self();
        host->at(host->now() + seconds - 0.5, "renewal ends", [](auto&) { conn_renew_thread = 0; });
        (void)said();
        // A sleeping worker takes the clock on to any horizon, so that is moved when the worker is gone.
        std::thread mover([&, is_awaited = has_worker] {
            while (is_awaited && host->log().find("do_work thread killed") == std::string::npos) {
                std::this_thread::yield();
            }
            host->set_horizon(host->now() + 100);
        });
        EXPECT_EQ(StopService(), 0);
        mover.join();
        Lines expected;
        if (!has_worker) {
            expected.push_back("INFO StopService: No worker thread exists; nothing to stop.");
        }
        for (int n = 0; n < std::min(seconds, 60); ++n) {
            expected.push_back(
                "INFO StopService: iscsi connection renew thread is running, waiting to complete : "
                "retries " +
                std::to_string(n));
        }
        if (seconds > 60) {
            expected.push_back(
                "ERROR StopService: looks like conn_renew_thread is hung even after 60 seconds, "
                "continuing with stop");
        }
        Lines lines = said();
        std::erase_if(lines, [](const std::string& line) {
            return line.find(" StopService: ") == std::string::npos ||
                   line.find("worker thread - ") != std::string::npos || line.find("do_work") != std::string::npos;
        });
        EXPECT_EQ(lines, expected);
        conn_renew_thread = 0;
    }
}

TEST_F(ServiceTest, AFailedThreadCreationCanBeTriedAgain) {
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, nullptr, &before);
    host->fail(testing_support::failing("pthread_create"));
    EXPECT_EQ(StartService(), -1);
    EXPECT_EQ(said("ERROR"), Lines{"ERROR StartService: Resource temporarily unavailable, pthread_create failed"});
    EXPECT_EQ(oxr_thread, 0U);
    EXPECT_EQ(StopService(), 0);
    start();
    EXPECT_NE(oxr_thread, 0U);
    sigset_t after;
    pthread_sigmask(SIG_BLOCK, nullptr, &after);
    EXPECT_EQ(sigismember(&after, SIGUSR1), sigismember(&before, SIGUSR1));
}

TEST_F(ServiceTest, AFailedStopSaysSoAndCanBeTriedAgain) {
    start();
    host->fail(testing_support::failing("pthread_kill"));
    EXPECT_EQ(StopService(), -1);
    EXPECT_EQ(said("ERROR"), Lines{"ERROR StopService: No such process, pthread_kill failed"});
    EXPECT_NE(oxr_thread, 0U);
#ifndef __SANITIZE_THREAD__  // which takes the thread for joined when the call fails
    host->fail(testing_support::failing("pthread_join"));
    EXPECT_EQ(StopService(), -1);
    EXPECT_EQ(said("ERROR"), Lines{"ERROR StopService: Invalid argument, pthread_join returned 22"});
    EXPECT_NE(oxr_thread, 0U);
#endif
    EXPECT_EQ(StopService(), 0);
}

TEST_F(ServiceTest, VersionsAreTheFirstWordOfTheirFiles) {
    const struct {
        std::string text;
        const char* version;  // null: a failure
    } cases[] = {
        {"3.5.0\n", "3.5.0"},
        {"3.5.0", "3.5.0"},
        {" \n\t\v\f\r3.5 rest\n", "3.5"},
        {"1234567890123456789", "1234567890123456789"},
        {"12345678901234567890", "1234567890123456789"},
        {std::string(100000, 'v'), "vvvvvvvvvvvvvvvvvvv"},
        {"", nullptr},
        {" \n\t ", nullptr},
        {std::string(100000, '\n'), nullptr},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.text.substr(0, 30));
        for (const auto& [file, read] : {std::pair("/etc/ostrel/oxdversion.txt", &getOxdVersion),
                                         std::pair("/etc/ostrel/pspversion.txt", &getPspVersion)}) {
            host->write_file(file, each.text);
            char version[VERSION_TEXT_SIZE] = "";
            EXPECT_EQ(read(version), each.version != nullptr ? 1 : -1);
            EXPECT_STREQ(version, each.version != nullptr ? each.version : "");
        }
        EXPECT_EQ(said(), each.version != nullptr
                              ? Lines()
                              : (Lines{"ERROR getOxdVersion: EOF got while reading version from file",
                                       "ERROR getPspVersion: EOF got while reading version from file"}));
    }
    host->remove_file("/etc/ostrel/pspversion.txt");
    start();
    EXPECT_STREQ(service_versions().oxd_version, "0.0.0");
    EXPECT_STREQ(service_versions().psp_version, "0.0.0");
    EXPECT_EQ(said("ERROR"), (Lines{"ERROR getOxdVersion: EOF got while reading version from file",
                                    "ERROR getPspVersion: cannot open file to read version from."}));
}

TEST_F(ServiceTest, APassIsSkippedWhileToldSoButNothingElse) {
    const struct {
        const char* config;
        int renewal;
        const char* message;  // null: a pass is run
    } cases[] = {
        {"worker_stop=1\n", 0, "INFO do_work: worker_stop = 1 continue to sleep."},
        {"worker_stop=2\n", 0, "INFO do_work: worker_stop = 2 continue to sleep."},
        {"worker_stop=1\n", 1, "INFO do_work: worker_stop = 1 continue to sleep."},
        {"worker_stop=0\n", 1, "INFO do_work: renewal connections(iscsi digest) in progress continue to sleep"},
        {"worker_stop=0\n", 0, nullptr},
    };
    IscsiOidQuery query;
    make_oid_query(query, "vmhba64", "iqn.x", "");
    for (const auto& each : cases) {
        SCOPED_TRACE(each.config + std::to_string(each.renewal));
        host->write_file(OSTREL_CONFIG_FILE, std::string("#\ninterval=60\n") + each.config);
        renew_connections_running = each.renewal;
        add_target_oid(query, {});
        const auto before = host->calls("psp.0");
        const auto removed = host->calls("unlink");
        if (oxr_thread == 0) {
            start();
        } else {
            run_to(host->now() + 60);
        }
        EXPECT_EQ(host->calls("psp.0") - before, each.message == nullptr ? 1U : 0U);
        EXPECT_EQ(host->calls("unlink") - removed, 1U);
        IMA_OID oid{};
        EXPECT_EQ(fetch_target_oid("vmhba64", "iqn.x", "", oid), 0);
        const Lines lines = said("INFO do_work");
        ASSERT_GE(lines.size(), 2U);
        EXPECT_EQ(lines[lines.size() - 2], each.message != nullptr ? each.message : lines[lines.size() - 2]);
        EXPECT_EQ(lines.back(), "INFO do_work: About to sleep for interval = 60 seconds");
    }
    renew_connections_running = 0;
}

TEST_F(ServiceTest, AnUnreadableConfigurationKeepsTheValuesBefore) {
    const std::string failed = "ERROR do_work: Failed to get values from the config file. Using default value.";
    host->write_file(OSTREL_CONFIG_FILE, "#\ninterval=60\nvol_sessions=4\n");
    start();
    (void)said();
    simhost::Fault fault = testing_support::failing_with("open", EACCES, "oxr.conf");
    fault.persistent = true;
    host->fail(fault);
    run_to(61);
    const Lines lines = said();
    ASSERT_GE(lines.size(), 4U);
    EXPECT_EQ(lines[1], "ERROR OSTREL_GetConfigValues: Permission denied, fopen() failed on oxr.conf.");
    EXPECT_EQ(lines[2], failed);
    EXPECT_TRUE(lines[3].starts_with("INFO do_work: interval = 60, vol_sessions = 4,")) << lines[3];

    EXPECT_EQ(StopService(), 0);
    (void)said();
    start();  // a new worker begins with the defaults
    EXPECT_EQ(said().back(), "INFO do_work: About to sleep for interval = 120 seconds");
}

TEST_F(ServiceTest, TheLogFollowsItsConfiguredFolder) {
    std::filesystem::create_directories(host->path("/vmfs/volumes/logs"));
    start();
    host->write_file(OSTREL_CONFIG_FILE, "#\nuse_ostrel_timeouts=1\nostrel_logs_path=/vmfs/volumes/logs\n");
    run_to(121);
    EXPECT_EQ(said().back(), "INFO do_work: Waking up after interval = 120 seconds to poll Ostrel array connection");
    const std::string log = host->read_file("/vmfs/volumes/logs/oxr.log");
    EXPECT_TRUE(testing_support::in_order(log, {"logs_path = /vmfs/volumes/logs.", "About to sleep"}));
}

TEST_F(ServiceTest, AStopInMidPassLeavesTheLockFileAndNothingElse) {
    host = nullptr;
    host = testing_support::make_site(2);
    testing_support::add_volumes(*host, 3, 2);
    host->set_horizon(1);  // the pass waits until second 2
    EXPECT_EQ(StartService(), 0);
    ASSERT_TRUE(host->wait_for_horizon(10));
    EXPECT_EQ(StopService(), 0);
    EXPECT_TRUE(host->exists(OSTREL_LOCK_FILE));
    EXPECT_EQ(host->lists_held() + host->descriptors_held(), 0U);
    for (oxr::Mutex* const mutex : {&config_file_mutex, &lock_file_mutex, &start_service_mutex, &log_file_mutex}) {
        const oxr::MutexLock free(*mutex);  // would wait for ever
    }
    {
        const oxr::MutexLock lock(lock_file_mutex);
        EXPECT_FALSE(cycle_under_way);  // it is the file that holds renewals off now
    }
    EXPECT_EQ(StartService(), 0);
    run_to(100);
    EXPECT_FALSE(host->exists(OSTREL_LOCK_FILE));
}

TEST_F(ServiceTest, LockFileFunctionsTellTheirFailures) {
    log_level = 2;
    const oxr::MutexLock lock(lock_file_mutex);
    host->fail(testing_support::failing_with("open", ENOSPC, ".lock"));
    create_lock_file();
    EXPECT_EQ(said(), (Lines{"DEBUG create_lock_file: lock file does NOT exist. Creating...",
                             "ERROR create_lock_file: No space left on device, fopen() failed"}));
    remove_lock_file();
    EXPECT_EQ(said(), Lines{"ERROR remove_lock_file: Error deleting the lock file"});
    host->write_file(OSTREL_LOCK_FILE, "content");
    create_lock_file();
    EXPECT_EQ(host->read_file(OSTREL_LOCK_FILE), "content");
    remove_lock_file();
    EXPECT_EQ(said(), Lines{"DEBUG remove_lock_file: lock file has been deleted"});
    EXPECT_FALSE(host->exists(OSTREL_LOCK_FILE));
}

TEST_F(ServiceTest, EveryFailedCallOfACycleLetsTheWorkerGoOn) {
    host->write_file(OSTREL_CONFIG_FILE, DEBUG_CONFIG);
    start();
    for (const char* const operation :
         {"open", "read", "write", "close", "stat", "access", "unlink", "psp.open", "psp.0"}) {
        for (std::uint64_t nth = 1; nth <= 12; ++nth) {
            host->fail(testing_support::failing(operation, nth));
            const auto before = host->sleeps();
            run_to(host->now() + 120);
            EXPECT_EQ(host->sleeps(), before + 1) << operation << ' ' << nth;
            host->clear_faults();
        }
    }
    EXPECT_EQ(StopService(), 0);
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
    EXPECT_DOUBLE_EQ(host->now(), 3.0);
}

}  // namespace
