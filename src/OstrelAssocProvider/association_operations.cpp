// The four association operations: one procedure, with one table row for each operation.
#include "OstrelAssocProvider/association_class.h"
#include "OstrelAssocProvider/association_filters.h"
#include "OstrelProvider/log.h"
#include "OstrelProvider/service_class.h"
#include "OstrelProviderSetting/setting_class.h"
#include "common/cmpi_objects.h"

namespace {

const char* filterKeys[] = {"name", nullptr};

constexpr char malformed_service_key_value[] = "OSTREL_ConnectionService Key value is malformed.";
constexpr char malformed_service_key[] = "OSTREL_ConnectionService Key is malformed.";
constexpr char malformed_setting_key_value[] = "OSTREL_ConnectionServiceSetting Key value is malformed.";
constexpr char malformed_setting_key[] = "OSTREL_ConnectionServiceSetting Key is malformed.";

// A path that identifies an object by its key `name` alone.
CMPIObjectPath* new_name_path(const CMPIBroker* broker, const char* class_name, const char* name) {
    CMPIObjectPath* const path = oxr::new_path(broker, class_name);
    oxr::add_text_key(path, "name", name);
    return path;
}

// --- answers: each returns one object; what the broker can't make or take is left out ------------------------

void return_setting(const AssociationRequest& request, const char*, const SettingEntry& setting) {
    CMPIInstance* const instance =
        oxr::new_instance(request.broker, new_setting_path(request.broker, setting), request.properties, filterKeys);
    oxr::set_text(instance, "name", setting.name);
    oxr::set_text(instance, "InstanceId", setting.InstanceId);
    oxr::set_uint32(instance, "value", setting.value);
    oxr::set_text(instance, "description", setting.description);
    (void)oxr::return_instance(request.result, instance);
}

void return_service(const AssociationRequest& request, const char*, const ServiceInfo& info) {
    OXR_INFO_IN(request.operation, "oxrName = %s", info.name);
    (void)oxr::return_instance(request.result,
                               new_service_instance(request.broker, info, info.version, request.properties));
}

void return_setting_path(const AssociationRequest& request, const char*, const SettingEntry& setting) {
    (void)oxr::return_path(request.result, new_setting_path(request.broker, setting));
}

void return_service_path(const AssociationRequest& request, const char*, const ServiceInfo& info) {
    (void)oxr::return_path(request.result, new_service_path(request.broker, info));
}

void return_reference(const AssociationRequest& request, const char* service_name, const char* setting_name) {
    const CMPIObjectPath* const service = new_name_path(request.broker, SERVICE_CLASS, service_name);
    const CMPIObjectPath* const setting = new_name_path(request.broker, SETTING_CLASS, setting_name);
    (void)oxr::return_instance(
        request.result, new_association_instance(request.broker, service, setting, request.properties, filterKeys));
}

void return_reference_name(const AssociationRequest& request, const char* service_name, const char* setting_name) {
    const CMPIObjectPath* const service = new_name_path(request.broker, SERVICE_CLASS, service_name);
    const CMPIObjectPath* const setting = new_name_path(request.broker, SETTING_CLASS, setting_name);
    (void)oxr::return_path(request.result, new_association_path(request.broker, service, setting));
}

// The pair of the source and what was found.
template <auto return_pair>
void return_with_setting(const AssociationRequest& request, const char* source_name, const SettingEntry& setting) {
    return_pair(request, source_name, setting.name);
}

template <auto return_pair>
void return_with_service(const AssociationRequest& request, const char* source_name, const ServiceInfo& info) {
    return_pair(request, info.name, source_name);
}

// --- the procedure ------------------------------------------------------------------------------------------

// Where an operation differs from the others. `source_name` is the source's key.
struct Operation {
    const char* malformed_service;
    const char* malformed_setting;
    bool (*passes_filters)(const AssociationRequest& request);
    void (*answer_with_setting)(const AssociationRequest& request, const char* source_name,
                                const SettingEntry& setting);
    void (*answer_with_service)(const AssociationRequest& request, const char* source_name, const ServiceInfo& info);
};

constexpr Operation associators = {
    .malformed_service = malformed_service_key_value,
    .malformed_setting = malformed_setting_key_value,
    .passes_filters = passes_associator_filters,
    .answer_with_setting = return_setting,
    .answer_with_service = return_service,
};

constexpr Operation associator_names = {
    .malformed_service = malformed_service_key,
    .malformed_setting = malformed_setting_key,
    .passes_filters = passes_associator_filters,
    .answer_with_setting = return_setting_path,
    .answer_with_service = return_service_path,
};

constexpr Operation references = {
    .malformed_service = malformed_service_key_value,
    .malformed_setting = malformed_setting_key,
    .passes_filters = passes_reference_filters,
    .answer_with_setting = return_with_setting<return_reference>,
    .answer_with_service = return_with_service<return_reference>,
};

constexpr Operation reference_names = {
    .malformed_service = malformed_service_key,
    .malformed_setting = malformed_setting_key,
    .passes_filters = passes_reference_name_filters,
    .answer_with_setting = return_with_setting<return_reference_name>,
    .answer_with_service = return_with_service<return_reference_name>,
};

CMPIStatus answer_with_settings(const Operation& operation, const AssociationRequest& request,
                                const char* source_name) {
    SettingEntry settings[NUM_SETTINGS];
    int count = 0;
    if (Ostrel_LookupSettingByOXR(source_name, settings, &count) != 0) {
        return CMReturn(CMPI_RC_OK);
    }
    for (int i = 0; i < count; ++i) {
        operation.answer_with_setting(request, source_name, settings[i]);
    }
    return oxr::end_results(request.result);
}

CMPIStatus answer_with_service(const Operation& operation, const AssociationRequest& request, const char* source_name) {
    ServiceInfo info;
    if (Ostrel_LookupOXR(source_name, &info) != 0) {
        return CMReturn(CMPI_RC_OK);
    }
    operation.answer_with_service(request, source_name, info);
    return oxr::end_results(request.result);
}

CMPIStatus run(const Operation& operation, AssociationRequest request) {
    request.side = side_of(request.broker, request.path);
    if (request.side == SourceSide::other || !operation.passes_filters(request)) {
        return CMReturn(CMPI_RC_OK);
    }
    const bool from_service = request.side == SourceSide::service;
    const char* const source_name = oxr::text_of(oxr::get_key(request.path, "name"));
    if (source_name == nullptr) {
        OXR_WARN_IN(request.operation, "%s", from_service ? operation.malformed_service : operation.malformed_setting);
        return CMReturn(CMPI_RC_OK);
    }
    return from_service ? answer_with_settings(operation, request, source_name)
                        : answer_with_service(operation, request, source_name);
}

}  // namespace

