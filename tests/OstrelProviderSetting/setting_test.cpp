// The settings against the configuration file: what a client sets loses nothing, what it sees stood in the file.
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <utility>

#include "OstrelProviderSetting/setting_class.h"
#include "OstrelProviderSetting/setting_methods.h"
#include "cimserver/broker/broker.h"
#include "cimserver/broker/objects.h"
#include "cimserver/mof/reader.h"
#include "support/cim.h"
#include "support/host_test.h"
#include "support/site.h"

namespace {

using namespace cimserver;
using testing_support::Lines;

constexpr char COMPLETE[] = "use_ostrel_timeouts=1\nostrel_logs_path=/var/log/ostrel\n";

class Setting : public testing_support::HostTest {
protected:
    void write(const std::string& text) { host->write_file(OSTREL_CONFIG_FILE, text); }
    std::string file() const { return host->read_file(OSTREL_CONFIG_FILE); }
    static void set_sessions(std::uint32_t value) {
        const Request request;
        (void)set_value(
            "SetValue", nullptr,
            make_object<ArgsObject>(NamedList{{"name", text_value("vol_sessions")}, {"value", uint32_value(value)}}));
    }
};

// A file whose values aren't known, or that can't be written whole, is left alone, and the log says so.
TEST_F(Setting, AFailedSetValueLosesNothing) {
    const std::string by_hand = std::string("# by hand\nworker_stop=1\n") + COMPLETE;
    const std::string unread = "ERROR SetValue: Failed to get values from the config file. Using default values.";
    const std::string failed = "ERROR SetValue: failed to set values in oxr.conf";
    const std::string full = "ERROR set_value_in_file: No space left on device, writing oxr.conf failed";
    const std::string empty =
        "ERROR OSTREL_GetConfigValues: No data available, reading oxr.conf failed. Keeping the previous values.";
    const std::string closed = "ERROR OSTREL_GetConfigValues: Input/output error, fopen() failed on oxr.conf.";
    const std::string broken =
        "ERROR OSTREL_GetConfigValues: Input/output error, reading oxr.conf failed. Keeping the previous values.";
    const std::string old =
        "ERROR OSTREL_GetConfigValues: oxr.conf is in the old format and has not been converted. Leaving it as it is.";
    const struct {
        std::string text;
        simhost::Fault fault;
        Lines errors;
    } cases[] = {
        {"interval:300\nworker_stop:1\n", {}, {old, unread, failed}},
        {"", {}, {empty, unread, failed}},
        {by_hand, testing_support::failing_with("open", EIO, "oxr.conf"), {closed, unread, failed}},
        {by_hand, testing_support::failing_with("read", EIO, "oxr.conf"), {broken, unread, failed}},
        {by_hand, testing_support::failing_with("write", ENOSPC, "oxr.conf"), {full}},
        {by_hand + std::string(5000, '#'), testing_support::failing_with("ftruncate", ENOSPC, "oxr.conf"), {full}},
    };
    for (const auto& each : cases) {
        write(each.text);
        host->fail(each.fault);
        set_sessions(4);
        EXPECT_EQ(file(), each.text);
        EXPECT_EQ(said("ERROR"), each.errors) << each.text;
        host->clear_faults();
    }
}

// A result that does something once, at the first instance it gets.
struct InterruptedResult {
    ResultObject object;
    CMPIResultFT table = result_table;
    static inline std::function<void()> interruption;

    InterruptedResult() {
        table.returnInstance = [](const CMPIResult* result, const CMPIInstance* instance) {
            if (const auto once = std::exchange(interruption, nullptr)) {
                once();
            }
            return result_table.returnInstance(result, instance);
        };
        object.ft = &table;
    }
    std::vector<std::string> values() const {
        std::vector<std::string> found;
        for (const Value& each : object.values) {
            found.push_back(
                value_text(*find(std::get<std::shared_ptr<const Instance>>(each.data)->properties, "value")));
        }
        return found;
    }
};

TEST_F(Setting, AnEnumerationAnswersFromOneReading) {
    std::string error;
    Schema schema;
    for (const char* const file : {"cim_schema_minimal.mof", "ostrel.mof"}) {
        ASSERT_TRUE(read_mof_file(std::string(OXR_SOURCE_DIR "/cim/") + file, schema, error)) << error;
    }
    const Broker broker(std::move(schema));
    auto* const interface = OstrelProviderSetting_Create_InstanceMI(broker.handle(), nullptr, nullptr);
    const Request request;
    auto* const path = make_object<PathObject>(testing_support::path_of(SETTING_CLASS));
    const auto enumerate = [&](const InterruptedResult& result) {
        (void)OstrelProviderSettingEnumInstances(nullptr, nullptr, &result.object, path, nullptr);
    };
    InterruptedResult first;
    InterruptedResult second;
    write(std::string("# \ninterval=120\nvol_sessions=4\n") + COMPLETE);
    InterruptedResult::interruption = [&] {
        write(std::string("# \ninterval=300\nvol_sessions=5\n") + COMPLETE);
        enumerate(second);
    };
    enumerate(first);
    EXPECT_EQ(first.values(), (std::vector<std::string>{"120", "4"}));
    EXPECT_EQ(second.values(), (std::vector<std::string>{"300", "5"}));
    (void)interface->ft->cleanup(interface, nullptr, 1);
}

}  // namespace
