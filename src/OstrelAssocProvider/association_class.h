// The class OSTREL_ConnectionServiceAssocSetting: ties the connection service (role ManagedElement) to its
// settings (role SettingData). Nothing is kept; every answer is built per call from the broker's upcalls and
// the lookups of the two classes. Operations run on the CIM server's threads, several at once.
#pragma once

#include "cmpi/cmpi.h"

inline constexpr char ASSOCIATION_CLASS[] = "OSTREL_ConnectionServiceAssocSetting";
inline constexpr char ASSOCIATION_SUPERCLASS[] = "CIM_ElementSettingData";

inline constexpr char MANAGED_ELEMENT[] = "ManagedElement";
inline constexpr char SETTING_DATA[] = "SettingData";

// Broker of both interfaces of the association provider; null before its first factory call.
const CMPIBroker* association_broker();

// A path, and an instance on it, with the two references. `properties`: the client's property list, may be
// null; `keys` are always kept. Null when the broker can't make one.
CMPIObjectPath* new_association_path(const CMPIBroker* broker, const CMPIObjectPath* service,
                                     const CMPIObjectPath* setting);
CMPIInstance* new_association_instance(const CMPIBroker* broker, const CMPIObjectPath* service,
                                       const CMPIObjectPath* setting, const char** properties, const char** keys);

// Instance operations. A class that isn't ours gets OK and nothing.
CMPIStatus OstrelAssocProviderEnumInstanceNames(CMPIInstanceMI*, const CMPIContext* context, const CMPIResult* result,
                                                const CMPIObjectPath* path);
CMPIStatus OstrelAssocProviderEnumInstances(CMPIInstanceMI*, const CMPIContext* context, const CMPIResult* result,
                                            const CMPIObjectPath* path, const char** properties);
CMPIStatus OstrelAssocProviderGetInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* result,
                                          const CMPIObjectPath* path, const char** properties);

// Association operations. A source of another class, an argument that excludes every answer, a malformed key
// and a name that nobody has get OK and nothing, without a completion call.
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

// Factories of the association provider. Each makes its interface a user of the library; the interfaces live
// for ever. `context` and `status` are not used.
extern "C" {
__attribute__((visibility("default"))) CMPIInstanceMI* OstrelAssocProvider_Create_InstanceMI(const CMPIBroker* broker,
                                                                                             const CMPIContext* context,
                                                                                             CMPIStatus* status);
__attribute__((visibility("default"))) CMPIAssociationMI* OstrelAssocProvider_Create_AssociationMI(
    const CMPIBroker* broker, const CMPIContext* context, CMPIStatus* status);
}
