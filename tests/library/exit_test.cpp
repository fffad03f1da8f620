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

simhost::Host* host = nullptr;
std::function<void()> check_at_exit;

// Runs in a process of its own that ends by exit(); `check`, after the library's end, tells what is wrong.
void in_a_process(const std::function<void()>& act, const std::function<std::string()>& check) {
    EXPECT_EXIT(
        {
            alarm(60);
            check_at_exit = [&] {
                const std::string wrong = check();
                std::cerr << wrong;
                _exit(wrong.empty() ? 0 : 1);
            };
            (void)std::atexit([] { check_at_exit(); });
            act();
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}

void make_busy_host() {
    host = make_site(2).release();
    host->write_file("/etc/ostrel/oxr.conf", "# as it is\nuse_ostrel_timeouts=1\nostrel_logs_path=/var/log/ostrel\n");
    add_volumes(*host, 1, 2);
    host->set_horizon(0);
}

void* load() {
    void* const library = dlopen(OXR_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::cerr << dlerror();
        _exit(2);
    }
    return library;
}

CMPIInstanceMI* make_provider(void* library, const std::string& name) {
    static const CMPIBroker broker{};
    return create<CMPIInstanceMI>(library, name + "_Create_InstanceMI", &broker);
}

// Empty, or what is wrong with the end of a process in which workers ran.
std::string check_end(bool in_mid_pass) {
    const std::string log = host->log();
    const int created = count_lines(log, "INFO StartService: Creating worker thread");
    const int joined = count_lines(log, "INFO StopService: do_work thread killed. pthread_join returned 0");
    if (joined != created || (created == 0) != (log.find("StopService") == std::string::npos) ||
        (created > 0 && !log.ends_with("pthread_join returned 0\n"))) {
        return "the worker is not ended once:\n" + log;
    }
    return host->exists("/etc/ostrel/.lock") == (created > 0 && in_mid_pass) ? "" : "the lock file\n" + log;
}

TEST(Exit, EndsTheWorkerWhicheverClassWasLoadedLast) {
    std::vector<std::vector<std::string>> orders = {
        {"OstrelProvider"}, {"OstrelProviderSetting"}, {"OstrelProfileProvider"}, {"OstrelAssocProvider"}};
    std::vector<std::string> all = {"OstrelAssocProvider", "OstrelProfileProvider", "OstrelProvider",
                                    "OstrelProviderSetting"};
    do {
        orders.push_back(all);
    } while (std::next_permutation(all.begin(), all.end()));
    for (const auto& order : orders) {
        // Whether the library is unloaded, or how many of its classes are cleaned up before the exit.
        for (const auto& [unload, cleanups] : {std::pair(false, 0U), {false, 1U}, {false, 4U}, {true, 0U}}) {
            const bool in_mid_pass = order.front() < order.back();
            SCOPED_TRACE(order.front() + " to " + order.back() + ", " + std::to_string(cleanups));
            in_a_process(
                [&, unload = unload, cleanups = cleanups] {
                    make_busy_host();
                    void* const library = load();
                    std::vector<CMPIInstanceMI*> loaded;
                    for (const std::string& name : order) {
                        loaded.push_back(make_provider(library, name));
                    }
                    if (host->log().find("Creating worker") != std::string::npos) {
                        host->set_horizon(in_mid_pass ? 1 : 10);
                        (void)host->wait_for_horizon(10);
                    }
                    for (std::size_t i = loaded.size() - std::min<std::size_t>(cleanups, loaded.size());
                         i < loaded.size(); ++i) {
                        (void)loaded[i]->ft->cleanup(loaded[i], nullptr, 1);
                    }
                    if (unload) {
                        (void)dlclose(library);
                    }
                },
                [&] { return check_end(in_mid_pass); });
        }
    }
}

// Empty, or what is wrong after an exit during the renewal of the first of some targets.
std::string check_renewal(const std::map<std::string, int>& sessions) {
    const std::string log = host->log();
    for (const auto& [iqn, count] : sessions) {
        if (count_sessions(*host, iqn) != count) {
            return "a session of " + iqn + " is logged out:\n" + log;
        }
    }
    const bool is_only_one = count_lines(log, "renew_iscsi_connections thread started") == 1 &&
                             count_lines(log, "Exiting connection renewal thread") == 1;
    return is_only_one ? "" : log;
}

// Another thread ends the process while a renewal runs, or a signal handler of the server does, on top of the call that
// waits for the renewal. A thread sanitizer refuses what the simulated host does below a handler.
TEST(Exit, WaitsForARenewalAndBeginsNoOther) {
    for (const bool by_the_client : {false, true}) {
#ifdef __SANITIZE_THREAD__
        if (by_the_client) {
            continue;
        }
#endif
        SCOPED_TRACE(by_the_client);
        std::atomic<bool> logged_out{false};
        std::map<std::string, int> before;
        in_a_process(
            [&] {
                host = make_site(1, simhost::GroupMode::dynamic_discovery,
                                 {.root = {}, .clock = simhost::ClockMode::scaled, .factor = 100, .login_seconds = 2})
                           .release();
                host->write_file("/etc/ostrel/oxr.conf", "#\nworker_stop=0\n");
                const auto iqns = add_volumes(*host, 3, 4);
                for (const std::string& iqn : iqns) {
                    before[iqn] = count_sessions(*host, iqn);
                }
                host->observe([&](const simhost::Event& event) {
                    logged_out = logged_out || event.kind == simhost::Event::Kind::session_removed;
                });
                const cimserver::Broker* const broker = load_providers(load()).release();
                (void)std::signal(SIGUSR2, [](int) { std::exit(0); });
                std::thread renewing([=] { (void)renew(*broker, iqns); });
                while (!logged_out) {
                    std::this_thread::yield();
                }
                if (by_the_client) {
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
            (void)make_provider(load(), "OstrelProvider");
            host->set_horizon(10);
            pause();
        },
        [] { return host->log().find("StopService") == std::string::npos ? "" : host->log(); });
}

TEST(Exit, OfAForkedChildLeavesTheWorkerOfItsParentAlone) {
    in_a_process(
        [] {
            make_busy_host();
            (void)make_provider(load(), "OstrelProvider");
            host->set_horizon(10);
            (void)host->wait_for_horizon(10);
            const pid_t child = fork();
            if (child == 0) {
                alarm(60);
                check_at_exit = [] { _exit(host->log().find("StopService") == std::string::npos ? 0 : 3); };
                std::exit(0);
            }
            int status = 0;
            (void)waitpid(child, &status, 0);
            if (status != 0) {
                _exit(4);
            }
        },
        [] { return check_end(false); });
}

}  // namespace
