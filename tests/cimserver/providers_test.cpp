// The shipped library behind the broker: what clients get for good and for bad input.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>

#include "OstrelConnections/renewal/renewal.h"
#include "cimserver/broker/broker.h"
#include "cimserver/broker/objects.h"
#include "cimserver/broker/path_text.h"
#include "cimserver/broker/request.h"
#include "cimserver/server.h"
#include "simhost/host.h"
#include "support/cim.h"
#include "support/golden.h"

namespace {

using namespace cimserver;
using namespace testing_support;

constexpr char CONFIG[] = "/etc/ostrel/oxr.conf";

const std::string megabyte(1U << 20, 'x');
const ObjectPath interval = named(SETTING, "interval");
const NamedList ends = {{"ManagedElement", path_value(service())}, {"SettingData", path_value(interval)}};
// Keys and arguments that nobody asked for.
const NamedList odd = {{megabyte, text_list({"", megabyte})}, {"null", null_value(CMPI_uint32)}};

std::string shortened(const std::string& text) {
    return text.size() > 1000 ? "(" + std::to_string(text.size()) + " bytes)" : text;
}

std::string shown(const NamedList& list) {
    std::string text;
    for (const auto& [name, value] : list) {
        const ObjectPath* const path = reference_in(value);
        text += " " + shortened(name) + "=" +
                shortened(value.is_null()    ? "null"
                          : value.is_array() ? std::to_string(std::get<ValueList>(value.data).size()) + " elements"
                          : path != nullptr  ? "{" + path_text(*path) + "}"
                                             : value_text(value));
    }
    return text;
}

// The status, then the output arguments, and a line for each path or instance.
std::string shown(const ProviderAnswer& answer) {
    std::string text = std::to_string(answer.code) + " " + shortened(answer.message) + shown(answer.out);
    for (const ObjectPath& path : answer.paths) {
        text += "\n" + path_text(path);
    }
    for (const Instance& instance : answer.instances) {
        text += "\n" + shown(instance.properties);
    }
    return text;
}

std::string text_of_file(const std::string& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

class Providers : public ::testing::Test {
protected:
    simhost::Host host;
    void* library = dlopen(OXR_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    std::unique_ptr<Broker> broker;

    Providers() {
        host.set_horizon(0);
        host.write_file("/etc/ostrel/oxdversion.txt", "2.0.1\n");
        broker = load_providers(library);
        EXPECT_TRUE(host.wait_for_horizon(10));
    }
    void TearDown() override {
        broker.reset();
        EXPECT_EQ(live_objects(), 0);
        EXPECT_FALSE(host.exists("/etc/ostrel/.lock"));
        struct sigaction action {};
        EXPECT_EQ(sigaction(SIGUSR1, nullptr, &action), 0);
        EXPECT_EQ(action.sa_handler, SIG_DFL);  // put back with the last interface
    }
    // One operation, or a method of that name.
    ProviderAnswer carry_out(const std::string& name, const ObjectPath& path, const PropertyList& properties,
                             const NamedList& in) {
        return name == "names"             ? broker->enumerate_instance_names(path)
               : name == "instances"       ? broker->enumerate_instances(path, properties)
               : name == "get"             ? broker->get_instance(path, properties)
               : name == "associators"     ? broker->associators(path, {}, properties)
               : name == "associatorNames" ? broker->associator_names(path, {})
               : name == "references"      ? broker->references(path, {}, properties)
               : name == "referenceNames"  ? broker->reference_names(path, {})
                                           : broker->invoke_method(path, name, in);
    }
    // Its answer, how often it opened and wrote the configuration file, and its warnings.
    void note(Golden& golden, const std::string& name, const ObjectPath& path, const PropertyList& properties = {},
              const NamedList& in = {}) {
        const auto opens = [this] { return host.calls("open", CONFIG) + host.calls("fopen", CONFIG); };
        const std::uint64_t opened = opens();
        const std::uint64_t written = host.calls("write", CONFIG);
        const std::string answer = shown(carry_out(name, path, properties, in));
        if (name == "StartService") {
            EXPECT_TRUE(host.wait_for_horizon(10));
        }
        EXPECT_EQ(live_objects(), 0);
        golden.heading(shortened(name) + " " + path.class_name + shown(path.keys) + shown(in) +
                       (properties ? " some" : "") + ": " + std::to_string(opens() - opened) + " opens, " +
                       std::to_string(host.calls("write", CONFIG) - written) + " writes\n" + answer);
        golden.add_log(host, "W");
    }
};

TEST_F(Providers, OperationsAnswerAndReadTheFileAsOftenAsTheyMust) {
    const std::vector<ObjectPath> sources = {service(),
                                             interval,
                                             named(SETTING, "other"),
                                             named(SETTING, megabyte),
                                             named(SERVICE, ""),
                                             path_of(SETTING),
                                             path_of(SETTING, {{"name", path_value(service())}}),
                                             path_of(SETTING, {{"name", uint32_value(1)}}),
                                             path_of("CIM_Service", service().keys),
                                             path_of("Unknown", service().keys)};
    const std::pair<std::string, std::vector<ObjectPath>> reads[] = {
        {"names", {path_of("cim_service"), path_of("CIM_ManagedElement"), path_of("OSTREL_RegisteredProfile")}},
        {"instances", {path_of("Unknown"), path_of(SERVICE), path_of("CIM_SettingData")}},
        {"get", {path_of(SERVICE, ends), path_of(SETTING, odd), path_of("CIM_Service"), path_of(ASSOCIATION, ends)}},
        {"get", {path_of(ASSOCIATION), path_of(ASSOCIATION, {ends[0]})}},
        {"get", {path_of(ASSOCIATION, {ends[0], {"SettingData", text_value("interval")}})}},
        {"get", {path_of(ASSOCIATION, {ends[0], {"SettingData", path_value(named(SETTING, megabyte))}})}},
        {"get", {path_of(ASSOCIATION, {{"ManagedElement", path_value(interval)}, ends[1]})}},
        {"associators", sources},
        {"associatorNames", sources},
        {"references", sources},
        {"referenceNames", sources},
    };
    Golden golden("cimserver", "operations");
    for (const auto& [name, paths] : reads) {
        for (const ObjectPath& path : paths) {
            note(golden, name, path);
        }
    }
    for (const char* const name : {"instances", "get", "associators", "references"}) {
        note(golden, name, service(), std::vector<std::string>{"", megabyte});
        note(golden, name, interval, std::vector<std::string>{"VALUE", "value", "minimum"});
    }
    const auto set_interval = [&](std::uint32_t value) {
        note(golden, "SetValue", path_of(SETTING), {},
             {{"name", text_value("interval")}, {"value", uint32_value(value)}});
    };
    set_interval(59);
    set_interval(60);
    note(golden, "get", path_of(SETTING, odd));
    note(golden, "x", path_of(ASSOCIATION));
    for (const char* const method :
         {"no such", "startservice", "stopSERVICE", "StartService", "stopservice", "stopservice"}) {
        note(golden, method, path_of(SERVICE, odd), {}, odd);
    }
    // A renewal with the worker held off.
    host.set_horizon(host.now() + 60);
    host.write_file(CONFIG, host.read_file(CONFIG) + "worker_stop=1\n");
    note(golden, "renewIscsiConnections", path_of(SETTING), {},
         {{"targets", text_list({"iqn.unknown"})}, {"paramname", text_value("")}, {"paramvalue", text_value("")}});
}

TEST_F(Providers, TheAssociationIsWalkedThroughItsFilters) {
    const struct {
        AssociationFilter filter;
        std::size_t others, names, references, reference_names;
    } cases[] = {
        {{.role = "ManagedElement"}, 2, 2, 2, 2},
        {{.role = "ostrel_connectionservice"}, 0, 0, 2, 0},
        {{.result_role = SETTING}, 0, 0, 2, 2},
        {{.result_class = SETTING}, 2, 2, 0, 0},
        {{.result_class = "CIM_ElementSettingData"}, 0, 0, 0, 2},
        {{.result_class = ASSOCIATION}, 0, 0, 2, 2},
        {{.result_class = megabyte}, 0, 0, 0, 0},
        {{.role = megabyte, .result_role = megabyte}, 2, 2, 2, 2},
        {{.assoc_class = SETTING}, 0, 0, 2, 2},
    };
    for (const auto& c : cases) {
        const std::string what = c.filter.role + " " + c.filter.result_class;
        EXPECT_EQ(broker->associators(service(), c.filter, {}).instances.size(), c.others) << what;
        EXPECT_EQ(broker->associator_names(service(), c.filter).paths.size(), c.names) << what;
        EXPECT_EQ(broker->references(service(), c.filter, {}).instances.size(), c.references) << what;
        EXPECT_EQ(broker->reference_names(service(), c.filter).paths.size(), c.reference_names) << what;
    }
}

TEST_F(Providers, MethodsOfASettingAnswerForEveryArgument) {
    const CimValue null_text = null_value(CMPI_string);
    const CimValue number = uint32_value(604800);
    const CimValue iqn = text_list({"iqn.unknown"});
    std::vector<std::string> many(10000, "iqn.unknown");
    const CimValue long_list = text_list(many);
    many.back() = "eui.unknown";
    const auto set = [](const CimValue& name, const CimValue& value) -> NamedList {
        return {{"name", name}, {"VALUE", value}};
    };
    const auto set_interval = [&](const CimValue& value) { return set(text_value("Interval"), value); };
    const auto renewal = [](const CimValue& targets, const CimValue& name, const CimValue& value) -> NamedList {
        return {{"targets", targets}, {"paramname", name}, {"paramvalue", value}};
    };
    const auto renew_all = [&](const CimValue& targets) { return renewal(targets, null_text, null_text); };
    const auto array = [](CMPIType type, ValueList values) { return CimValue{type, std::move(values)}; };
    const std::pair<std::string, std::vector<NamedList>> calls[] = {
        {"SETvalue",
         {{},
          set(null_text, number),
          set(path_value(service()), number),
          set(text_value(""), number),
          set(text_value("interval" + megabyte), number),
          {{"name", text_value("interval")}},
          set_interval(null_value(CMPI_uint32)),
          set_interval(text_value("300")),
          set_interval({CMPI_uint64, std::uint64_t{300}}),
          set_interval(number)}},
        {"RENEWiscsiconnections",
         {{},
          renew_all(null_value(CMPI_stringA)),
          renew_all(text_value("iqn.a")),
          renew_all(array(CMPI_uint32A, {number})),
          renew_all(array(CMPI_stringA, {})),
          renew_all(array(CMPI_instanceA, {})),
          renew_all(array(CMPI_ARRAY, {})),
          renew_all(text_list({"IQN.a"})),
          renew_all(text_list({"iqn.a", ""})),
          renew_all(array(CMPI_stringA, {null_text})),
          renew_all(text_list(many)),
          {{"targets", iqn}, {"paramvalue", null_text}},
          renewal(iqn, number, null_text),
          {{"targets", iqn}, {"paramname", null_text}},
          renewal(iqn, null_text, number),
          renew_all(iqn),
          renew_all(long_list),
          renewal(iqn, text_value("iSCSIdigest"), null_text),
          renewal(text_list({"iqn." + megabyte}), text_value("iscsidigest"), text_value(megabyte))}},
        {megabyte, {{}}},
    };
    Golden golden("cimserver", "setting_methods");
    for (const auto& [method, lists] : calls) {
        for (NamedList in : lists) {
            in.insert(in.end(), odd.begin(), odd.end());
            note(golden, method, path_of(SETTING, odd), {}, in);
        }
    }
}

TEST_F(Providers, TheClassesAndThePageTellTheRangesAndTheStatusesOfTheLibrary) {
    const std::string page = text_of_file(OXR_SOURCE_DIR "/docs/cim.md");
    const std::string mof = text_of_file(OXR_SOURCE_DIR "/cim/ostrel.mof");
    const auto takes = [&](const std::string& name, std::uint32_t value) {
        return set_value(*broker, name, value).code == CMPI_RC_OK;
    };
    const std::tuple<std::string, std::uint32_t, std::uint32_t> ranges[] = {{"interval", 60, 604800},
                                                                            {"vol_sessions", 2, 8}};
    for (const auto& [name, least, most] : ranges) {
        EXPECT_TRUE(takes(name, least) && takes(name, most)) << name;
        EXPECT_FALSE(takes(name, least - 1) || takes(name, most + 1) || takes(name, UINT32_MAX)) << name;
        const std::string told = ": " + std::to_string(least) + " to " + std::to_string(most);
        EXPECT_NE(page.find("`" + name + "`" + told), std::string::npos) << name;
        EXPECT_NE(mof.find(name + told), std::string::npos) << name;
    }
    EXPECT_FALSE(takes("vol_sessions", 0));
    const Element* const out = &broker->schema().find_method(SETTING, "renewiscsiconnections")->parameters.back();
    EXPECT_TRUE(out->has("Out") && !out->has("In"));
    for (const char* const qualifier : {"ValueMap", "Values"}) {
        EXPECT_EQ(std::get<ValueList>(find(out->qualifiers, qualifier)->data).size(), OXD_POLLING_PASS_TIMEOUT + 1U);
    }
}

TEST_F(Providers, WhatOnlyAnotherBrokerAsksIsAnsweredToo) {
    CMPIBroker untelling = *broker->handle();
    CMPIBrokerEncFT untelling_table = *untelling.eft;
    untelling_table.classPathIsA = [](const CMPIBroker*, const CMPIObjectPath*, const char*,
                                      CMPIStatus* status) -> CMPIBoolean {
        status->rc = CMPI_RC_ERR_FAILED;
        return 1;
    };
    untelling.eft = &untelling_table;
    const Request request;
    auto* const path = make_object<PathObject>(service());
    auto* const unknown = make_object<PathObject>(path_of("Unknown"));
    const std::pair<const CMPIBroker*, std::size_t> cases[] = {{&untelling, 0}, {broker->handle(), 2}};
    for (const auto& [from, returned] : cases) {
        auto* const mi = create<CMPIAssociationMI>(library, "OstrelAssocProvider_Create_AssociationMI", from);
        auto* const to = make_object<ResultObject>();
        EXPECT_EQ(mi->ft->associatorNames(mi, nullptr, to, path, "", "", "", "").rc, CMPI_RC_OK);
        EXPECT_EQ(to->values.size(), returned);
    }
    for (const std::string each : {"OstrelProvider", "OstrelProviderSetting", "OstrelAssocProvider"}) {
        auto* const mi = create<CMPIInstanceMI>(library, each + "_Create_InstanceMI", broker->handle());
        EXPECT_EQ(mi->ft->createInstance(mi, nullptr, nullptr, path, nullptr).rc, CMPI_RC_ERR_NOT_SUPPORTED);
        EXPECT_EQ(mi->ft->modifyInstance(mi, nullptr, nullptr, path, nullptr, nullptr).rc, CMPI_RC_ERR_NOT_SUPPORTED);
        EXPECT_EQ(mi->ft->deleteInstance(mi, nullptr, nullptr, path).rc, CMPI_RC_ERR_NOT_SUPPORTED);
        EXPECT_EQ(mi->ft->execQuery(mi, nullptr, nullptr, path, "", "WQL").rc, CMPI_RC_ERR_NOT_SUPPORTED);
        const CMPIrc expected = each == "OstrelAssocProvider" ? CMPI_RC_OK : CMPI_RC_ERR_INVALID_CLASS;
        auto* const to = make_object<ResultObject>();
        EXPECT_EQ(mi->ft->enumerateInstanceNames(mi, nullptr, to, unknown).rc, expected) << each;
        EXPECT_EQ(mi->ft->enumerateInstances(mi, nullptr, to, unknown, nullptr).rc, expected) << each;
    }
}

}  // namespace
