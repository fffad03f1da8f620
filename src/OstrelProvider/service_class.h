// The class OSTREL_ConnectionService: its one instance and its methods.
// Operations run concurrently on the CIM server's threads.
#pragma once

#include "cmpi/cmpi.h"

inline constexpr char SERVICE_CLASS[] = "OSTREL_ConnectionService";

// The service's properties. Every text is terminated.
struct ServiceInfo {
    char name[40];
    char SystemName[20];
    char SystemCreationClassName[40];
    char CreationClassName[40];
    char version[30];
};

// Never changes.
extern const ServiceInfo current_info;

// The service of a setting. 0 and a copy of current_info if a setting has exactly this name; else -1, `info`
// unchanged.
int Ostrel_LookupOXR(const char* setting_name, ServiceInfo* info);

// The service's path with its four keys, and its instance with the given version text. `properties`, the client's
// property list, may be null. Null if the broker cannot create one.
CMPIObjectPath* new_service_path(const CMPIBroker* broker, const ServiceInfo& info);
CMPIInstance* new_service_instance(const CMPIBroker* broker, const ServiceInfo& info, const char* version,
                                   const char** properties);

// Factories of the service provider. Each registers its interface as a user of the library and starts the service; the
// interfaces are static. `context` and `status` are not used.
extern "C" {
__attribute__((visibility("default"))) CMPIInstanceMI* OstrelProvider_Create_InstanceMI(const CMPIBroker* broker,
                                                                                        const CMPIContext* context,
                                                                                        CMPIStatus* status);
__attribute__((visibility("default"))) CMPIMethodMI* OstrelProvider_Create_MethodMI(const CMPIBroker* broker,
                                                                                    const CMPIContext* context,
                                                                                    CMPIStatus* status);
}
