// CIM requests as clients make them, through a broker.
#pragma once

#include <dlfcn.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "OstrelProvider/service.h"
#include "cimserver/broker/broker.h"
#include "cimserver/server.h"
#include "simhost/host.h"

namespace testing_support {

inline constexpr char SERVICE[] = "OSTREL_ConnectionService";
inline constexpr char SETTING[] = "OSTREL_ConnectionServiceSetting";
inline constexpr char ASSOCIATION[] = "OSTREL_ConnectionServiceAssocSetting";

inline cimserver::ObjectPath path_of(const std::string& class_name, cimserver::NamedList keys = {}) {
    return {{}, "ostrel/cimv2", class_name, std::move(keys)};
}

inline cimserver::ObjectPath named(const std::string& class_name, const std::string& name) {
    return path_of(class_name, {{"name", cimserver::text_value(name)}});
}

inline cimserver::ObjectPath service() {
    return named(SERVICE, "OSTREL Connection Service");
}

// The providers of a library, from dlopen, behind a broker.
inline std::unique_ptr<cimserver::Broker> load_providers(void* library) {
    std::string error;
    auto broker = cimserver::make_broker(library, "", error);
    return broker != nullptr ? std::move(broker) : throw std::runtime_error("the providers don't load: " + error);
}

// What a factory of the library makes for this broker.
template <typename Mi>
Mi* create(void* library, const std::string& factory, const CMPIBroker* broker) {
    using Factory = Mi* (*)(const CMPIBroker*, const CMPIContext*, CMPIStatus*);
    return reinterpret_cast<Factory>(dlsym(library, factory.c_str()))(broker, nullptr, nullptr);
}

// The providers of this program behind a broker, loaded at the first call for the whole process, without a worker.
inline const cimserver::Broker& providers(simhost::Host& host) {
    static const cimserver::Broker& loaded = [&host]() -> const cimserver::Broker& {
        host.set_horizon(host.now());
        auto broker = load_providers(RTLD_DEFAULT);
        if (!host.wait_for_horizon(60) || StopService() != 0) {
            throw std::runtime_error("the worker doesn't come to its sleep");
        }
        return *broker.release();  // its cleanup would need a host
    }();
    return loaded;
}

// "CODE MESSAGE"
inline std::string told(const cimserver::ProviderAnswer& answer) {
    return std::to_string(answer.code) + " " + answer.message;
}

inline cimserver::ProviderAnswer set_value(const cimserver::Broker& broker, const std::string& name,
                                           std::uint32_t value) {
    return broker.invoke_method(path_of(SETTING), "SetValue",
                                {{"name", cimserver::text_value(name)}, {"value", cimserver::uint32_value(value)}});
}

// The OXD status of a renewal; "none" when the call was refused.
inline std::string renew(const cimserver::Broker& broker, const std::vector<std::string>& iqns,
                         const std::string& paramname = "", const std::string& paramvalue = "") {
    const cimserver::ProviderAnswer answer = broker.invoke_method(path_of(SETTING), "renewiscsiconnections",
                                                                  {{"targets", cimserver::text_list(iqns)},
                                                                   {"paramname", cimserver::text_value(paramname)},
                                                                   {"paramvalue", cimserver::text_value(paramvalue)}});
    const cimserver::CimValue* const status = cimserver::find(answer.out, "oxd_status");
    return status == nullptr ? "none" : cimserver::value_text(*status);
}

}  // namespace testing_support
