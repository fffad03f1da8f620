// The shipped library behind the broker: what clients get for good and for bad input.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>
#include <functional>
#include <regex>

#include "OstrelConnections/renewal/renewal.h"
#include "cimserver/broker/broker.h"
#include "cimserver/broker/path_text.h"
#include "cimserver/broker/request.h"
#include "cimserver/server.h"
#include "simhost/host.h"
#include "support/cim.h"
#include "support/log_lines.h"

namespace {

using namespace cimserver;
using namespace testing_support;

constexpr char CONFIG[] = "/etc/ostrel/oxr.conf";

const std::string megabyte(1U << 20, 'x');
const ObjectPath interval = named(SETTING, "interval");
const NamedList ends = {{"ManagedElement", path_value(service())}, {"SettingData", path_value(interval)}};
// Keys and arguments that nobody asked for.
const NamedList odd = {{megabyte, text_list({"", megabyte})}, {"null", null_value(CMPI_uint32)}};

std::string shown(const NamedList& list) {
    std::string text;
    for (const auto& [name, value] : list) {
        const auto* const path = std::get_if<std::shared_ptr<const ObjectPath>>(&value.data);
        text += " " + name + "=" + (path == nullptr ? value_text(value) : "{" + path_text(**path) + "}");
    }
    return text;
}

// The status, then the output arguments, and a line for each path or instance.
std::string shown(const Answer& answer) {
    std::string text = told(answer) + shown(answer.out);
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
        struct sigaction action {};
        EXPECT_EQ(sigaction(SIGUSR1, nullptr, &action), 0);
        EXPECT_EQ(action.sa_handler, SIG_DFL);  // put back with the last interface
    }
    std::uint64_t opens() const { return host.calls("open", CONFIG) + host.calls("fopen", CONFIG); }
};

