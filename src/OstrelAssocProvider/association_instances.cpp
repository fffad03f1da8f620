// Enumerates and gets association instances.
#include "OstrelAssocProvider/association_class.h"
#include "OstrelProvider/log.h"
#include "OstrelProvider/service_class.h"
#include "OstrelProviderSetting/setting_class.h"
#include "common/cmpi_objects.h"

namespace {

const char* reference_keys[] = {MANAGED_ELEMENT, SETTING_DATA, nullptr};

CMPIEnumeration* enumerate_names(const CMPIBroker* broker, const CMPIContext* context, const char* class_name) {
    const CMPIObjectPath* const path = oxr::new_path(broker, class_name);
    return path == nullptr ? nullptr : CBEnumInstanceNames(broker, context, path, nullptr);
}

// The next path of an enumeration, which may be null; null at the end.
CMPIObjectPath* next_path(const CMPIEnumeration* names) {
    while (names != nullptr && CMHasNext(names, nullptr) != 0) {
        const CMPIData name = CMGetNext(names, nullptr);
        if (name.type == CMPI_ref && oxr::has_value(name) && name.value.ref != nullptr) {
            return name.value.ref;
        }
    }
    return nullptr;
}

// An object that the broker cannot create or accept is omitted; the status is still OK.
using ReturnAssociation = void (*)(const CMPIBroker* broker, const CMPIResult* result, const CMPIObjectPath* service,
                                   const CMPIObjectPath* setting, const char** properties);

void return_association_path(const CMPIBroker* broker, const CMPIResult* result, const CMPIObjectPath* service,
                             const CMPIObjectPath* setting, const char**) {
    (void)oxr::return_path(result, new_association_path(broker, service, setting));
}

void return_association_instance(const CMPIBroker* broker, const CMPIResult* result, const CMPIObjectPath* service,
                                 const CMPIObjectPath* setting, const char** properties) {
    (void)oxr::return_instance(result, new_association_instance(broker, service, setting, properties, reference_keys));
}

// The first service, with every setting in the broker's order.
CMPIStatus enumerate(const CMPIContext* context, const CMPIResult* result, const CMPIObjectPath* path,
                     const char** properties, ReturnAssociation return_association) {
    const CMPIBroker* const broker = association_broker();
    if (!oxr::is_a(broker, path, ASSOCIATION_SUPERCLASS)) {
        return CMReturn(CMPI_RC_OK);
    }
    const CMPIEnumeration* const services = enumerate_names(broker, context, SERVICE_CLASS);
    const CMPIEnumeration* const settings = enumerate_names(broker, context, SETTING_CLASS);
    if (const CMPIObjectPath* const service = next_path(services)) {
        while (const CMPIObjectPath* const setting = next_path(settings)) {
            return_association(broker, result, service, setting, properties);
        }
    }
    return oxr::end_results(result);
}

bool is_our_service(const CMPIObjectPath* service) {
    SettingEntry settings[NUM_SETTINGS];
    int count = 0;
    return Ostrel_LookupSettingByOXR(oxr::text_of(oxr::get_key(service, "name")), settings, &count) == 0;
}

bool is_our_setting(const CMPIObjectPath* setting) {
    ServiceInfo info;
    return Ostrel_LookupOXR(oxr::text_of(oxr::get_key(setting, "name")), &info) == 0;
}

}  // namespace

CMPIObjectPath* new_association_path(const CMPIBroker* broker, const CMPIObjectPath* service,
                                     const CMPIObjectPath* setting) {
    CMPIObjectPath* const path = oxr::new_path(broker, ASSOCIATION_CLASS);
    oxr::add_reference_key(path, MANAGED_ELEMENT, service);
    oxr::add_reference_key(path, SETTING_DATA, setting);
    return path;
}

CMPIInstance* new_association_instance(const CMPIBroker* broker, const CMPIObjectPath* service,
                                       const CMPIObjectPath* setting, const char** properties, const char** keys) {
    CMPIInstance* const instance =
        oxr::new_instance(broker, new_association_path(broker, service, setting), properties, keys);
    oxr::set_reference(instance, MANAGED_ELEMENT, service);
    oxr::set_reference(instance, SETTING_DATA, setting);
    return instance;
}

CMPIStatus OstrelAssocProviderEnumInstanceNames(CMPIInstanceMI*, const CMPIContext* context, const CMPIResult* result,
                                                const CMPIObjectPath* path) {
    OXR_INFO("Entered OstrelAssocProviderEnumInstanceNames");
    return enumerate(context, result, path, nullptr, return_association_path);
}

CMPIStatus OstrelAssocProviderEnumInstances(CMPIInstanceMI*, const CMPIContext* context, const CMPIResult* result,
                                            const CMPIObjectPath* path, const char** properties) {
    return enumerate(context, result, path, properties, return_association_instance);
}

CMPIStatus OstrelAssocProviderGetInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* result,
                                          const CMPIObjectPath* path, const char** properties) {
    OXR_INFO("Entered OstrelAssocProviderGetInstance");
    const CMPIBroker* const broker = association_broker();
    const CMPIObjectPath* const service = oxr::get_reference_key(path, MANAGED_ELEMENT);
    const CMPIObjectPath* const setting = oxr::get_reference_key(path, SETTING_DATA);
    if (service == nullptr || setting == nullptr || !is_our_service(service) || !is_our_setting(setting)) {
        return CMReturn(CMPI_RC_ERR_NOT_FOUND);
    }
    return_association_instance(broker, result, service, setting, properties);
    return oxr::end_results(result);
}
