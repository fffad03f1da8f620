#include "fault_sweep/providers.h"

#include <dlfcn.h>

#include <stdexcept>

#include "OstrelProvider/service.h"
#include "cimserver/server.h"
#include "simhost/host.h"
#include "support/cim.h"

using namespace testing_support;

namespace fault_sweep {

Providers::Providers() {
    simhost::Host host;
    host.set_horizon(0);
    std::string error;
    broker_ = cimserver::make_broker(RTLD_DEFAULT, OXR_SOURCE_DIR "/cim", error);
    if (broker_ == nullptr || !host.wait_for_horizon(10) || StopService() != 0) {
        throw std::runtime_error("the providers don't load: " + error);
    }
}

std::string Providers::renew(const std::vector<std::string>& targets, const std::string& name,
                             const std::string& value) {
    return "renewed " + testing_support::renew(*broker_, targets, name, value);
}

std::string Providers::set_value(const std::string& name, std::uint32_t value) {
    return std::to_string(testing_support::set_value(*broker_, name, value).code);
}

std::string Providers::enumerate() {
    std::string codes;
    const auto note = [&](const cimserver::Answer& answer) { codes += std::to_string(answer.code) + " "; };
    for (const char* const each : {SERVICE, SETTING, ASSOCIATION}) {
        note(broker_->enumerate_instance_names(path_of(each)));
        note(broker_->enumerate_instances(path_of(each), {}));
    }
    for (const auto& path : {service(), named(SETTING, "interval")}) {
        note(broker_->get_instance(path, {}));
        note(broker_->associators(path, {}, {}));
        note(broker_->references(path, {}, {}));
    }
    return codes;
}

Providers& providers() {
    static Providers loaded;
    return loaded;
}

}  // namespace fault_sweep
