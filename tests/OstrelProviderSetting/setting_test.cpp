// The settings against the configuration file: what a client sets loses nothing, what it sees stood in the file.
#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "OstrelProviderSetting/setting_class.h"
#include "OstrelProviderSetting/setting_methods.h"
#include "cimserver/broker/broker.h"
#include "cimserver/broker/objects.h"
#include "cimserver/mof/reader.h"
#include "support/cim.h"
#include "support/host_test.h"

namespace {

using namespace cimserver;
using testing_support::HostTest;
using testing_support::Lines;

TEST_F(HostTest, AFileWhoseValuesAreNotKnownIsNotSet) {
    for (const std::string text : {"interval:300\nworker_stop:1\n", ""}) {
        host->write_file(OSTREL_CONFIG_FILE, text);
        const Request request;
        auto* const in =
            make_object<ArgsObject>(NamedList{{"name", text_value("interval")}, {"value", uint32_value(60)}});
        (void)set_value("SetValue", nullptr, in);
        EXPECT_EQ(host->read_file(OSTREL_CONFIG_FILE), text);
        EXPECT_EQ(said("ERROR SetValue").size(), 2U);  // it can't be read, so it isn't set
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
    auto* const path = make_object<PathObject>(testing_support::path_of(SETTING_CLASS));
    (void)OstrelProviderSettingEnumInstances(nullptr, nullptr, &result, path, nullptr);
    Lines found;
    for (const Value& each : result.values) {
        found.push_back(value_text(*find(std::get<std::shared_ptr<const Instance>>(each.data)->properties, "value")));
    }
    return found;
}

TEST_F(HostTest, AnEnumerationOfSettingsAnswersFromOneReading) {
    std::string error;
    Schema schema;
    for (const char* const file : {"cim_schema_minimal.mof", "ostrel.mof"}) {
        ASSERT_TRUE(read_mof_file(std::string(OXR_SOURCE_DIR "/cim/") + file, schema, error)) << error;
    }
    const Broker broker(std::move(schema));
    auto* const interface = OstrelProviderSetting_Create_InstanceMI(broker.handle(), nullptr, nullptr);
    const Request request;
    host->write_file(OSTREL_CONFIG_FILE, "#\ninterval=120\nvol_sessions=4\n");
    Lines in_between;
    interruption = [&] {
        host->write_file(OSTREL_CONFIG_FILE, "#\ninterval=300\nvol_sessions=5\n");
        in_between = enumerated_values();
    };
    EXPECT_EQ(enumerated_values(), (Lines{"120", "4"}));
    EXPECT_EQ(in_between, (Lines{"300", "5"}));
    (void)interface->ft->cleanup(interface, nullptr, 1);
}

}  // namespace
