// Factories, tables and cleanups of the association provider.
#include <atomic>

#include "OstrelAssocProvider/association_class.h"
#include "OstrelProvider/log.h"
#include "OstrelProvider/provider_users.h"
#include "common/cmpi_unsupported.h"

namespace {

// Set by the factories, always to the same broker.
std::atomic<const CMPIBroker*> OstrelAssocProviderbroker{nullptr};

void OstrelAssocProviderInit() {
    OXR_INFO("OstrelAssocProviderInit:  Initializing the OSTREL AssocProvider.");
}

// The cleanups of the two interfaces.
CMPIStatus OstrelAssocProviderCleanup(CMPIInstanceMI*, const CMPIContext*, CMPIBoolean) {
    give_back(ProviderMi::association_instance);
    return CMReturn(CMPI_RC_OK);
}

CMPIStatus OstrelAssocProviderCleanup(CMPIAssociationMI*, const CMPIContext*, CMPIBoolean) {
    give_back(ProviderMi::association);
    return CMReturn(CMPI_RC_OK);
}

constexpr CMPIInstanceMIFT instance_table = {
    .ftVersion = CMPIVersion200,
    .miVersion = CMPIVersion200,
    .miName = "instanceOstrelAssocProvider",
    .cleanup = OstrelAssocProviderCleanup,
    .enumerateInstanceNames = OstrelAssocProviderEnumInstanceNames,
    .enumerateInstances = OstrelAssocProviderEnumInstances,
    .getInstance = OstrelAssocProviderGetInstance,
    .createInstance = oxr::create_instance_not_supported,
    .modifyInstance = oxr::modify_instance_not_supported,
    .deleteInstance = oxr::delete_instance_not_supported,
    .execQuery = oxr::exec_query_not_supported,
};

constexpr CMPIAssociationMIFT association_table = {
    .ftVersion = CMPIVersion200,
    .miVersion = CMPIVersion200,
    .miName = "associationOstrelAssocProvider",
    .cleanup = OstrelAssocProviderCleanup,
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