TEST_F(Providers, OperationsAnswerAndReadTheFileAsOftenAsTheyMust) {
    const auto names = [&](const std::string& of) { return broker->enumerate_instance_names(path_of(of)); };
    const auto all = [&](const std::string& of, const PropertyList& asked = {}) {
        return broker->enumerate_instances(path_of(of), asked);
    };
    const auto get = [&](const std::string& of, const NamedList& keys, const PropertyList& asked = {}) {
        return broker->get_instance(path_of(of, keys), asked);
    };
    const auto call = [&](const char* method) { return broker->invoke_method(path_of(SERVICE, odd), method, odd); };
    const PropertyList unknown = std::vector<std::string>{"", megabyte};
    const PropertyList values = std::vector<std::string>{"VALUE", "value", "minimum"};
    const std::string service_keys =
        " name=OSTREL Connection Service CreationClassName=OSTREL_ConnectionService SystemName=localhost "
        "SystemCreationClassName=OMC_UnitaryComputerSystem";
    const std::string service_path = "\n" + path_text(service()) +
                                     ",CreationClassName=\"OSTREL_ConnectionService\",SystemName=\"localhost\","
                                     "SystemCreationClassName=\"OMC_UnitaryComputerSystem\"";
    const auto setting = [](const std::string& name) {
        return path_text(named(SETTING, name)) + ",InstanceId=\"" + name + "\"";
    };
    const std::string setting_paths = "\n" + setting("interval") + "\n" + setting("vol_sessions");
    const std::string an_end = "{" + path_text(service()) + "}";
    const std::string interval_end = "SettingData={" + path_text(interval) + "}";
    const std::string sessions_end = "SettingData={" + path_text(named(SETTING, "vol_sessions")) + "}";
    const std::string examined = " description=Period between which the current iSCSI connections are examined.";
    const std::string created = " description=Maximum sessions created for each volume.";
    constexpr std::uint64_t reading = 2;  // opens the file for the values, then for the log folder
    const struct {
        std::function<Answer()> operate;
        std::string answer;
        std::uint64_t opens = 0;
        std::uint64_t writes = 0;
    } cases[] = {
        {[&] { return names("cim_service"); }, "0 " + service_path},
        {[&] { return names("CIM_ManagedElement"); }, "0 " + service_path + setting_paths},
        {[&] { return names("OSTREL_RegisteredProfile"); }, "0 "},
        {[&] { return names("Unknown"); }, "0 "},
        {[&] { return all(SERVICE); }, "0 \n" + service_keys + " version=oxd:2.0.1 psp:0.0.0"},
        {[&] { return all("CIM_SettingData"); },
         "0 \n name=interval InstanceId=interval" + examined +
             " value=120\n name=vol_sessions InstanceId=vol_sessions" + created + " value=0 minimum=2 maximum=8",
         reading},
        {[&] { return all(SETTING, values); }, "0 \n name=interval value=120\n name=vol_sessions value=0 minimum=2",
         reading},
        {[&] { return all(SETTING, unknown); }, "0 \n name=interval\n name=vol_sessions", reading},
        {[&] { return get(SERVICE, ends); }, "0 \n" + service_keys + " version=2.0.1"},
        {[&] { return get(SERVICE, service().keys, unknown); }, "0 \n name=OSTREL Connection Service"},
        {[&] { return get(SETTING, odd); }, "0 \n name=interval instanceId=interval value=120" + examined},
        {[&] { return get(ASSOCIATION, ends); }, "0 \n ManagedElement=" + an_end + " " + interval_end},
        {[&] { return broker->associators(service(), {}, {}); },
         "0 \n name=interval InstanceId=interval value=120" + examined +
             "\n name=vol_sessions InstanceId=vol_sessions value=0" + created},
        {[&] { return broker->associators(service(), {}, unknown); }, "0 \n name=interval\n name=vol_sessions"},
        {[&] { return broker->associators(interval, {}, {}); }, "0 \n" + service_keys + " version=2.0.1"},
        {[&] { return broker->associator_names(interval, {}); }, "0 " + service_path},
        {[&] { return broker->associator_names(service(), {}); }, "0 " + setting_paths},
        {[&] { return broker->references(service(), {}, {}); },
         "0 \n ManagedElement=" + an_end + " " + interval_end + "\n ManagedElement=" + an_end + " " + sessions_end},
        {[&] { return broker->references(interval, {}, {}); }, "0 \n ManagedElement=" + an_end + " " + interval_end},
        {[&] { return broker->reference_names(interval, {}); },
         "0 \n" + path_text(path_of(ASSOCIATION)) + ".ManagedElement=" + an_end + "," + interval_end},
        {[&] { return set_value(*broker, "interval", 59); },
         "4 SetValue parameter \"value\" for interval is out of range"},
        {[&] { return set_value(*broker, "interval", 60); }, "0 Succeeded!", reading + 1, 2},  // room first
        {[&] { return get(SETTING, odd); }, "0 \n name=interval instanceId=interval value=60" + examined},
        {[&] { return broker->invoke_method(path_of(ASSOCIATION), "x", {}); }, "16 "},
        {[&] { return call("no such"); }, "0 "},
        {[&] { return call("startservice"); }, "0 "},
        {[&] { return call("stopSERVICE"); }, "0 "},
        // The form of the file, then the first cycle's values and its log file.
        {[&] {
             const Answer answer = call("StartService");
             EXPECT_TRUE(host.wait_for_horizon(10));
             return answer;
         },
         "0 ", 1 + reading + 1},
        {[&] { return call("stopservice"); }, "0 "},
        {[&] { return call("stopservice"); }, "0 "},
    };
    for (const auto& c : cases) {
        const std::uint64_t opened = opens();
        const std::uint64_t written = host.calls("write", CONFIG);
        EXPECT_EQ(shown(c.operate()), c.answer);
        EXPECT_EQ(live_objects(), 0) << c.answer;
        EXPECT_EQ(opens() - opened, c.opens) << c.answer;
        EXPECT_EQ(host.calls("write", CONFIG) - written, c.writes) << c.answer;
    }
    EXPECT_NE(host.log().find("do_work thread killed"), std::string::npos);
    const std::pair<std::string, NamedList> unknown_instances[] = {
        {"CIM_Service", service().keys},
        {ASSOCIATION, {}},
        {ASSOCIATION, {ends[0]}},
        {ASSOCIATION, {ends[0], {"SettingData", text_value("interval")}}},
        {ASSOCIATION, {ends[0], {"SettingData", path_value(named(SETTING, megabyte))}}},
        {ASSOCIATION, {{"ManagedElement", path_value(interval)}, ends[1]}},
    };
    for (const auto& [class_name, keys] : unknown_instances) {
        EXPECT_EQ(shown(get(class_name, keys)), "6 ") << shown(keys);
    }

    // A renewal with the worker held off.
    const std::uint64_t opened = opens();
    host.set_horizon(host.now() + 60);
    host.write_file(CONFIG, host.read_file(CONFIG) + "worker_stop=1\n");
    EXPECT_EQ(renew(*broker, {"iqn.unknown"}), "9");
    EXPECT_EQ(opens() - opened, 12 * reading);
}

