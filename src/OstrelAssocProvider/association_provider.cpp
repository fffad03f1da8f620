// Factories, tables and cleanups of the association provider.
#include <atomic>

#include "OstrelAssocProvider/association_class.h"
#include "OstrelProvider/log.h"
#include "OstrelProvider/provider_tables.h"

namespace {

// Set by the factories, always to the same broker.
std::atomic<const CMPIBroker*> OstrelAssocProviderbroker{nullptr};

void OstrelAssocProviderInit() {
    OXR_INFO("OstrelAssocProviderInit:  Initializing the OSTREL AssocProvider.");
}

constexpr CMPIInstanceMIFT instance_table = make_instance_table(
    "instanceOstrelAssocProvider", give_back_only<ProviderMi::association_instance>,
    OstrelAssocProviderEnumInstanceNames, OstrelAssocProviderEnumInstances, OstrelAssocProviderGetInstance);

constexpr CMPIAssociationMIFT association_table = {
    .ftVersion = CMPIVersion200,
    .miVersion = CMPIVersion200,
    .miName = "associationOstrelAssocProvider",
    .cleanup = give_back_only<ProviderMi::association>,
    .associators = OstrelAssocProviderAssociators,
    .associatorNames = OstrelAssocProviderAssociatorNames,
    .references = OstrelAssocProviderReferences,
    .referenceNames = OstrelAssocProviderReferenceNames,
};

CMPIInstanceMI instance_mi = {nullptr, &instance_table};
CMPIAssociationMI association_mi = {nullptr, &association_table};

}  // namespace

const CMPIBroker* association_broker() {
    return OstrelAssocProviderbroker;
}

CMPIInstanceMI* OstrelAssocProvider_Create_InstanceMI(const CMPIBroker* broker, const CMPIContext*, CMPIStatus*) {
    hand_out(ProviderMi::association_instance);
    OstrelAssocProviderbroker = broker;
    OstrelAssocProviderInit();
    return &instance_mi;
}

CMPIAssociationMI* OstrelAssocProvider_Create_AssociationMI(const CMPIBroker* broker, const CMPIContext*, CMPIStatus*) {
    hand_out(ProviderMi::association);
    OstrelAssocProviderbroker = broker;
    OstrelAssocProviderInit();
    return &association_mi;
}
