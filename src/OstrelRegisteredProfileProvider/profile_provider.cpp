#include "OstrelRegisteredProfileProvider/profile_provider.h"

#include "OstrelProvider/log.h"
#include "OstrelProvider/provider_users.h"
#include "OstrelProvider/service.h"
#include "common/cmpi_unsupported.h"

namespace {

void OstrelProfileProviderInit() {
    OXR_INFO("Entered..calling OstrelProviderInit");
    OstrelProviderInit();
}

CMPIStatus OstrelProfileProviderCleanup(CMPIInstanceMI*, const CMPIContext*, CMPIBoolean) {
    give_back(ProviderMi::profile_instance);
    return CMReturn(CMPI_RC_OK);
}

CMPIStatus OstrelProfileProviderEnumInstanceNames(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,
                                                  const CMPIObjectPath*) {
    return CMReturn(CMPI_RC_OK);
}

CMPIStatus OstrelProfileProviderEnumInstances(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,
                                              const CMPIObjectPath*, const char**) {
    return CMReturn(CMPI_RC_OK);
}

CMPIStatus OstrelProfileProviderGetInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult*,
                                            const CMPIObjectPath*, const char**) {
    return CMReturn(CMPI_RC_OK);
}

constexpr CMPIInstanceMIFT instance_table = {
    .ftVersion = CMPIVersion200,
    .miVersion = CMPIVersion200,
    .miName = "instanceOstrelProfileProvider",
    .cleanup = OstrelProfileProviderCleanup,
    .enumerateInstanceNames = OstrelProfileProviderEnumInstanceNames,
    .enumerateInstances = OstrelProfileProviderEnumInstances,
    .getInstance = OstrelProfileProviderGetInstance,
    .createInstance = oxr::create_instance_not_supported,
    .modifyInstance = oxr::modify_instance_not_supported,
    .deleteInstance = oxr::delete_instance_not_supported,
    .execQuery = oxr::exec_query_not_supported,
};

CMPIInstanceMI instance_mi = {nullptr, &instance_table};

}  // namespace

CMPIInstanceMI* OstrelProfileProvider_Create_InstanceMI(const CMPIBroker*, const CMPIContext*, CMPIStatus*) {
    hand_out(ProviderMi::profile_instance);
    OstrelProfileProviderInit();
    return &instance_mi;
}
