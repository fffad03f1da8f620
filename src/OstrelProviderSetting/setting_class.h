// The class OSTREL_ConnectionServiceSetting: one instance per setting. Operations run concurrently on the CIM server's
// threads.
#pragma once

#include "OstrelProviderSetting/setting_table.h"
#include "cmpi/cmpi.h"

inline constexpr char SETTING_CLASS[] = "OSTREL_ConnectionServiceSetting";

// The setting's path with its two keys. `id_key` is the spelling of the second key. Null if the broker cannot create
// one.
CMPIObjectPath* new_setting_path(const CMPIBroker* broker, const SettingEntry& setting,
                                 const char* id_key = "InstanceId");

// Broker of both interfaces of the setting provider; null before its first factory call.
const CMPIBroker* setting_broker();

// Instance operations of the setting provider.
CMPIStatus OstrelProviderSettingEnumInstanceNames(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* result,
                                                  const CMPIObjectPath* path);
CMPIStatus OstrelProviderSettingEnumInstances(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* result,
                                              const CMPIObjectPath* path, const char** properties);
CMPIStatus OstrelProviderSettingGetInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* result,
                                            const CMPIObjectPath*, const char** properties);

// Factories of the setting provider. Each registers its interface as a user of the library; the interfaces are static.
// `context` and `status` are not used.
extern "C" {
__attribute__((visibility("default"))) CMPIInstanceMI* OstrelProviderSetting_Create_InstanceMI(
    const CMPIBroker* broker, const CMPIContext* context, CMPIStatus* status);
__attribute__((visibility("default"))) CMPIMethodMI* OstrelProviderSetting_Create_MethodMI(const CMPIBroker* broker,
                                                                                           const CMPIContext* context,
                                                                                           CMPIStatus* status);
}
