// Factories, tables and cleanups of the setting provider.
#include <atomic>

#include "OstrelProvider/log.h"
#include "OstrelProvider/provider_tables.h"
#include "OstrelProviderSetting/setting_class.h"
#include "OstrelProviderSetting/setting_methods.h"

namespace {

// Set by the factories, always to the same broker.
std::atomic<const CMPIBroker*> OstrelProviderSettingbroker{nullptr};

constexpr CMPIInstanceMIFT instance_table = make_instance_table(
    "instanceOstrelProviderSetting", give_back_only<ProviderMi::setting_instance>,
    OstrelProviderSettingEnumInstanceNames, OstrelProviderSettingEnumInstances, OstrelProviderSettingGetInstance);

constexpr CMPIMethodMIFT method_table = {
    .ftVersion = CMPIVersion200,
    .miVersion = CMPIVersion200,
    .miName = "methodOstrelProviderSetting",
    .cleanup = give_back_only<ProviderMi::setting_method>,
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
