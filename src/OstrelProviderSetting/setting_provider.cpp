// Factories, tables and cleanups of the setting provider.
#include <atomic>

#include "OstrelProvider/log.h"
#include "OstrelProvider/provider_users.h"
#include "OstrelProviderSetting/setting_class.h"
#include "OstrelProviderSetting/setting_methods.h"
#include "common/cmpi_unsupported.h"

namespace {

// Set by the factories, always to the same broker.
std::atomic<const CMPIBroker*> OstrelProviderSettingbroker{nullptr};

CMPIStatus OstrelProviderSettingCleanup(CMPIInstanceMI*, const CMPIContext*, CMPIBoolean) {
    give_back(ProviderMi::setting_instance);
    return CMReturn(CMPI_RC_OK);
}

CMPIStatus OstrelProviderSettingMethodCleanup(CMPIMethodMI*, const CMPIContext*, CMPIBoolean) {
    give_back(ProviderMi::setting_method);
    return CMReturn(CMPI_RC_OK);
}

constexpr CMPIInstanceMIFT instance_table = {
    .ftVersion = CMPIVersion200,
    .miVersion = CMPIVersion200,
    .miName = "instanceOstrelProviderSetting",
    .cleanup = OstrelProviderSettingCleanup,
    .enumerateInstanceNames = OstrelProviderSettingEnumInstanceNames,
    .enumerateInstances = OstrelProviderSettingEnumInstances,
    .getInstance = OstrelProviderSettingGetInstance,
    .createInstance = oxr::create_instance_not_supported,
    .modifyInstance = oxr::modify_instance_not_supported,
    .deleteInstance = oxr::delete_instance_not_supported,
    .execQuery = oxr::exec_query_not_supported,
};

constexpr CMPIMethodMIFT method_table = {
    .ftVersion = CMPIVersion200,
    .miVersion = CMPIVersion200,
    .miName = "methodOstrelProviderSetting",
    .cleanup = OstrelProviderSettingMethodCleanup,
    .invokeMethod = OstrelProviderSettingInvokeMethod,
};

CMPIInstanceMI instance_mi = {nullptr, &instance_table};
CMPIMethodMI method_mi = {nullptr, &method_table};

}  // namespace

const CMPIBroker* setting_broker() {
    return OstrelProviderSettingbroker;
}

CMPIInstanceMI* OstrelProviderSetting_Create_InstanceMI(const CMPIBroker* broker, const CMPIContext*, CMPIStatus*) {
    hand_out(ProviderMi::setting_instance);
    OstrelProviderSettingbroker = broker;
    OXR_INFO("OstrelProviderSetting Initiated.");
    return &instance_mi;
}

CMPIMethodMI* OstrelProviderSetting_Create_MethodMI(const CMPIBroker* broker, const CMPIContext*, CMPIStatus*) {
    hand_out(ProviderMi::setting_method);
    OstrelProviderSettingbroker = broker;
    OXR_INFO("OstrelProviderSetting Initiated.");
    return &method_mi;
}
