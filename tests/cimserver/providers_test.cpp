// The shipped library behind the broker: what clients get for good and for bad input.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "cimserver/broker/broker.h"
#include "cimserver/broker/path_text.h"
#include "cimserver/broker/request.h"
#include "cimserver/server.h"
#include "simhost/host.h"
#include "support/cim.h"

namespace {

using namespace cimserver;
using namespace testing_support;

class Providers : public ::testing::Test {
protected:
    simhost::Host host;
    std::unique_ptr<Broker> broker;

    Providers() {
        host.set_horizon(0);
        host.write_file("/etc/ostrel/oxdversion.txt", "2.0.1\n");
        void* const library = dlopen(OXR_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        EXPECT_NE(library, nullptr);
        std::string error;
        broker = make_broker(library, OXR_SOURCE_DIR "/cim", error);
        EXPECT_NE(broker, nullptr) << error;
        EXPECT_TRUE(host.wait_for_horizon(10));
    }
    void TearDown() override {
        broker.reset();
        EXPECT_EQ(live_objects(), 0);
        EXPECT_FALSE(host.exists("/etc/ostrel/.lock"));
    }
    Answer call(const std::string& method, const NamedList& in) {
        Answer answer = broker->invoke_method(path_of(SETTING), method, in);
        EXPECT_EQ(live_objects(), 0) << method;
        return answer;
    }
    std::string config_line(const std::string& key) {
        const std::string text = host.read_file("/etc/ostrel/oxr.conf");
        const auto at = text.find("\n" + key + "=");
        return at == std::string::npos ? std::string() : text.substr(at + 1, text.find('\n', at + 1) - at - 1);
    }
};

TEST_F(Providers, EnumerationsReachThemFromAnySuperclass) {
    const struct {
        const char* class_name;
        std::size_t instances;
    } cases[] = {{SERVICE, 1},
                 {"cim_service", 1},
                 {SETTING, 2},
                 {"CIM_SettingData", 2},
                 {ASSOCIATION, 2},
                 {"CIM_ManagedElement", 3},
                 {"Unknown", 0},
                 {"", 0},
                 {"OSTREL_RegisteredProfile", 0}};
    for (const auto& c : cases) {
        EXPECT_EQ(broker->enumerate_instance_names(path_of(c.class_name)).paths.size(), c.instances) << c.class_name;
        EXPECT_EQ(broker->enumerate_instances(path_of(c.class_name), {}).instances.size(), c.instances) << c.class_name;
    }
    const Instance made = broker->enumerate_instances(path_of(SERVICE), {}).instances.at(0);
    EXPECT_EQ(value_text(*find(made.properties, "version")), "oxd:2.0.1 psp:0.0.0");
    EXPECT_EQ(
        path_text(made.path),
        "ostrel/cimv2:OSTREL_ConnectionService.name=\"OSTREL Connection Service\",CreationClassName=\""
        "OSTREL_ConnectionService\",SystemName=\"localhost\",SystemCreationClassName=\"OMC_UnitaryComputerSystem\"");
}

TEST_F(Providers, APropertyListKeepsTheNameAndWhatItNames) {
    const struct {
        std::vector<std::string> list;
        std::size_t properties;
    } cases[] = {{{}, 1}, {{"nothing", "of", "it"}, 1}, {{"VALUE"}, 2}, {{"value", "value", "minimum"}, 2}};
    for (const auto& c : cases) {
        const Answer answer = broker->enumerate_instances(path_of(SETTING), PropertyList(c.list));
        ASSERT_EQ(answer.instances.size(), 2U);
        EXPECT_EQ(answer.instances[0].properties.size(), c.properties);
    }
    EXPECT_EQ(broker->references(service(), {}, PropertyList(std::in_place)).instances.size(), 2U);
}

TEST_F(Providers, GetInstanceTakesAnyKeysButTheAssociationsOwn) {
    const Value to_service = path_value(service());
    const Value to_interval = path_value(named(SETTING, "interval"));
    const struct {
        ObjectPath path;
        CMPIrc code;
    } cases[] = {
        {path_of(SERVICE), CMPI_RC_OK},
        {path_of(SERVICE, {{"name", to_service}, {"more", uint32_value(1)}}), CMPI_RC_OK},
        {named(SETTING, "no such setting"), CMPI_RC_OK},
        {path_of("CIM_Service"), CMPI_RC_ERR_NOT_FOUND},
        {path_of("Unknown"), CMPI_RC_ERR_NOT_FOUND},
        {path_of(ASSOCIATION), CMPI_RC_ERR_NOT_FOUND},
        {path_of(ASSOCIATION, {{"ManagedElement", to_service}}), CMPI_RC_ERR_NOT_FOUND},
        {path_of(ASSOCIATION, {{"ManagedElement", text_value("x")}, {"SettingData", text_value("y")}}),
         CMPI_RC_ERR_NOT_FOUND},
        {path_of(ASSOCIATION, {{"ManagedElement", to_interval}, {"SettingData", to_service}}), CMPI_RC_ERR_NOT_FOUND},
        {path_of(ASSOCIATION, {{"ManagedElement", to_service}, {"SettingData", path_value(path_of(SETTING))}}),
         CMPI_RC_ERR_NOT_FOUND},
        {path_of(ASSOCIATION, {{"ManagedElement", to_service}, {"SettingData", to_interval}}), CMPI_RC_OK},
    };
    for (const auto& c : cases) {
        const Answer answer = broker->get_instance(c.path, {});
        EXPECT_EQ(answer.code, c.code) << path_text(c.path);
        EXPECT_EQ(answer.instances.size(), c.code == CMPI_RC_OK ? 1U : 0U) << path_text(c.path);
    }
}

TEST_F(Providers, TheAssociationIsWalkedBothWays) {
    const struct {
        ObjectPath source;
        AssociationFilter filter;
        std::size_t others, names, references, reference_names;
    } cases[] = {
        {service(), {}, 2, 2, 2, 2},
        {service(), {.role = "ManagedElement"}, 2, 2, 2, 2},
        {service(), {.role = "ostrel_connectionservice"}, 0, 0, 2, 0},
        {service(), {.result_role = SETTING}, 0, 0, 2, 2},
        {service(), {.result_class = SETTING}, 2, 2, 0, 0},
        {service(), {.result_class = "CIM_ElementSettingData"}, 0, 0, 0, 2},
        {service(), {.result_class = ASSOCIATION}, 0, 0, 2, 2},
        {service(), {.result_class = "Unknown"}, 0, 0, 0, 0},
        {service(), {.assoc_class = SETTING}, 0, 0, 2, 2},
        {named(SETTING, "interval"), {}, 1, 1, 1, 1},
        {named(SETTING, "other"), {}, 0, 0, 0, 0},
        {named(SERVICE, "other"), {}, 0, 0, 0, 0},
        {path_of(SETTING), {}, 0, 0, 0, 0},
        {path_of(SETTING, {{"name", path_value(service())}}), {}, 0, 0, 0, 0},
        {path_of(SETTING, {{"name", uint32_value(1)}}), {}, 0, 0, 0, 0},
        {path_of("CIM_Service", service().keys), {}, 0, 0, 0, 0},
        {path_of("Unknown", service().keys), {}, 0, 0, 0, 0},
    };
    for (const auto& c : cases) {
        const std::string what = path_text(c.source) + " " + c.filter.role + " " + c.filter.result_class;
        EXPECT_EQ(broker->associators(c.source, c.filter, {}).instances.size(), c.others) << what;
        EXPECT_EQ(broker->associator_names(c.source, c.filter).paths.size(), c.names) << what;
        EXPECT_EQ(broker->references(c.source, c.filter, {}).instances.size(), c.references) << what;
        EXPECT_EQ(broker->reference_names(c.source, c.filter).paths.size(), c.reference_names) << what;
        EXPECT_EQ(live_objects(), 0) << what;
    }
}

TEST_F(Providers, SetValueAnswersForEveryArgument) {
    const Value interval = text_value("interval");
    const std::string no_name = "4 SetValue parameter \"name\" not specified";
    const std::string wrong_name = "6 arg parameter for \"name\" can be \"interval\" or \"vol_sessions\"";
    const std::string no_value = "4 SetValue parameter \"value\" not specified";
    const std::string bad_interval = "4 SetValue parameter \"value\" for interval is out of range";
    const std::string bad_sessions = "4 SetValue parameter \"value\" for vol_sessions is out of range";
    const struct {
        NamedList in;
        std::string answer;
    } cases[] = {
        {{}, no_name},
        {{{"name", null_value(CMPI_string)}}, no_name},
        {{{"name", uint32_value(1)}}, no_name},
        {{{"name", text_list({"interval"})}}, no_name},
        {{{"name", path_value(service())}}, no_name},
        {{{"name", text_value("")}}, "6 arg parameter for \"name\" is not specified"},
        {{{"name", text_value("intervals")}, {"value", uint32_value(60)}}, wrong_name},
        {{{"name", text_value(std::string(1U << 20, 'x'))}, {"value", uint32_value(60)}}, wrong_name},
        {{{"name", interval}}, no_value},
        {{{"name", interval}, {"value", null_value(CMPI_uint32)}}, no_value},
        {{{"name", interval}, {"value", text_value("300")}}, no_value},
        {{{"name", interval}, {"value", Value{CMPI_uint64, std::uint64_t{300}}}}, no_value},
        {{{"name", interval}, {"value", text_list({"300"})}}, no_value},
        {{{"name", interval}, {"value", uint32_value(59)}}, bad_interval},
        {{{"name", interval}, {"value", uint32_value(604801)}}, bad_interval},
        {{{"name", interval}, {"value", uint32_value(4294967295U)}}, bad_interval},
        {{{"name", text_value("vol_sessions")}, {"value", uint32_value(0)}}, bad_sessions},
        {{{"name", text_value("vol_sessions")}, {"value", uint32_value(9)}}, bad_sessions},
        {{{"NAME", text_value("INTERVAL")}, {"Value", uint32_value(604800)}}, "0 Succeeded!"},
        {{{"name", text_value("Vol_Sessions")}, {"value", uint32_value(8)}}, "0 Succeeded!"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(told(call("SetValue", c.in)), c.answer);
    }
    EXPECT_EQ(config_line("interval"), "interval=604800");
    EXPECT_EQ(config_line("vol_sessions"), "vol_sessions=8");
}

TEST_F(Providers, RenewalAnswersForEveryArgument) {
    const Value iqn = text_list({"iqn.unknown"});
    const Value null_text = null_value(CMPI_string);
    const Named name{"paramname", null_text};
    const Named value{"paramvalue", null_text};
    const std::string no_targets = "4 renewIscsiConnections parameter \"targets\" missing or no targets specified";
    const std::string empty = "4 NULL target IQN list passed";
    const std::string no_iqn = "4 Invalid target IQN passed";
    const std::string no_paramname = "4 RenewIscsiConnections parameter \"paramname\" missing or no targets specified";
    const std::string no_paramvalue =
        "4 RenewIscsiConnections parameter \"paramValue\" missing or no targets specified";
    const struct {
        NamedList in;
        std::string answer;
    } cases[] = {
        {{}, no_targets},
        {{{"targets", null_value(CMPI_stringA)}, name, value}, no_targets},
        {{{"targets", text_value("iqn.a")}, name, value}, no_targets},
        {{{"targets", uint32_value(1)}, name, value}, no_targets},
        {{{"targets", Value{CMPI_stringA, ValueList()}}, name, value}, empty},
        {{{"targets", Value{CMPI_instanceA, ValueList()}}, name, value}, empty},
        {{{"targets", text_list({""})}, name, value}, no_iqn},
        {{{"targets", text_list({"IQN.a"})}, name, value}, no_iqn},
        {{{"targets", text_list({"iqn.a", "x"})}, name, value}, no_iqn},
        {{{"targets", Value{CMPI_stringA, ValueList{text_value("iqn.a"), null_text}}}, name, value}, no_iqn},
        {{{"targets", iqn}, value}, no_paramname},
        {{{"targets", iqn}, {"paramname", uint32_value(1)}, value}, no_paramname},
        {{{"targets", iqn}, {"paramname", iqn}, value}, no_paramname},
        {{{"targets", iqn}, name}, no_paramvalue},
        {{{"targets", iqn}, name, {"paramvalue", uint32_value(1)}}, no_paramvalue},
    };
    for (const auto& c : cases) {
        const Answer answer = call("renewiscsiconnections", c.in);
        EXPECT_EQ(told(answer), c.answer);
        EXPECT_TRUE(answer.out.empty()) << c.answer;
    }
    const Answer numbers =
        call("renewiscsiconnections", {{"targets", Value{CMPI_uint32A, ValueList{uint32_value(1)}}}, name, value});
    EXPECT_EQ(numbers.code, CMPI_RC_ERR_INVALID_PARAMETER);
}

TEST_F(Providers, ARenewalThatFailsAnswersItsStatusAndText) {
    const Named null_value_{"paramvalue", null_value(CMPI_string)};
    const std::string longest = "iqn." + std::string(100000, 'x');
    const struct {
        Value targets;
        Value name;
    } cases[] = {
        {text_list({"iqn.unknown"}), null_value(CMPI_string)},
        {text_list({"iqn.unknown"}), text_value("")},
        {text_list({"iqn.unknown"}), text_value("iSCSIdigest")},
        {text_list({longest}), text_value(longest)},
        {text_list(std::vector<std::string>(10000, "iqn.unknown")), text_value("x")},
    };
    for (const auto& c : cases) {
        const Answer answer =
            call("RENEWISCSICONNECTIONS", {{"targets", c.targets}, {"paramname", c.name}, null_value_});
        EXPECT_EQ(told(answer), "0 Unknown status");
        ASSERT_EQ(answer.out.size(), 1U);
        EXPECT_EQ(value_text(*find(answer.out, "oxd_status")), "2");
    }
}

TEST_F(Providers, OtherMethodsAreRefusedOrPassedOver) {
    EXPECT_EQ(told(call("StartService", {})), "6 StartService");
    EXPECT_EQ(told(call("", {})), "6 ");
    EXPECT_EQ(told(broker->invoke_method(service(), "no such", {})), "0 ");
    EXPECT_EQ(told(broker->invoke_method(path_of(ASSOCIATION), "x", {})), "16 ");
}

TEST_F(Providers, TheServiceStopsAndStartsAgain) {
    EXPECT_EQ(told(broker->invoke_method(service(), "stopSERVICE", {{"extra", text_value("x")}})), "0 ");
    EXPECT_NE(host.log().find("do_work thread killed"), std::string::npos);
    EXPECT_EQ(told(broker->invoke_method(service(), "stopservice", {})), "0 ");
    EXPECT_EQ(told(broker->invoke_method(service(), "StartService", {})), "0 ");
    EXPECT_TRUE(host.wait_for_horizon(10));
}

}  // namespace
