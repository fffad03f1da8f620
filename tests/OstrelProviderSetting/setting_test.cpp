// The settings against the configuration file: what a client sets loses nothing, what it sees stood in the file; and
// the renewal method against the worker's lock file.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <utility>

#include "OstrelConnections/psp/psp_records.h"
#include "OstrelConnections/renewal/renewal.h"
#include "OstrelProvider/service.h"
#include "OstrelProvider/worker.h"
#include "OstrelProviderSetting/setting_class.h"
#include "OstrelProviderSetting/setting_methods.h"
#include "cimserver/broker/objects.h"
#include "cimserver/server.h"
#include "support/cim.h"
#include "support/host_test.h"

namespace {

using namespace cimserver;
using namespace testing_support;

class SettingTest : public HostTest {
protected:
    std::unique_ptr<Broker> broker;

    SettingTest() {
        host->set_horizon(0);
        broker = load_providers(RTLD_DEFAULT);
        EXPECT_EQ(StopService(), 0);
        host->set_horizon(1000);
    }
};

TEST_F(SettingTest, AFileWhoseValuesAreNotKnownIsNotSet) {
    for (const std::string text : {"interval:300\nworker_stop:1\n", ""}) {
        host->write_file(OSTREL_CONFIG_FILE, text);
        (void)set_value(*broker, "interval", 60);
        EXPECT_EQ(host->read_file(OSTREL_CONFIG_FILE), text);
        EXPECT_TRUE(said("ERROR").back().ends_with("failed to set values in oxr.conf"));
    }
}

std::function<void()> interruption;  // at the first instance that an enumeration returns

Lines enumerated_values() {
    static CMPIResultFT table = result_table;
    table.returnInstance = [](const CMPIResult* result, const CMPIInstance* instance) {
        if (const auto once = std::exchange(interruption, nullptr)) {
            once();
        }
        return result_table.returnInstance(result, instance);
    };
    ResultObject result;
    result.ft = &table;
    auto* const path = make_object<PathObject>(path_of(SETTING_CLASS));
    (void)OstrelProviderSettingEnumInstances(nullptr, nullptr, &result, path, nullptr);
    Lines found;
    for (const CimValue& each : result.values) {
        found.push_back(value_text(*find(std::get<std::shared_ptr<const Instance>>(each.data)->properties, "value")));
    }
    return found;
}

TEST_F(SettingTest, AnEnumerationOfSettingsAnswersFromOneReading) {
    const Request request;
    host->write_file(OSTREL_CONFIG_FILE, "#\ninterval=120\nvol_sessions=4\n");
    Lines in_between;
    interruption = [&] {
        host->write_file(OSTREL_CONFIG_FILE, "#\ninterval=300\nvol_sessions=5\n");
        in_between = enumerated_values();
    };
    EXPECT_EQ(enumerated_values(), (Lines{"120", "4"}));
    EXPECT_EQ(in_between, (Lines{"300", "5"}));
}

// A lock file that can't be seen may be there; one that a pass couldn't make, in a full folder, holds off as well.
TEST_F(SettingTest, ARenewalIsHeldOffByThePassAndByALockFileThatCannotBeSeen) {
    const std::string held_off = std::to_string(OXD_POLLING_PASS_TIMEOUT);
    const double slept = host->slept();
    host->write_file("/etc/ostrel/oxr.conf", "#\n");
    host->fail(lasting(failing_with("access", EIO, ".lock")));
    EXPECT_EQ(renew(*broker, {"iqn.unknown"}), held_off);
    EXPECT_EQ(host->slept() - slept, 59);
    host->clear_faults();
    EXPECT_EQ(renew(*broker, {"iqn.unknown"}), std::to_string(OXD_DEVICE_NOT_FOUND));
    host->fail(lasting(failing_with("open", ENOSPC, ".lock")));
    std::string in_mid_pass;
    host->script_psp(OSTREL_PSP_IOCTL_GET_ALL_DEVICE_INFO, [&](void*, int result) {
        in_mid_pass = renew(*broker, {"iqn.unknown"});
        return result;
    });
    run_cycle(*host);
    EXPECT_EQ(in_mid_pass, held_off);
    EXPECT_EQ(renew(*broker, {"iqn.unknown"}), std::to_string(OXD_DEVICE_NOT_FOUND));
}

}  // namespace
