// The class OSTREL_ConnectionService: its one instance and its methods "startservice" and "stopservice".
// Operations run on the CIM server's threads, several at once.
#pragma once

#include "cmpi/cmpi.h"

inline constexpr char SERVICE_CLASS[] = "OSTREL_ConnectionService";

// The service as its instance shows it. Every text is terminated.
struct ServiceInfo {
    char name[40];
    char SystemName[20];
    char SystemCreationClassName[40];
    char CreationClassName[40];
    char version[30];
};

// Never changes.
extern const ServiceInfo current_info;

// The service that a setting belongs to. 0 and a copy of current_info when the name is exactly that of a
// setting; else -1, `info` untouched.
int Ostrel_LookupOXR(const char* setting_name, ServiceInfo* info);

// The service's path with its four keys, and its instance with the given version text. `properties`: the
// client's property list, may be null. Null when the broker can't make one.
CMPIObjectPath* new_service_path(const CMPIBroker* broker, const ServiceInfo& info);
CMPIInstance* new_service_instance(const CMPIBroker* broker, const ServiceInfo& info, const char* version,
                                   const char** properties);

// Factories of the service provider. Each makes its interface a user of the library and starts the service;
// the interfaces live for ever. `context` and `status` are not used.
extern "C" {
__attribute__((visibility("default"))) CMPIInstanceMI* OstrelProvider_Create_InstanceMI(const CMPIBroker* broker,
                                                                                        const CMPIContext* context,
                                                                                        CMPIStatus* status);
__attribute__((visibility("default"))) CMPIMethodMI* OstrelProvider_Create_MethodMI(const CMPIBroker* broker,
                                                                                    const CMPIContext* context,
                                                                                    CMPIStatus* status);
}
