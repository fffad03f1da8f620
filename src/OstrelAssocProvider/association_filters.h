// The end of the association from which a request starts, and the arguments that can exclude every answer.
#pragma once

#include "cmpi/cmpi.h"

enum class SourceSide { service, setting, other };

// The arguments of one association operation. Absent ones are null; an empty text counts as absent.
struct AssociationRequest {
    const char* operation;  // in messages
    const CMPIBroker* broker;
    const CMPIResult* result;
    const CMPIObjectPath* path;
    const char* result_class;
    const char* role;
    const char* result_role;
    const char** properties;
    SourceSide side;
};

// The source's end, by its class.
SourceSide side_of(const CMPIBroker* broker, const CMPIObjectPath* path);

// False if an argument of the request excludes every answer; logs it at WARN.
bool passes_associator_filters(const AssociationRequest& request);
bool passes_reference_filters(const AssociationRequest& request);
bool passes_reference_name_filters(const AssociationRequest& request);