CMPIStatus OstrelAssocProviderAssociators(CMPIAssociationMI*, const CMPIContext*, const CMPIResult* result,
                                          const CMPIObjectPath* path, const char*, const char* result_class,
                                          const char* role, const char* result_role, const char** properties) {
    return run(associators, {__func__, association_broker(), result, path, result_class, role, result_role, properties,
                             SourceSide::other});
}

CMPIStatus OstrelAssocProviderAssociatorNames(CMPIAssociationMI*, const CMPIContext*, const CMPIResult* result,
                                              const CMPIObjectPath* path, const char*, const char* result_class,
                                              const char* role, const char* result_role) {
    return run(associator_names, {__func__, association_broker(), result, path, result_class, role, result_role,
                                  nullptr, SourceSide::other});
}

CMPIStatus OstrelAssocProviderReferences(CMPIAssociationMI*, const CMPIContext*, const CMPIResult* result,
                                         const CMPIObjectPath* path, const char* result_class, const char* role,
                                         const char** properties) {
    return run(references, {__func__, association_broker(), result, path, result_class, role, nullptr, properties,
                            SourceSide::other});
}

CMPIStatus OstrelAssocProviderReferenceNames(CMPIAssociationMI*, const CMPIContext*, const CMPIResult* result,
                                             const CMPIObjectPath* path, const char* result_class, const char* role) {
    return run(reference_names,
               {__func__, association_broker(), result, path, result_class, role, nullptr, nullptr, SourceSide::other});
}
