// The class OSTREL_ConnectionServiceAssocSetting associates the connection service (role ManagedElement) with its
// settings (role SettingData). It has no state: each call builds its answer from upcalls to the broker and lookups in
// the two classes. Operations run concurrently on the CIM server's threads.
#pragma once

#include "cmpi/cmpi.h"

inline constexpr char ASSOCIATION_CLASS[] = "OSTREL_ConnectionServiceAssocSetting";
inline constexpr char ASSOCIATION_SUPERCLASS[] = "CIM_ElementSettingData";

inline constexpr char MANAGED_ELEMENT[] = "ManagedElement";
inline constexpr char SETTING_DATA[] = "SettingData";

// Broker of both interfaces of the association provider; null before its first factory call.
const CMPIBroker* association_broker();

// A path, and an instance on it, with the two references. `properties`, the client's property list, may be null;
// `keys` are always kept. Null if the broker cannot create one.
CMPIObjectPath* new_association_path(const CMPIBroker* broker, const CMPIObjectPath* service,
                                     const CMPIObjectPath* setting);
CMPIInstance* new_association_instance(const CMPIBroker* broker, const CMPIObjectPath* service,
                                       const CMPIObjectPath* setting, const char** properties, const char** keys);

// Instance operations. For a foreign class they return OK and no objects.
CMPIStatus OstrelAssocProviderEnumInstanceNames(CMPIInstanceMI*, const CMPIContext* context, const CMPIResult* result,
                                                const CMPIObjectPath* path);
CMPIStatus OstrelAssocProviderEnumInstances(CMPIInstanceMI*, const CMPIContext* context, const CMPIResult* result,
                                            const CMPIObjectPath* path, const char** properties);
CMPIStatus OstrelAssocProviderGetInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* result,
                                          const CMPIObjectPath* path, const char** properties);

// Association operations. For a source of another class, an argument that excludes every answer, a malformed key or an
// unknown name they return OK and no objects, without a completion call.
CMPIStatus OstrelAssocProviderAssociators(CMPIAssociationMI*, const CMPIContext*, const CMPIResult* result,
                                          const CMPIObjectPath* path, const char* assoc_class, const char* result_class,
                                          const char* role, const char* result_role, const char** properties);
CMPIStatus OstrelAssocProviderAssociatorNames(CMPIAssociationMI*, const CMPIContext*, const CMPIResult* result,
                                              const CMPIObjectPath* path, const char* assoc_class,
                                              const char* result_class, const char* role, const char* result_role);
CMPIStatus OstrelAssocProviderReferences(CMPIAssociationMI*, const CMPIContext*, const CMPIResult* result,
                                         const CMPIObjectPath* path, const char* result_class, const char* role,
                                         const char** properties);
CMPIStatus OstrelAssocProviderReferenceNames(CMPIAssociationMI*, const CMPIContext*, const CMPIResult* result,
                                             const CMPIObjectPath* path, const char* result_class, const char* role);

// Factories of the association provider. Each registers its interface as a user of the library; the interfaces are
// static. `context` and `status` are not used.
extern "C" {
__attribute__((visibility("default"))) CMPIInstanceMI* OstrelAssocProvider_Create_InstanceMI(const CMPIBroker* broker,
                                                                                             const CMPIContext* context,
                                                                                             CMPIStatus* status);
__attribute__((visibility("default"))) CMPIAssociationMI* OstrelAssocProvider_Create_AssociationMI(
    const CMPIBroker* broker, const CMPIContext* context, CMPIStatus* status);
}
