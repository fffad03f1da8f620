// Instance operations that no class of this library supports: entries for the providers' tables.
#pragma once

#include "cmpi/cmpi.h"

namespace oxr {

inline CMPIStatus create_instance_not_supported(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,
                                                const CMPIObjectPath*, const CMPIInstance*) {
    return CMReturn(CMPI_RC_ERR_NOT_SUPPORTED);
}

inline CMPIStatus modify_instance_not_supported(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,
                                                const CMPIObjectPath*, const CMPIInstance*, const char**) {
    return CMReturn(CMPI_RC_ERR_NOT_SUPPORTED);
}

inline CMPIStatus delete_instance_not_supported(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,
                                                const CMPIObjectPath*) {
    return CMReturn(CMPI_RC_ERR_NOT_SUPPORTED);
}

inline CMPIStatus exec_query_not_supported(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,
                                           const CMPIObjectPath*, const char*, const char*) {
    return CMReturn(CMPI_RC_ERR_NOT_SUPPORTED);
}

}  // namespace oxr
