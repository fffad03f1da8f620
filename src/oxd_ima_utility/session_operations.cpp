#include "oxd_ima_utility/session_operations.h"

#include "OstrelProvider/log.h"
#include "oxd_ima_utility/ima_text.h"
#include "oxd_ima_utility/oid_cache.h"
#include "oxd_ima_utility/oid_lookup.h"

namespace {

bool is_empty(const char* text) {
    return text == nullptr || text[0] == '\0';
}

}  // namespace

int create_sessions(const char* adapter_name, const char* target_iqn, const char* isid) {
    if (is_empty(target_iqn)) {
        OXR_ERROR("Missing arguments. target not specified");
        return -1;
    }
    if (is_empty(adapter_name)) {
        OXR_ERROR("Missing arguments. adapter not specified");
        return -1;
    }
    IscsiOidQuery query;
    make_oid_query(query, adapter_name, target_iqn, isid);
    IMA_OID oid{};
    if (iscsi_get_oids(query, oid, 0) != 0) {
        OXR_ERROR("Can not find a matching vmhba or target or session for the input. \nvmhba=%s,target=%s,session=%s",
                  query.adapter_name, query.target_name, query.isid);
        return -1;
    }
    const IMA_STATUS status = IMA_VMW_AddSession(oid, nullptr, nullptr, nullptr);
    if (status != IMA_STATUS_SUCCESS) {
        OXR_ERROR("Add Session failed.");
        OXR_IMA_ERROR(status);
        return -1;
    }
    OXR_DEBUG("AddSession Completed successfully.");
    return 0;
}

int remove_session(const char* adapter_name, const char* target_iqn, const char* isid) {
    // Without an ISID the lookup would find the target itself.
    if (is_empty(adapter_name) || is_empty(target_iqn) || is_empty(isid)) {
        OXR_ERROR("Missing arguments. Target or adapter name not specified.");
        return -1;
    }
    IscsiOidQuery query;
    make_oid_query(query, adapter_name, target_iqn, isid);
    IMA_OID oid{};
    if (iscsi_get_oids(query, oid, 1) != 0) {
        OXR_ERROR("Cannot find a matching session for the input.");
        return -1;
    }
    const IMA_STATUS status = IMA_VMW_RemoveSession(oid);
    if (status != IMA_STATUS_SUCCESS) {
        OXR_ERROR("Remove Session failed.");
        OXR_IMA_ERROR(status);
        return -1;
    }
    invalidate_oid_record(oid);
    OXR_DEBUG("RemoveSession Completed successfully.");
    return 0;
}