TEST_F(Providers, TheAssociationIsWalkedBothWaysThroughItsFilters) {
    const struct {
        ObjectPath source;
        AssociationFilter filter;
        std::size_t others, names, references, reference_names;
    } cases[] = {
        {service(), {.role = "ManagedElement"}, 2, 2, 2, 2},
        {service(), {.role = "ostrel_connectionservice"}, 0, 0, 2, 0},
        {service(), {.result_role = SETTING}, 0, 0, 2, 2},
        {service(), {.result_class = SETTING}, 2, 2, 0, 0},
        {service(), {.result_class = "CIM_ElementSettingData"}, 0, 0, 0, 2},
        {service(), {.result_class = ASSOCIATION}, 0, 0, 2, 2},
        {service(), {.result_class = megabyte}, 0, 0, 0, 0},
        {service(), {.role = megabyte, .result_role = megabyte}, 2, 2, 2, 2},
        {service(), {.assoc_class = SETTING}, 0, 0, 2, 2},
        {named(SETTING, "other"), {}, 0, 0, 0, 0},
        {named(SETTING, megabyte), {}, 0, 0, 0, 0},
        {named(SERVICE, ""), {}, 0, 0, 0, 0},
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
    }
    EXPECT_EQ(count_lines(host.log(), "WARN", "", "Key value is malformed."), 3);
    EXPECT_EQ(count_lines(host.log(), "WARN", "", "Key is malformed."), 9);
}

