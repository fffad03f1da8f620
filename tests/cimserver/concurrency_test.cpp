// Clients all at once, while the worker makes its passes: every request comes to an end, and the service is whole
// afterwards.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "cimserver/broker/broker.h"
#include "cimserver/broker/request.h"
#include "cimserver/server.h"
#include "support/cim.h"
#include "support/config_text.h"
#include "support/engine.h"
#include "support/site.h"

using namespace cimserver;
using namespace testing_support;

TEST(Clients, EightAtOnceLeaveTheServiceWhole) {
    const simhost::HostOptions options{
        .root = {}, .clock = simhost::ClockMode::scaled, .factor = 60, .login_seconds = 0.5, .claim_seconds = 1};
    const auto host = make_site(2, simhost::GroupMode::dynamic_discovery, options);
    const auto iqns = add_volumes(*host, 2, 8);
    auto broker = load_providers(dlopen(OXR_LIBRARY, RTLD_NOW | RTLD_LOCAL));

    std::atomic<int> renewed{0};
    std::atomic<int> unexpected{0};
    const auto renew_all = [&](const std::string& name = "", const std::string& value = "") {
        const std::string status = renew(*broker, iqns, name, value);
        renewed += status == "0" ? 1 : 0;
        // What a stop or a pass leaves behind may hold a renewal off: the lock file, a session that logs in.
        EXPECT_TRUE(status == "0" || status == "10" || status == "3") << status;
    };
    std::uint32_t interval = 0;
    std::uint32_t sessions = 0;
    const auto set = [&](const std::string& name, std::uint32_t value) {
        unexpected += set_value(*broker, name, value).code == CMPI_RC_OK ? 0 : 1;
        (name == "interval" ? interval : sessions) = value;
    };
    const auto call = [&](const std::string& method) {
        unexpected += broker->invoke_method(service(), method, {}).code == CMPI_RC_OK ? 0 : 1;
    };
    const std::vector<std::function<void(unsigned)>> clients = {
        [&](unsigned) { renew_all(); },
        [&](unsigned turn) {
            for (const char* const adapter : {"vmhba64", "vmhba65"}) {
                host->set_digests(adapter, turn % 2 == 0);
            }
            renew_all("iscsidigest", turn % 2 == 0 ? "enable" : "disable");
        },
        [&](unsigned turn) { set("interval", 60 + turn); },
        [&](unsigned turn) { set("vol_sessions", 8 - turn % 2); },
        [&](unsigned) { unexpected += broker->enumerate_instances(path_of(SETTING), {}).instances.size() != 2; },
        [&](unsigned) { unexpected += broker->enumerate_instances(path_of("CIM_Service"), {}).instances.size() != 1; },
        [&](unsigned) { call("startservice"); },
        [&](unsigned turn) { call(turn % 20 == 10 ? "stopservice" : "startservice"); },
    };
    const double end = host->now() + 60;
    std::vector<std::future<void>> running;
    for (const auto& client : clients) {
        running.push_back(std::async(std::launch::async, [&] {
            for (unsigned turn = 0; host->now() < end || (renewed == 0 && host->now() < end + 600); ++turn) {
                client(turn);
                std::this_thread::sleep_for(std::chrono::milliseconds(500));  // of the host
            }
        }));
    }
    for (auto& client : running) {
        client.get();
    }
    EXPECT_EQ(unexpected, 0) << host->log();
    EXPECT_GT(renewed, 0);

    EXPECT_EQ(host->read_file(OSTREL_CONFIG_FILE), config_text({.interval = interval, .vol_sessions = sessions}));

    // The worker starts and makes a pass, and a renewal succeeds after it.
    set("interval", 60);
    set("vol_sessions", 8);
    call("stopservice");
    call("startservice");
    const std::uint64_t passes = host->calls("psp.0");
    EXPECT_TRUE(wait_until([&] { return host->calls("psp.0") > passes && !host->exists("/etc/ostrel/.lock"); }));
    EXPECT_TRUE(wait_until([&, before = renewed.load()] {
        renew_all();
        return renewed > before;
    }));
    call("stopservice");
    EXPECT_EQ(unexpected, 0) << host->log();
    broker.reset();
    EXPECT_EQ(live_objects(), 0);
    expect_nothing_held(*host);
    for (const std::string& iqn : iqns) {
        EXPECT_GE(count_sessions(*host, iqn), 7);
    }
}
