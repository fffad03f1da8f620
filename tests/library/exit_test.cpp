// The process ends, or the library is unloaded, after the cleanup of one class only or of none.
#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <thread>

#include "cimserver/server.h"
#include "cmpi/cmpi.h"
#include "support/cim.h"
#include "support/engine.h"
#include "support/log_lines.h"
#include "support/site.h"

namespace {

using namespace testing_support;
using Loaded = void*;
using Make = void* (*)(const CMPIBroker*, const CMPIContext*, CMPIStatus*);

enum class End { exit, exit_after_one_cleanup, exit_after_all_cleanups, unload };

simhost::Host* host = nullptr;
std::function<void()> check_at_exit;

// Runs in a process of its own that ends by exit(); `check`, after the library's end, prints what is wrong.
void in_a_process(const std::function<void()>& act, const std::function<std::string()>& check) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(60);
        check_at_exit = [check] {
            const std::string wrong = check();
            std::cerr << wrong;
            _exit(wrong.empty() ? 0 : 1);
        };
        (void)std::atexit([] { check_at_exit(); });
        act();
        std::exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

void make_busy_host() {
    host = make_site(2).release();
    host->write_file("/etc/ostrel/oxr.conf", "# as it is\nuse_ostrel_timeouts=1\nostrel_logs_path=/var/log/ostrel\n");
    add_volumes(*host, 1, 2);
    host->set_horizon(0);
}

Loaded load() {
    const Loaded library = dlopen(OXR_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::cerr << dlerror();
        _exit(2);
    }
    return library;
}

std::string last_line(const std::string& log) {
    const auto end = log.find_last_not_of('\n');
    return end == std::string::npos ? "" : log.substr(log.rfind('\n', end) + 1);
}

// Empty, or what is wrong with the end of a process in which workers ran.
std::string check_end(bool in_mid_pass) {
    const std::string log = host->log();
    const int created = count_lines(log, "INFO", "StartService", "Creating worker thread");
    const int joined = count_lines(log, "INFO", "StopService", "do_work thread killed. pthread_join returned 0");
    if (joined != created || (created > 0 && last_line(log).find("pthread_join returned 0") == std::string::npos) ||
        (created == 0 && log.find("StopService") != std::string::npos)) {
        return "the worker is not ended once:\n" + log;
    }
    return host->exists("/etc/ostrel/.lock") == (created > 0 && in_mid_pass) ? "" : "the lock file\n" + log;
}

TEST(Exit, EndsTheWorkerWhicheverClassWasLoadedLast) {
    const CMPIBroker broker{};
    std::vector<std::vector<std::string>> orders = {
        {"OstrelProvider"}, {"OstrelProviderSetting"}, {"OstrelProfileProvider"}, {"OstrelAssocProvider"}};
    std::vector<std::string> all = {"OstrelAssocProvider", "OstrelProfileProvider", "OstrelProvider",
                                    "OstrelProviderSetting"};
    do {
        orders.push_back(all);
    } while (std::next_permutation(all.begin(), all.end()));
    for (const auto& order : orders) {
        for (const End end : {End::exit, End::exit_after_one_cleanup, End::exit_after_all_cleanups, End::unload}) {
            const bool in_mid_pass = order.front() < order.back();
            SCOPED_TRACE(order.front() + " to " + order.back() + ", " + std::to_string(static_cast<int>(end)));
            in_a_process(
                [&] {
                    make_busy_host();
                    const Loaded library = load();
                    std::vector<CMPIInstanceMI*> loaded;
                    for (const std::string& name : order) {
                        const auto make = reinterpret_cast<Make>(dlsym(library, (name + "_Create_InstanceMI").c_str()));
                        loaded.push_back(static_cast<CMPIInstanceMI*>(make(&broker, nullptr, nullptr)));
                    }
                    if (host->log().find("Creating worker") != std::string::npos) {
                        host->set_horizon(in_mid_pass ? 1 : 10);
                        (void)host->wait_for_horizon(10);
                    }
                    if (end == End::exit_after_one_cleanup) {
                        loaded = {loaded.back()};
                    }
                    if (end == End::exit_after_one_cleanup || end == End::exit_after_all_cleanups) {
                        for (CMPIInstanceMI* const each : loaded) {
                            (void)each->ft->cleanup(each, nullptr, 1);
                        }
                    } else if (end == End::unload) {
                        (void)dlclose(library);
                    }
                },
                [&] { return check_end(in_mid_pass); });
        }
    }
}

// Who ends the process while a renewal runs: another thread, or a signal handler of the server on top of the call that
// waits for the renewal. A thread sanitizer refuses what the simulated host does below a handler.
enum class Who { another_thread, the_client_of_the_renewal };
#ifdef __SANITIZE_THREAD__
constexpr Who everyone[] = {Who::another_thread};
#else
constexpr Who everyone[] = {Who::another_thread, Who::the_client_of_the_renewal};
#endif

// Empty, or what is wrong after an exit during the renewal of the first of some targets.
std::string check_renewal(const std::map<std::string, int>& sessions) {
    const std::string log = host->log();
    for (const auto& [iqn, count] : sessions) {
        if (count_sessions(*host, iqn) != count) {
            return "a session of " + iqn + " is logged out:\n" + log;
        }
    }
    const auto lines = [&](const char* text) { return count_lines(log, "INFO", "renew_iscsi_connections", text); };
    return lines("thread started") == 1 && lines("Exiting connection renewal thread") == 1 ? "" : log;
}

TEST(Exit, WaitsForARenewalAndBeginsNoOther) {
    for (const Who who : everyone) {
        SCOPED_TRACE(static_cast<int>(who));
        std::atomic<bool> logged_out{false};
        std::map<std::string, int> before;
        in_a_process(
            [&] {
                simhost::HostOptions options;
                options.clock = simhost::ClockMode::scaled;
                options.factor = 100;
                options.login_seconds = 2;
                host = make_site(1, simhost::GroupMode::dynamic_discovery, options).release();
                host->write_file("/etc/ostrel/oxr.conf", "#\nworker_stop=0\n");
                const auto iqns = add_volumes(*host, 3, 4);
                for (const std::string& iqn : iqns) {
                    before[iqn] = count_sessions(*host, iqn);
                }
                host->observe([&](const simhost::Event& event) {
                    logged_out = logged_out || event.kind == simhost::Event::Kind::session_removed;
                });
                std::string error;
                cimserver::Broker* const broker =
                    cimserver::make_broker(load(), OXR_SOURCE_DIR "/cim", error).release();
                (void)std::signal(SIGUSR2, [](int) { std::exit(0); });
                std::thread renewing([=] { (void)renew(*broker, iqns); });
                while (!logged_out) {
                    std::this_thread::yield();
                }
                if (who == Who::the_client_of_the_renewal) {
                    pthread_kill(renewing.native_handle(), SIGUSR2);
                    renewing.join();
                }
                renewing.detach();
            },
            [&] { return check_renewal(before); });
    }
}

TEST(Exit, OnTheWorkerItselfWaitsForNothing) {
    in_a_process(
        [] {
            make_busy_host();
            host->observe([](const simhost::Event& event) {
                if (event.kind == simhost::Event::Kind::sleep_begun) {
                    std::exit(0);
                }
            });
            const CMPIBroker broker{};
            const auto make = reinterpret_cast<Make>(dlsym(load(), "OstrelProvider_Create_InstanceMI"));
            (void)make(&broker, nullptr, nullptr);
            host->set_horizon(10);
            pause();
        },
        [] { return host->log().find("StopService") == std::string::npos ? "" : host->log(); });
}

TEST(Exit, OfAForkedChildLeavesTheWorkerOfItsParentAlone) {
    in_a_process(
        [] {
            make_busy_host();
            const CMPIBroker broker{};
            const auto make = reinterpret_cast<Make>(dlsym(load(), "OstrelProvider_Create_InstanceMI"));
            (void)make(&broker, nullptr, nullptr);
            host->set_horizon(10);
            (void)host->wait_for_horizon(10);
            if (const pid_t child = fork(); child == 0) {
                alarm(60);
                check_at_exit = [] { _exit(host->log().find("StopService") == std::string::npos ? 0 : 3); };
                std::exit(0);
            } else {
                int status = 0;
                (void)waitpid(child, &status, 0);
                if (status != 0) {
                    _exit(4);
                }
            }
        },
        [] { return check_end(false); });
}

}  // namespace