TEST_F(Providers, MethodsOfASettingAnswerForEveryArgument) {
    constexpr char SET[] = "SETvalue";
    constexpr char RENEW[] = "RENEWiscsiconnections";
    const Value null_text = null_value(CMPI_string);
    const Value number = uint32_value(604800);
    const Value iqn = text_list({"iqn.unknown"});
    std::vector<std::string> many(10000, "iqn.unknown");
    const Value long_list = text_list(many);
    many.back() = "eui.unknown";
    const auto set = [](const Value& name, const Value& value) -> NamedList {
        return {{"name", name}, {"VALUE", value}};
    };
    const auto set_interval = [&](const Value& value) { return set(text_value("Interval"), value); };
    const auto renewal = [](const Value& targets, const Value& name, const Value& value) -> NamedList {
        return {{"targets", targets}, {"paramname", name}, {"paramvalue", value}};
    };
    const auto renew_all = [&](const Value& targets) { return renewal(targets, null_text, null_text); };
    const auto array = [](CMPIType type, ValueList values) { return Value{type, std::move(values)}; };
    const std::string no_name = "4 SetValue parameter \"name\" not specified";
    const std::string no_value = "4 SetValue parameter \"value\" not specified";
    const std::string no_targets = "4 renewIscsiConnections parameter \"targets\" missing or no targets specified";
    const std::string no_iqn = "4 Invalid target IQN passed";
    const std::string no_paramname = "4 RenewIscsiConnections parameter \"paramname\" missing or no targets specified";
    const std::string no_paramvalue =
        "4 RenewIscsiConnections parameter \"paramValue\" missing or no targets specified";
    const std::string unknown = "0 Unknown status oxd_status=2";
    const struct {
        std::string method;
        NamedList in;
        std::string answer;
    } cases[] = {
        {SET, {}, no_name},
        {SET, set(null_text, number), no_name},
        {SET, set(path_value(service()), number), no_name},
        {SET, set(text_value(""), number), "6 arg parameter for \"name\" is not specified"},
        {SET, set(text_value("interval" + megabyte), number),
         "6 arg parameter for \"name\" can be \"interval\" or \"vol_sessions\""},
        {SET, {{"name", text_value("interval")}}, no_value},
        {SET, set_interval(null_value(CMPI_uint32)), no_value},
        {SET, set_interval(text_value("300")), no_value},
        {SET, set_interval({CMPI_uint64, std::uint64_t{300}}), no_value},
        {SET, set_interval(number), "0 Succeeded!"},
        {RENEW, {}, no_targets},
        {RENEW, renew_all(null_value(CMPI_stringA)), no_targets},
        {RENEW, renew_all(text_value("iqn.a")), no_targets},
        {RENEW, renew_all(array(CMPI_uint32A, {number})), no_targets},
        {RENEW, renew_all(array(CMPI_stringA, {})), "4 NULL target IQN list passed"},
        {RENEW, renew_all(array(CMPI_instanceA, {})), "4 NULL target IQN list passed"},
        {RENEW, renew_all(array(CMPI_ARRAY, {})), "4 NULL target IQN list passed"},
        {RENEW, renew_all(text_list({"IQN.a"})), no_iqn},
        {RENEW, renew_all(text_list({"iqn.a", ""})), no_iqn},
        {RENEW, renew_all(array(CMPI_stringA, {null_text})), no_iqn},
        {RENEW, renew_all(text_list(many)), no_iqn},
        {RENEW, {{"targets", iqn}, {"paramvalue", null_text}}, no_paramname},
        {RENEW, renewal(iqn, number, null_text), no_paramname},
        {RENEW, {{"targets", iqn}, {"paramname", null_text}}, no_paramvalue},
        {RENEW, renewal(iqn, null_text, number), no_paramvalue},
        {RENEW, renew_all(iqn), unknown},
        {RENEW, renew_all(long_list), unknown},
        {RENEW, renewal(iqn, text_value("iSCSIdigest"), null_text), unknown},
        {RENEW, renewal(text_list({"iqn." + megabyte}), text_value("iscsidigest"), text_value(megabyte)), unknown},
        {megabyte, {}, "6 " + megabyte},
    };
    for (const auto& c : cases) {
        const std::string config = host.read_file(CONFIG);
        NamedList in = c.in;
        in.insert(in.end(), odd.begin(), odd.end());
        EXPECT_EQ(shown(broker->invoke_method(path_of(SETTING, odd), c.method, in)), c.answer);
        EXPECT_EQ(live_objects(), 0) << c.answer;
        EXPECT_EQ(host.read_file(CONFIG) == config, c.answer != "0 Succeeded!") << c.answer;
    }
}

TEST_F(Providers, TheProfileAloneStartsTheServiceAndIsAUserOfTheLibrary) {
    const Schema schema = broker->schema();
    broker.reset();
    std::string error;
    broker = std::make_unique<Broker>(schema);
    const Registration profile{"OSTREL_RegisteredProfile", "OstrelProfileProvider", "", "n/s", true, false, false};
    EXPECT_TRUE(broker->load(
        {profile}, [&](const std::string& name) { return dlsym(library, name.c_str()); }, error));
    EXPECT_TRUE(host.wait_for_horizon(10));
}

