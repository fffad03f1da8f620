#include "OstrelRegisteredProfileProvider/profile_provider.h"

#include "OstrelProvider/log.h"
#include "OstrelProvider/provider_tables.h"
#include "OstrelProvider/service.h"

namespace {

void OstrelProfileProviderInit() {
    OXR_INFO("Entered..calling OstrelProviderInit");
    OstrelProviderInit();
}

constexpr CMPIInstanceMIFT instance_table =
    make_instance_table("instanceOstrelProfileProvider", give_back_only<ProviderMi::profile_instance>,
                        answer_only<CMPI_RC_OK>, answer_only<CMPI_RC_OK>, answer_only<CMPI_RC_OK>);

CMPIInstanceMI instance_mi = {nullptr, &instance_table};

}  // namespace

CMPIInstanceMI* OstrelProfileProvider_Create_InstanceMI(const CMPIBroker*, const CMPIContext*, CMPIStatus*) {
    hand_out(ProviderMi::profile_instance);
    OstrelProfileProviderInit();
    return &instance_mi;
}
