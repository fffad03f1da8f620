// Clients all at once, while the worker makes its passes: every request comes to an end, and the service is whole
// afterwards.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <set>
#include <sstream>
#include <thread>

#include "cimserver/broker/broker.h"
#include "cimserver/broker/request.h"
#include "cimserver/server.h"
#include "support/engine.h"
#include "support/site.h"

using namespace cimserver;

namespace {

constexpr char SERVICE[] = "OSTREL_ConnectionService";
constexpr char SETTING[] = "OSTREL_ConnectionServiceSetting";
constexpr double seconds_of_load = 60;
constexpr std::chrono::seconds longest{60};  // real time, by far enough for any request

ObjectPath path_of(const std::string& class_name) {
    return {{}, "ostrel/cimv2", class_name, {}};
}

bool wait_until(const std::function<bool()>& reached) {
    const auto give_up = std::chrono::steady_clock::now() + longest;
    while (!reached() && std::chrono::steady_clock::now() < give_up) {
        std::this_thread::sleep_for(std::chrono::seconds(1));  // of the host
    }
    return reached();
}

}  // namespace

TEST(Clients, EightAtOnceLeaveTheServiceWhole) {
    simhost::HostOptions options;
    options.clock = simhost::ClockMode::scaled;
    options.factor = 300;
    options.login_seconds = 0.5;
    options.claim_seconds = 1;
    const auto host = testing_support::make_site(2, simhost::GroupMode::dynamic_discovery, options);
    const auto iqns = testing_support::add_volumes(*host, 2, 8);
    std::string error;
    auto broker = make_broker(dlopen(OXR_LIBRARY, RTLD_NOW | RTLD_LOCAL), OXR_SOURCE_DIR "/cim", error);
    ASSERT_NE(broker, nullptr) << error;

    std::atomic<int> renewed{0};
    std::atomic<int> unexpected{0};
    const auto renew = [&](const std::string& name, const std::string& value) {
        const Answer answer = broker->invoke_method(
            path_of(SETTING), "renewiscsiconnections",
            {{"targets", text_list(iqns)}, {"paramname", text_value(name)}, {"paramvalue", text_value(value)}});
        const std::string status = answer.out.empty() ? "none" : value_text(*find(answer.out, "oxd_status"));
        renewed += status == "0" ? 1 : 0;
        // What a stop or a pass leaves behind may hold a renewal off: the lock file, a session that logs in.
        if (status != "0" && status != "10" && status != "3") {
            ADD_FAILURE() << "oxd status " << status;
        }
    };
    const auto set_value = [&](const std::string& name, std::uint32_t value) {
        const Answer answer = broker->invoke_method(path_of(SETTING), "SetValue",
                                                    {{"name", text_value(name)}, {"value", uint32_value(value)}});
        unexpected += answer.code == CMPI_RC_OK ? 0 : 1;
    };
    const auto service = [&](const std::string& method) {
        unexpected += broker->invoke_method(path_of(SERVICE), method, {}).code == CMPI_RC_OK ? 0 : 1;
    };
    const std::vector<std::function<void(unsigned)>> clients = {
        [&](unsigned) { renew("", ""); },
        [&](unsigned turn) {
            for (const char* const adapter : {"vmhba64", "vmhba65"}) {
                host->set_digests(adapter, turn % 2 == 0);
            }
            renew("iscsidigest", turn % 2 == 0 ? "enable" : "disable");
        },
        [&](unsigned turn) { set_value("interval", 60 + turn % 2 * 1000); },
        [&](unsigned turn) { set_value("vol_sessions", 8 - turn % 2); },
        [&](unsigned) { unexpected += broker->enumerate_instances(path_of(SETTING), {}).instances.size() != 2; },
        [&](unsigned) { unexpected += broker->enumerate_instances(path_of("CIM_Service"), {}).instances.size() != 1; },
        [&](unsigned) { service("startservice"); },
        [&](unsigned turn) { service(turn % 40 == 20 ? "stopservice" : "startservice"); },
    };
    const double end = host->now() + seconds_of_load;
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
        if (client.wait_for(longest) != std::future_status::ready) {
            std::fprintf(stderr, "a client hangs:\n%s\n", host->log().c_str());
            std::abort();  // nothing could be joined
        }
    }
    EXPECT_EQ(unexpected, 0) << host->log();
    EXPECT_GT(renewed, 0);

    // The worker starts and makes a pass, and a renewal succeeds after it.
    set_value("interval", 60);
    set_value("vol_sessions", 8);
    service("stopservice");
    service("startservice");
    const std::uint64_t passes = host->calls("psp.0");
    EXPECT_TRUE(wait_until([&] { return host->calls("psp.0") > passes && !host->exists("/etc/ostrel/.lock"); }));
    EXPECT_TRUE(wait_until([&, before = renewed.load()] {
        renew("", "");
        return renewed > before;
    }));

    // Every line of the configuration is a comment or a value, each key once.
    std::istringstream config(host->read_file("/etc/ostrel/oxr.conf"));
    std::multiset<std::string> keys;
    for (std::string line; std::getline(config, line);) {
        if (!line.empty() && line[0] != '#') {
            const auto at = line.find('=');
            ASSERT_NE(at, std::string::npos) << line;
            keys.insert(line.substr(0, at));
        }
    }
    EXPECT_EQ(keys.count("interval"), 1U);
    EXPECT_EQ(keys.count("vol_sessions"), 1U);
    EXPECT_EQ(keys.size(), std::set<std::string>(keys.begin(), keys.end()).size());
    service("stopservice");
    EXPECT_EQ(live_objects(), 0);
    broker.reset();
    EXPECT_EQ(live_objects(), 0);
    testing_support::expect_nothing_held(*host);
    for (const std::string& iqn : iqns) {
        EXPECT_GE(testing_support::count_sessions(*host, iqn), 7);
    }
}
