// What the tables of the providers' management interfaces have in common.
#pragma once

#include "OstrelProvider/provider_users.h"
#include "cmpi/cmpi.h"

// A cleanup that has nothing else to do.
template <ProviderMi interface, typename Mi>
CMPIStatus give_back_only(Mi*, const CMPIContext*, CMPIBoolean) {
    give_back(interface);
    return CMReturn(CMPI_RC_OK);
}

// An operation that answers the code and nothing.
template <CMPIrc code, typename... Arguments>
CMPIStatus answer_only(Arguments...) {
    return CMReturn(code);
}

// The table of an instance interface. Nothing here is created, changed, deleted or queried by clients.
constexpr CMPIInstanceMIFT make_instance_table(const char* name, decltype(CMPIInstanceMIFT::cleanup) cleanup,
                                               decltype(CMPIInstanceMIFT::enumerateInstanceNames) enumerate_names,
                                               decltype(CMPIInstanceMIFT::enumerateInstances) enumerate,
                                               decltype(CMPIInstanceMIFT::getInstance) get) {
    return {
        .ftVersion = CMPIVersion200,
        .miVersion = CMPIVersion200,
        .miName = name,
        .cleanup = cleanup,
        .enumerateInstanceNames = enumerate_names,
        .enumerateInstances = enumerate,
        .getInstance = get,
        .createInstance = answer_only<CMPI_RC_ERR_NOT_SUPPORTED>,
        .modifyInstance = answer_only<CMPI_RC_ERR_NOT_SUPPORTED>,
        .deleteInstance = answer_only<CMPI_RC_ERR_NOT_SUPPORTED>,
        .execQuery = answer_only<CMPI_RC_ERR_NOT_SUPPORTED>,
    };
}
