#include "fault_sweep/providers.h"

#include <dlfcn.h>

#include <stdexcept>

#include "OstrelProvider/service.h"
#include "cimserver/broker/request.h"
#include "cimserver/server.h"
#include "simhost/host.h"

using namespace cimserver;

namespace fault_sweep {

namespace {

constexpr char SERVICE[] = "OSTREL_ConnectionService";
constexpr char SETTING[] = "OSTREL_ConnectionServiceSetting";
constexpr char ASSOCIATION[] = "OSTREL_ConnectionServiceAssocSetting";

ObjectPath path_of(const std::string& class_name, const std::string& name = {}) {
    ObjectPath path{{}, "ostrel/cimv2", class_name, {}};
    if (!name.empty()) {
        path.keys = {{"name", text_value(name)}};
    }
    return path;
}

}  // namespace

Providers::Providers() {
    simhost::Host host;
    host.set_horizon(0);
    std::string error;
    broker_ = make_broker(RTLD_DEFAULT, OXR_SOURCE_DIR "/cim", error);
    if (broker_ == nullptr || !host.wait_for_horizon(10) || StopService() != 0) {
        throw std::runtime_error("the providers don't load: " + error);
    }
}

std::string Providers::renew(const std::vector<std::string>& targets, const std::string& name,
                             const std::string& value) {
    const Answer answer = broker_->invoke_method(
        path_of(SETTING), "renewiscsiconnections",
        {{"targets", text_list(targets)}, {"paramname", text_value(name)}, {"paramvalue", text_value(value)}});
    const Value* const status = find(answer.out, "oxd_status");
    return std::to_string(answer.code) + " " + (status == nullptr ? "no status" : value_text(*status));
}

std::string Providers::set_value(const std::string& name, std::uint32_t value) {
    return std::to_string(
        broker_
            ->invoke_method(path_of(SETTING), "SetValue", {{"name", text_value(name)}, {"value", uint32_value(value)}})
            .code);
}

std::string Providers::enumerate() {
    std::string codes;
    const auto note = [&](const Answer& answer) { codes += std::to_string(answer.code) + " "; };
    for (const char* const each : {SERVICE, SETTING, ASSOCIATION}) {
        note(broker_->enumerate_instance_names(path_of(each)));
        note(broker_->enumerate_instances(path_of(each), {}));
    }
    note(broker_->get_instance(path_of(SERVICE, "OSTREL Connection Service"), {}));
    note(broker_->get_instance(path_of(SETTING, "interval"), {}));
    note(broker_->associators(path_of(SERVICE, "OSTREL Connection Service"), {}, {}));
    note(broker_->references(path_of(SETTING, "interval"), {}, {}));
    return codes;
}

Providers& providers() {
    static Providers loaded;
    return loaded;
}

}  // namespace fault_sweep