TEST_F(Providers, TheClassesAndThePageTellTheRangesAndTheStatusesOfTheLibrary) {
    const std::string page = text_of_file(OXR_SOURCE_DIR "/docs/cim.md");
    const std::string mof = text_of_file(OXR_SOURCE_DIR "/cim/ostrel.mof");
    const auto takes = [&](const std::string& name, unsigned long value) {
        const bool taken = set_value(*broker, name, static_cast<std::uint32_t>(value)).code == CMPI_RC_OK;
        const std::string line = "\n" + name + "=" + std::to_string(value) + "\n";
        EXPECT_EQ(host.read_file(CONFIG).find(line) != std::string::npos, taken) << line;
        return taken;
    };
    const std::pair<const std::string&, const char*> ranges[] = {
        {page, "`(interval)`: (\\d+) to (\\d+) seconds; `(vol_sessions)`: (\\d+) to (\\d+) "},
        {mof, "(interval): (\\d+) to (\\d+) seconds. (vol_sessions): (\\d+) to (\\d+)\\."}};
    for (const auto& [text, form] : ranges) {
        std::smatch told;
        ASSERT_TRUE(std::regex_search(text, told, std::regex(form))) << form;
        for (const std::size_t at : {1U, 4U}) {
            const unsigned long least = std::stoul(told[at + 1]);
            const unsigned long most = std::stoul(told[at + 2]);
            EXPECT_TRUE(takes(told[at], least) && takes(told[at], most)) << told[at];
            EXPECT_FALSE(takes(told[at], least - 1) || takes(told[at], most + 1)) << told[at];
        }
    }
    EXPECT_FALSE(takes("vol_sessions", 0) || takes("interval", UINT32_MAX));

    const Element* const out = &broker->schema().find_method(SETTING, "renewiscsiconnections")->parameters.back();
    EXPECT_TRUE(out->has("Out") && !out->has("In"));
    for (const char* const qualifier : {"ValueMap", "Values"}) {
        EXPECT_EQ(std::get<ValueList>(find(out->qualifiers, qualifier)->data).size(), OXD_POLLING_PASS_TIMEOUT + 1U);
    }
    for (std::uint32_t status = OXD_FAILED; status <= OXD_POLLING_PASS_TIMEOUT; ++status) {
        const std::string row = "\n| " + std::to_string(status) + " | " + ostrel_oxd_status_to_string(status) + " ";
        EXPECT_NE(page.find(row), std::string::npos) << row;
    }
}

// --- a broker that takes nothing ----------------------------------------------------------------------------

int offered;
int done;

template <typename Given>
CMPIStatus refuse(const CMPIResult*, const Given*) {
    ++offered;
    return {CMPI_RC_ERR_FAILED, nullptr};
}

TEST_F(Providers, AssociationOperationsEndWellEvenWhereNothingIsTakenOrTold) {
    CMPIResultFT refusing_table = {};
    refusing_table.returnInstance = refuse<CMPIInstance>;
    refusing_table.returnObjectPath = refuse<CMPIObjectPath>;
    refusing_table.returnDone = [](const CMPIResult*) { return CMPIStatus{static_cast<CMPIrc>(++done), nullptr}; };
    const CMPIResult to{nullptr, &refusing_table};
    CMPIBroker untelling = *broker->handle();
    CMPIBrokerEncFT untelling_table = *untelling.eft;
    untelling_table.classPathIsA = [](const CMPIBroker*, const CMPIObjectPath*, const char*,
                                      CMPIStatus* status) -> CMPIBoolean {
        status->rc = CMPI_RC_ERR_FAILED;
        return 1;
    };
    untelling.eft = &untelling_table;
    using Factory = CMPIAssociationMI* (*)(const CMPIBroker*, const CMPIContext*, CMPIStatus*);
    const auto factory = reinterpret_cast<Factory>(dlsym(library, "OstrelAssocProvider_Create_AssociationMI"));
    ASSERT_NE(factory, nullptr);
    const Request request;
    CMPIObjectPath* const path = CMNewObjectPath(broker->handle(), "ostrel/cimv2", SERVICE, nullptr);
    CMAddKey(path, "name", "OSTREL Connection Service", CMPI_chars);
    const struct {
        const CMPIBroker* broker;
        const char* any;
        int offered, done;
    } cases[] = {{&untelling, nullptr, 0, 0}, {broker->handle(), nullptr, 8, 4}, {broker->handle(), "", 8, 4}};
    for (const auto& [from, any, expected_offered, expected_done] : cases) {
        offered = done = 0;
        CMPIAssociationMI* const mi = factory(from, nullptr, nullptr);
        EXPECT_EQ(mi->ft->associators(mi, nullptr, &to, path, any, any, any, any, nullptr).rc, CMPI_RC_OK);
        EXPECT_EQ(mi->ft->associatorNames(mi, nullptr, &to, path, any, any, any, any).rc, CMPI_RC_OK);
        EXPECT_EQ(mi->ft->references(mi, nullptr, &to, path, any, any, nullptr).rc, CMPI_RC_OK);
        EXPECT_EQ(mi->ft->referenceNames(mi, nullptr, &to, path, any, any).rc, CMPI_RC_OK);
        EXPECT_EQ(offered, expected_offered);
        EXPECT_EQ(done, expected_done);
    }
}

}  // namespace
