// The renewal's IMA queries about one session.
#include "OstrelConnections/renewal/renewal.h"
#include "OstrelProvider/log.h"
#include "common/text.h"
#include "oxd_ima_utility/ima_list.h"
#include "oxd_ima_utility/ima_text.h"
#include "oxd_ima_utility/oid_lookup.h"

namespace {

constexpr int use_cache = 0;
constexpr int bypass_cache = 1;

}  // namespace

int isSessionStillPresent(const char* adapter_name, const char* target_iqn, const char* isid) {
    IscsiOidQuery query;
    make_oid_query(query, adapter_name, target_iqn, isid);
    IMA_OID session{};
    if (iscsi_get_oids(query, session, bypass_cache) < 0) {
        OXR_DEBUG("Cannot find a matching session for vmhba %s target %s isid %s.", adapter_name, target_iqn, isid);
        return 0;
    }
    return 1;
}

int isIscsiDigestEnabled(const TargetDtls& session) {
    IscsiOidQuery query;
    make_oid_query(query, oxr::FieldText(session.vmhba_name).c_str(), oxr::FieldText(session.target_iqn).c_str(),
                   oxr::FieldText(session.isid).c_str());
    IMA_OID session_oid{};
    if (const int result = iscsi_get_oids(query, session_oid, use_cache); result < 0) {
        OXR_ERROR("iscsi_get_oids returned error status %d", result);
        return result;
    }
    ImaList connections(OXR_MODULE, __func__);
    if (const IMA_STATUS status = IMA_GetConnectionOidList(session_oid, connections.out());
        status != IMA_STATUS_SUCCESS) {
        OXR_ERROR("IMA_GetConnectionOidList failed.");
        OXR_IMA_ERROR(status);
        return -1;
    }
    if (connections.empty()) {
        OXR_ERROR("The session has no connections.");
        return -1;
    }
    IMA_CONNECTION_PROPERTIES properties{};
    if (const IMA_STATUS status = IMA_GetConnectionProperties(connections[0], &properties);
        status != IMA_STATUS_SUCCESS) {
        OXR_ERROR("IMA_GetConnectionProperties failed.");
        OXR_IMA_ERROR(status);
        return -1;
    }
    return properties.headerDigest == IMA_DIGEST_CRC32C && properties.dataDigest == IMA_DIGEST_CRC32C ? 1 : 0;
}
