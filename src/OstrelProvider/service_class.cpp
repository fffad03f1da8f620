#include "OstrelProvider/service_class.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "OstrelProvider/log.h"
#include "OstrelProvider/provider_tables.h"
#include "OstrelProvider/service.h"
#include "OstrelProvider/wait_debug.h"
#include "common/blank.h"
#include "common/cmpi_objects.h"

const ServiceInfo current_info = {
    .name = "OSTREL Connection Service",
    .SystemName = "localhost",
    .SystemCreationClassName = "OMC_UnitaryComputerSystem",
    .CreationClassName = "OSTREL_ConnectionService",
    .version = OXR_VERSION,
};

namespace {

// Set by the factories, always to the same broker.
std::atomic<const CMPIBroker*> OstrelProviderbroker{nullptr};

// An attached debugger clears it.
std::atomic<std::int32_t> waitDebug{0};

const char* filterKeys[] = {"name", nullptr};

// The version text of an enumeration, "oxd:%s psp:%s" with two words of at most 19 characters.
struct VersionText {
    char text[48];

    VersionText() {
        const ServiceVersions versions = service_versions();
        (void)std::snprintf(text, sizeof text, "oxd:%s psp:%s", versions.oxd_version, versions.psp_version);
    }
};

// --- instance operations ----------------------------------------------------------------------------------

CMPIStatus OstrelProviderCleanup(CMPIInstanceMI*, const CMPIContext*, CMPIBoolean) {
    OXR_INFO("Entered");
    if (const int result = StopService(); result < 0) {
        OXR_ERROR("StopService() returned %d", result);
    }
    give_back(ProviderMi::service_instance);
    return CMReturn(CMPI_RC_OK);
}

CMPIStatus OstrelProviderEnumInstanceNames(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* result,
                                           const CMPIObjectPath* path) {
    wait_for_debugger(waitDebug);
    const CMPIBroker* const broker = OstrelProviderbroker;
    if (!oxr::is_a(broker, path, "CIM_Service")) {
        return CMReturn(CMPI_RC_ERR_INVALID_CLASS);
    }
    return oxr::end_results(result, oxr::return_path(result, new_service_path(broker, current_info)));
}

CMPIStatus OstrelProviderEnumInstances(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* result,
                                       const CMPIObjectPath* path, const char** properties) {
    wait_for_debugger(waitDebug);
    const CMPIBroker* const broker = OstrelProviderbroker;
    if (!oxr::is_a(broker, path, "CIM_Service")) {
        return CMReturn(CMPI_RC_ERR_INVALID_CLASS);
    }
    CMPIInstance* const instance = new_service_instance(broker, current_info, VersionText().text, properties);
    return oxr::end_results(result, oxr::return_instance(result, instance));
}

// Ignores the requested keys: there is only one instance.
CMPIStatus OstrelProviderGetInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* result,
                                     const CMPIObjectPath*, const char** properties) {
    CMPIInstance* const instance =
        new_service_instance(OstrelProviderbroker, current_info, current_info.version, properties);
    return oxr::end_results(result, oxr::return_instance(result, instance));
}

// --- methods ----------------------------------------------------------------------------------------------

CMPIStatus OstrelProviderMethodCleanup(CMPIMethodMI*, const CMPIContext*, CMPIBoolean) {
    OXR_INFO("OstrelProviderMethodCleanup Entering");
    OXR_INFO("OstrelProviderMethodCleanup Exiting");
    give_back(ProviderMi::service_method);
    return CMReturn(CMPI_RC_OK);
}

// No arguments, no results: only the log reports failures.
CMPIStatus OstrelProviderInvokeMethod(CMPIMethodMI*, const CMPIContext*, const CMPIResult*, const CMPIObjectPath*,
                                      const char* method, const CMPIArgs*, CMPIArgs*) {
    const char* const name = method != nullptr ? method : "";
    OXR_INFO("OstrelProviderInvokeMethod Entering - methodName=%s", name);
    if (oxr::equal_ignoring_case(name, "startservice")) {
        OXR_INFO("startservice - create pthread for OXR monitoring purpose");
        (void)StartService();
    } else if (oxr::equal_ignoring_case(name, "stopservice")) {
        OXR_INFO("stopservice - cancel pthread for OXR monitoring purpose");
        (void)StopService();
    }
    OXR_INFO("OstrelProviderInvokeMethod Exiting");
    return CMReturn(CMPI_RC_OK);
}

// --- tables -----------------------------------------------------------------------------------------------

constexpr CMPIInstanceMIFT instance_table =
    make_instance_table("instanceOstrelProvider", OstrelProviderCleanup, OstrelProviderEnumInstanceNames,
                        OstrelProviderEnumInstances, OstrelProviderGetInstance);

constexpr CMPIMethodMIFT method_table = {
    .ftVersion = CMPIVersion200,
    .miVersion = CMPIVersion200,
    .miName = "methodOstrelProvider",
    .cleanup = OstrelProviderMethodCleanup,
    .invokeMethod = OstrelProviderInvokeMethod,
};

CMPIInstanceMI instance_mi = {nullptr, &instance_table};
CMPIMethodMI method_mi = {nullptr, &method_table};

}  // namespace

int Ostrel_LookupOXR(const char* setting_name, ServiceInfo* info) {
    if (setting_name == nullptr || info == nullptr) {
        return -1;
    }
    const std::string_view name = setting_name;
    if (name != "interval" && name != "vol_sessions") {
        return -1;
    }
    *info = current_info;
    return 0;
}

CMPIObjectPath* new_service_path(const CMPIBroker* broker, const ServiceInfo& info) {
    CMPIObjectPath* const path = oxr::new_path(broker, SERVICE_CLASS);
    oxr::add_text_key(path, "name", info.name);
    oxr::add_text_key(path, "CreationClassName", info.CreationClassName);
    oxr::add_text_key(path, "SystemName", info.SystemName);
    oxr::add_text_key(path, "SystemCreationClassName", info.SystemCreationClassName);
    return path;
}

CMPIInstance* new_service_instance(const CMPIBroker* broker, const ServiceInfo& info, const char* version,
                                   const char** properties) {
    CMPIInstance* const instance = oxr::new_instance(broker, new_service_path(broker, info), properties, filterKeys);
    oxr::set_text(instance, "name", info.name);
    oxr::set_text(instance, "version", version);
    oxr::set_text(instance, "CreationClassName", info.CreationClassName);
    oxr::set_text(instance, "SystemName", info.SystemName);
    oxr::set_text(instance, "SystemCreationClassName", info.SystemCreationClassName);
    return instance;
}

CMPIInstanceMI* OstrelProvider_Create_InstanceMI(const CMPIBroker* broker, const CMPIContext*, CMPIStatus*) {
    hand_out(ProviderMi::service_instance);
    OstrelProviderbroker = broker;
    OstrelProviderInit();
    return &instance_mi;
}

CMPIMethodMI* OstrelProvider_Create_MethodMI(const CMPIBroker* broker, const CMPIContext*, CMPIStatus*) {
    hand_out(ProviderMi::service_method);
    OstrelProviderbroker = broker;
    OstrelProviderInit();
    return &method_mi;
}
