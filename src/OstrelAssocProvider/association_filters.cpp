#include "OstrelAssocProvider/association_filters.h"

#include "OstrelAssocProvider/association_class.h"
#include "OstrelProvider/log.h"
#include "OstrelProvider/service_class.h"
#include "OstrelProviderSetting/setting_class.h"
#include "common/blank.h"
#include "common/cmpi_objects.h"

namespace {

bool is_given(const char* argument) {
    return argument != nullptr && argument[0] != '\0';
}

bool names(const char* argument, const char* class_name) {
    return is_given(argument) && oxr::equal_ignoring_case(argument, class_name);
}

// A path of this class in the namespace of the request.
CMPIObjectPath* new_path_beside(const AssociationRequest& request, const char* class_name) {
    const CMPIString* const name_space = CMGetNameSpace(request.path, nullptr);
    const char* const text = name_space != nullptr ? CMGetCharPtr(name_space) : nullptr;
    return CMNewObjectPath(request.broker, text != nullptr ? text : oxr::CIM_NAMESPACE, class_name, nullptr);
}

bool is_class(const AssociationRequest& request, const char* argument, const char* class_name) {
    return oxr::is_a(request.broker, new_path_beside(request, argument), class_name);
}

bool refuse_role(const AssociationRequest& request) {
    OXR_WARN_IN(request.operation, "unknown or incorrect role. role = %s. Returning success but no instances.",
                request.role);
    return false;
}

bool refuse_result_role(const AssociationRequest& request) {
    OXR_WARN_IN(request.operation,
                "unknown or incorrect resultRole. resultRole = %s. Returning success but no instances.",
                request.result_role);
    return false;
}

bool refuse_result_class(const AssociationRequest& request) {
    OXR_WARN_IN(request.operation,
                "unknown or incorrect resultClass. resultClass = %s. Returning success but no instances.",
                request.result_class);
    return false;
}

const char* source_class(const AssociationRequest& request) {
    return request.side == SourceSide::service ? SERVICE_CLASS : SETTING_CLASS;
}

const char* other_class(const AssociationRequest& request) {
    return request.side == SourceSide::service ? SETTING_CLASS : SERVICE_CLASS;
}

bool excludes_result_class(const AssociationRequest& request, const char* class_name) {
    return is_given(request.result_class) && !is_class(request, request.result_class, class_name);
}

}  // namespace

SourceSide side_of(const CMPIBroker* broker, const CMPIObjectPath* path) {
    if (oxr::is_a(broker, path, SERVICE_CLASS)) {
        return SourceSide::service;
    }
    return oxr::is_a(broker, path, SETTING_CLASS) ? SourceSide::setting : SourceSide::other;
}

bool passes_associator_filters(const AssociationRequest& request) {
    if (names(request.role, source_class(request))) {
        return refuse_role(request);
    }
    if (names(request.result_role, other_class(request))) {
        return refuse_result_role(request);
    }
    if (excludes_result_class(request, other_class(request))) {
        return refuse_result_class(request);
    }
    return true;
}

bool passes_reference_filters(const AssociationRequest& request) {
    if (excludes_result_class(request, ASSOCIATION_CLASS)) {
        return refuse_result_class(request);
    }
    if (is_given(request.role) && is_class(request, request.role, ASSOCIATION_CLASS)) {
        return refuse_role(request);
    }
    return true;
}

bool passes_reference_name_filters(const AssociationRequest& request) {
    if (names(request.role, source_class(request))) {
        return refuse_role(request);
    }
    if (excludes_result_class(request, ASSOCIATION_SUPERCLASS)) {
        return refuse_result_class(request);
    }
    return true;
}
