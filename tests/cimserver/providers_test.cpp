// The shipped library behind the broker: what clients get for good and for bad input.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <functional>

#include "cimserver/broker/broker.h"
#include "cimserver/broker/path_text.h"
#include "cimserver/broker/request.h"
#include "cimserver/server.h"
#include "simhost/host.h"
#include "support/cim.h"

namespace {

using namespace cimserver;
using namespace testing_support;

constexpr char CONFIG[] = "/etc/ostrel/oxr.conf";

const std::string megabyte(1U << 20, 'x');

class Providers : public ::testing::Test {
protected:
    simhost::Host host;
    void* library = nullptr;
    std::unique_ptr<Broker> broker;

    Providers() {
        host.set_horizon(0);
        host.write_file("/etc/ostrel/oxdversion.txt", "2.0.1\n");
        library = dlopen(OXR_LIBRARY, RTLD_NOW | RTLD_LOCAL);
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
    Answer call(const std::string& method, const NamedList& in, const ObjectPath& path = path_of(SETTING)) {
        Answer answer = broker->invoke_method(path, method, in);
        EXPECT_EQ(live_objects(), 0) << method;
        return answer;
    }
    // A call that must be refused, with the configuration left as it is.
    Answer call_refused(const std::string& method, const NamedList& in) {
        const std::string config = host.read_file(CONFIG);
        Answer answer = call(method, in);
        EXPECT_NE(answer.code, CMPI_RC_OK);
        EXPECT_TRUE(answer.out.empty()) << answer.message;
        EXPECT_EQ(host.read_file(CONFIG), config) << answer.message;
        return answer;
    }
    std::string config_line(const std::string& key) {
        const std::string text = host.read_file(CONFIG);
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
    const PropertyList nothing = std::vector<std::string>{"", megabyte};
    EXPECT_EQ(broker->enumerate_instances(path_of(ASSOCIATION), nothing).instances.at(0).properties.size(), 2U);
    EXPECT_EQ(broker->get_instance(path_of(SERVICE), nothing).instances.at(0).properties.size(), 1U);
    EXPECT_EQ(broker->associators(service(), {}, nothing).instances.at(0).properties.size(), 1U);
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
        {path_of(SETTING, {{megabyte, text_value(megabyte)}, {"name", null_value(CMPI_string)}}), CMPI_RC_OK},
        {path_of("CIM_Service"), CMPI_RC_ERR_NOT_FOUND},
        {path_of("Unknown"), CMPI_RC_ERR_NOT_FOUND},
        {path_of(ASSOCIATION), CMPI_RC_ERR_NOT_FOUND},
        {path_of(ASSOCIATION, {{"ManagedElement", to_service}}), CMPI_RC_ERR_NOT_FOUND},
        {path_of(ASSOCIATION, {{"ManagedElement", text_value("x")}, {"SettingData", text_value("y")}}),
         CMPI_RC_ERR_NOT_FOUND},
        {path_of(ASSOCIATION, {{"ManagedElement", to_interval}, {"SettingData", to_service}}), CMPI_RC_ERR_NOT_FOUND},
        {path_of(ASSOCIATION, {{"ManagedElement", to_service}, {"SettingData", path_value(path_of(SETTING))}}),
         CMPI_RC_ERR_NOT_FOUND},
        {path_of(ASSOCIATION, {{"ManagedElement", to_service}, {"SettingData", path_value(named(SETTING, megabyte))}}),
         CMPI_RC_ERR_NOT_FOUND},
        {path_of(ASSOCIATION, {{"ManagedElement", path_value(path_of(SERVICE, {{"name", to_service}}))},
                               {"SettingData", to_interval}}),
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
        {service(), {.result_class = megabyte}, 0, 0, 0, 0},
        {service(), {.role = megabyte, .result_role = megabyte}, 2, 2, 2, 2},
        {service(), {.assoc_class = SETTING}, 0, 0, 2, 2},
        {named(SETTING, "interval"), {}, 1, 1, 1, 1},
        {named(SETTING, "other"), {}, 0, 0, 0, 0},
        {named(SETTING, ""), {}, 0, 0, 0, 0},
        {named(SETTING, megabyte), {}, 0, 0, 0, 0},
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

TEST_F(Providers, AnswersOfTheAssociationNameItsEndsAndWhatTheyAre) {
    const auto properties = [](const Instance& instance) {
        std::string text;
        for (const Named& property : instance.properties) {
            text += property.name + "=" + value_text(property.value) + " ";
        }
        return text;
    };
    const ObjectPath interval = named(SETTING, "interval");
    EXPECT_EQ(properties(broker->associators(service(), {}, {}).instances.at(0)),
              "name=interval InstanceId=interval value=120 "
              "description=Period between which the current iSCSI connections are examined. ");
    const std::string ends = "ManagedElement=" + value_text(path_value(service())) +
                             " SettingData=" + value_text(path_value(interval)) + " ";
    for (const ObjectPath& source : {service(), interval}) {
        EXPECT_EQ(properties(broker->references(source, {}, {}).instances.at(0)), ends);
        EXPECT_EQ(properties({{}, broker->reference_names(source, {}).paths.at(0).keys, {}}), ends);
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
        {{{"name", text_value(megabyte)}, {"value", uint32_value(60)}}, wrong_name},
        {{{"name", interval}}, no_value},
        {{{"name", interval}, {"value", null_value(CMPI_uint32)}}, no_value},
        {{{"name", interval}, {"value", text_value("300")}}, no_value},
        {{{"name", interval}, {"value", text_value("")}}, no_value},
        {{{"name", interval}, {"value", text_value(megabyte)}}, no_value},
        {{{"name", interval}, {"value", Value{CMPI_uint64, std::uint64_t{300}}}}, no_value},
        {{{"name", interval}, {"value", text_list({"300"})}}, no_value},
        {{{"name", interval}, {"value", uint32_value(59)}}, bad_interval},
        {{{"name", interval}, {"value", uint32_value(604801)}}, bad_interval},
        {{{"name", interval}, {"value", uint32_value(4294967295U)}}, bad_interval},
        {{{"name", text_value("vol_sessions")}, {"value", uint32_value(0)}}, bad_sessions},
        {{{"name", text_value("vol_sessions")}, {"value", uint32_value(9)}}, bad_sessions},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(told(call_refused("SetValue", c.in)), c.answer);
    }
    const Named more{"more", text_list({megabyte})};
    const ObjectPath odd = path_of(SETTING, {{"name", path_value(service())}, {megabyte, null_value(CMPI_string)}});
    EXPECT_EQ(told(call("SETVALUE", {{"NAME", text_value("INTERVAL")}, {"Value", uint32_value(604800)}})),
              "0 Succeeded!");
    EXPECT_EQ(told(call("SetValue", {{"name", text_value("Vol_Sessions")}, {"value", uint32_value(8)}, more}, odd)),
              "0 Succeeded!");
    EXPECT_EQ(config_line("interval"), "interval=604800");
    EXPECT_EQ(config_line("vol_sessions"), "vol_sessions=8");
}

TEST_F(Providers, RenewalAnswersForEveryArgument) {
    const Value iqn = text_list({"iqn.unknown"});
    std::vector<std::string> many(10000, "iqn.unknown");
    many.back() = "eui.unknown";
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
        {{{"targets", Value{CMPI_uint32A, ValueList()}}, name, value}, no_targets},
        {{{"targets", Value{CMPI_uint32A, ValueList{uint32_value(1)}}}, name, value}, no_targets},
        {{{"targets", Value{CMPI_refA, ValueList{path_value(service())}}}, name, value}, no_targets},
        {{{"targets", text_list({""})}, name, value}, no_iqn},
        {{{"targets", text_list({"IQN.a"})}, name, value}, no_iqn},
        {{{"targets", text_list({"iqn.a", "x"})}, name, value}, no_iqn},
        {{{"targets", Value{CMPI_stringA, ValueList{text_value("iqn.a"), null_text}}}, name, value}, no_iqn},
        {{{"targets", Value{CMPI_stringA, ValueList{uint32_value(1)}}}, name, value}, no_iqn},
        {{{"targets", text_list({megabyte})}, name, value}, no_iqn},
        {{{"targets", text_list(many)}, name, value}, no_iqn},
        {{{"targets", iqn}, value}, no_paramname},
        {{{"targets", iqn}, {"paramname", uint32_value(1)}, value}, no_paramname},
        {{{"targets", iqn}, {"paramname", iqn}, value}, no_paramname},
        {{{"targets", iqn}, name}, no_paramvalue},
        {{{"targets", iqn}, name, {"paramvalue", uint32_value(1)}}, no_paramvalue},
        {{{"targets", iqn}, name, {"paramvalue", iqn}}, no_paramvalue},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(told(call_refused("renewiscsiconnections", c.in)), c.answer);
    }
}

TEST_F(Providers, ARenewalThatFailsAnswersItsStatusAndText) {
    const Value null_text = null_value(CMPI_string);
    const std::string config = host.read_file(CONFIG);
    const struct {
        Value targets;
        Value name;
        Value value;
    } cases[] = {
        {text_list({"iqn.unknown"}), null_text, null_text},
        {text_list({"iqn.unknown"}), text_value(""), text_value("")},
        {text_list({"iqn.unknown"}), text_value("iSCSIdigest"), null_text},
        {text_list({"iqn.unknown"}), text_value("iscsidigest"), text_value(megabyte)},
        {text_list({"iqn." + megabyte}), text_value(megabyte), null_text},
        {text_list(std::vector<std::string>(10000, "iqn.unknown")), text_value("x"), null_text},
    };
    for (const auto& c : cases) {
        const Answer answer =
            call("RENEWISCSICONNECTIONS", {{"targets", c.targets}, {"paramname", c.name}, {"paramvalue", c.value}});
        EXPECT_EQ(told(answer), "0 Unknown status");
        ASSERT_EQ(answer.out.size(), 1U);
        EXPECT_EQ(value_text(*find(answer.out, "oxd_status")), "2");
    }
    EXPECT_EQ(host.read_file(CONFIG), config);
}

TEST_F(Providers, OtherMethodsAreRefusedOrPassedOver) {
    EXPECT_EQ(told(call("StartService", {})), "6 StartService");
    EXPECT_EQ(told(call("", {})), "6 ");
    EXPECT_EQ(told(call(megabyte, {})), "6 " + megabyte);
    EXPECT_EQ(told(broker->invoke_method(service(), "no such", {})), "0 ");
    EXPECT_EQ(told(broker->invoke_method(path_of(ASSOCIATION), "x", {})), "16 ");
}

TEST_F(Providers, TheServiceStopsAndStartsAgain) {
    EXPECT_EQ(told(broker->invoke_method(service(), "stopSERVICE", {{"extra", text_value("x")}})), "0 ");
    EXPECT_NE(host.log().find("do_work thread killed"), std::string::npos);
    EXPECT_EQ(told(broker->invoke_method(service(), "stopservice", {})), "0 ");
    const NamedList odd = {{megabyte, text_list({"", megabyte})}, {"null", null_value(CMPI_uint32)}};
    EXPECT_EQ(told(broker->invoke_method(path_of(SERVICE, odd), "StartService", odd)), "0 ");
    EXPECT_TRUE(host.wait_for_horizon(10));
}

TEST_F(Providers, OperationsReadTheConfigurationAsOftenAsTheyMust) {
    const ObjectPath setting = named(SETTING, "interval");
    const ObjectPath association =
        path_of(ASSOCIATION, {{"ManagedElement", path_value(service())}, {"SettingData", path_value(setting)}});
    const auto enumerate = [&](const char* class_name) {
        return [&, class_name] { (void)broker->enumerate_instances(path_of(class_name), {}); };
    };
    const auto enumerate_names = [&](const char* class_name) {
        return [&, class_name] { (void)broker->enumerate_instance_names(path_of(class_name)); };
    };
    const auto get = [&](const ObjectPath& path) { return [&, path] { (void)broker->get_instance(path, {}); }; };
    const auto method = [&](const ObjectPath& path, const char* name) {
        return [&, path, name] { (void)broker->invoke_method(path, name, {}); };
    };
    const auto associate = [&](const ObjectPath& source) {
        return [&, source] {
            (void)broker->associators(source, {}, {});
            (void)broker->associator_names(source, {});
            (void)broker->references(source, {}, {});
            (void)broker->reference_names(source, {});
        };
    };
    constexpr std::uint64_t reading = 2;  // opens it for the values, then for the log folder
    const struct {
        const char* what;
        std::function<void()> operate;
        std::uint64_t opens;
        std::uint64_t writes = 0;
    } cases[] = {
        {"service", enumerate(SERVICE), 0},
        {"service names", enumerate_names(SERVICE), 0},
        {"a service", get(service()), 0},
        {"settings", enumerate(SETTING), reading},
        {"setting names", enumerate_names(SETTING), 0},
        {"a setting", get(setting), 0},
        {"associations", enumerate(ASSOCIATION), 0},
        {"association names", enumerate_names(ASSOCIATION), 0},
        {"an association", get(association), 0},
        {"from the service", associate(service()), 0},
        {"from a setting", associate(setting), 0},
        {"a refused set", [&] { (void)set_value(*broker, "interval", 59); }, 0},
        {"an accepted set", [&] { (void)set_value(*broker, "interval", 60); }, reading + 1, 2},  // room first
        {"a refused renewal", [&] { (void)renew(*broker, {}); }, 0},
        {"a renewal", [&] { (void)renew(*broker, {"iqn.unknown"}); }, reading},
        {"a start of a running worker", method(service(), "startservice"), 0},
        {"a stop", method(service(), "stopservice"), 0},
        // The form of the file, then the first cycle's values and its log file.
        {"a start",
         [&] {
             (void)broker->invoke_method(service(), "startservice", {});
             EXPECT_TRUE(host.wait_for_horizon(10));
         },
         1 + reading + 1},
        {"another stop", method(service(), "stopservice"), 0},
        {"a renewal with the worker held off",
         [&] {
             host.set_horizon(host.now() + 60);
             host.write_file(CONFIG, host.read_file(CONFIG) + "worker_stop=1\n");
             EXPECT_EQ(renew(*broker, {"iqn.unknown"}), "9");
         },
         12 * reading},
    };
    for (const auto& c : cases) {
        const std::uint64_t opens = host.calls("open", CONFIG) + host.calls("fopen", CONFIG);
        const std::uint64_t writes = host.calls("write", CONFIG);
        c.operate();
        EXPECT_EQ(host.calls("open", CONFIG) + host.calls("fopen", CONFIG) - opens, c.opens) << c.what;
        EXPECT_EQ(host.calls("write", CONFIG) - writes, c.writes) << c.what;
    }
}

// --- a broker that takes nothing ----------------------------------------------------------------------------

struct Refusing : CMPIResult {
    Refusing();
    int offered = 0;
    int done = 0;
};

// Counts the call in one of the members.
CMPIStatus refuse(const CMPIResult* result, int Refusing::*counter) {
    ++(static_cast<Refusing&>(const_cast<CMPIResult&>(*result)).*counter);
    return {CMPI_RC_ERR_FAILED, nullptr};
}

const CMPIResultFT refusing_table = {
    .ftVersion = CMPIVersion200,
    .release = nullptr,
    .clone = nullptr,
    .returnData = nullptr,
    .returnInstance = [](const CMPIResult* result, const CMPIInstance*) { return refuse(result, &Refusing::offered); },
    .returnObjectPath = [](const CMPIResult* result,
                           const CMPIObjectPath*) { return refuse(result, &Refusing::offered); },
    .returnDone = [](const CMPIResult* result) { return refuse(result, &Refusing::done); },
    .returnError = nullptr,
};

Refusing::Refusing() : CMPIResult{nullptr, &refusing_table} {}

TEST_F(Providers, AssociationOperationsEndWellEvenWhereNothingIsTaken) {
    using Factory = CMPIAssociationMI* (*)(const CMPIBroker*, const CMPIContext*, CMPIStatus*);
    const auto factory = reinterpret_cast<Factory>(dlsym(library, "OstrelAssocProvider_Create_AssociationMI"));
    ASSERT_NE(factory, nullptr);
    CMPIAssociationMI* const mi = factory(broker->handle(), nullptr, nullptr);
    const auto& table = *mi->ft;
    const struct {
        ObjectPath source;
        int answers;
    } cases[] = {{service(), 2}, {named(SETTING, "interval"), 1}};
    for (const auto& c : cases) {
        const Request request;
        CMPIObjectPath* const path =
            CMNewObjectPath(broker->handle(), "ostrel/cimv2", c.source.class_name.c_str(), nullptr);
        const std::string name = value_text(*find(c.source.keys, "name"));
        CMAddKey(path, "name", name.c_str(), CMPI_chars);
        using Operation = std::function<CMPIStatus(const CMPIResult*, const char*)>;
        const Operation operations[] = {[&](const CMPIResult* to, const char* any) {
                                            return table.associators(mi, nullptr, to, path, any, any, any, any,
                                                                     nullptr);
                                        },
                                        [&](const CMPIResult* to, const char* any) {
                                            return table.associatorNames(mi, nullptr, to, path, any, any, any, any);
                                        },
                                        [&](const CMPIResult* to, const char* any) {
                                            return table.references(mi, nullptr, to, path, any, any, nullptr);
                                        },
                                        [&](const CMPIResult* to, const char* any) {
                                            return table.referenceNames(mi, nullptr, to, path, any, any);
                                        }};
        for (const auto& operation : operations) {
            for (const char* const no_filter : {static_cast<const char*>(nullptr), ""}) {
                Refusing result;
                EXPECT_EQ(operation(&result, no_filter).rc, CMPI_RC_OK);
                EXPECT_EQ(result.offered, c.answers);
                EXPECT_EQ(result.done, 1);
            }
        }
    }
}

}  // namespace
