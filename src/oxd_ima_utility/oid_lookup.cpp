#include "oxd_ima_utility/oid_lookup.h"

#include <cinttypes>
#include <cstring>

#include "OstrelProvider/log.h"
#include "common/text.h"
#include "oxd_ima_utility/ima_list.h"
#include "oxd_ima_utility/ima_text.h"
#include "oxd_ima_utility/oid_cache.h"

namespace {

// An object without a name never matches. A name that the comparison would cut could be another object's.
template <std::size_t N>
bool wide_name_equals(const wchar_t (&wide)[N], const char* name) {
    return name[0] != '\0' && strnlen(name, N) < N &&
           Iscsi_MixedCmp(wide, name, wch_len(wide, N), N) == ISCSI_CMP_EQUAL;
}

// The first logical adapter of the list with this name.
const IMA_OID* find_adapter(const ImaList& lhbas, const char* adapter_name) {
    for (const IMA_OID& lhba : lhbas) {
        IMA_VMW_LHBA_PROPERTIES properties{};
        if (IMA_VMW_GetLhbaProperties(lhba, &properties) == IMA_STATUS_SUCCESS &&
            wide_name_equals(properties.osDeviceName, adapter_name)) {
            return &lhba;
        }
    }
    return nullptr;
}

bool search_adapters(const char* operation, const char* adapter_name, IMA_OID& lhba_oid, IMA_OID* phba_oid) {
    ImaList phbas(OXR_MODULE, operation);
    if (const IMA_STATUS status = IMA_GetPhbaOidList(phbas.out()); status != IMA_STATUS_SUCCESS) {
        OXR_ERROR_IN(operation, "IMA_GetPhbaOidList returned IMA error");
        do_print_ima_error_msg(status, __LINE__, operation, OXR_MODULE);
        return false;
    }
    if (phbas.empty()) {
        OXR_ERROR_IN(operation, "phba_oid_list is NULL or is empty");
        return false;
    }
    for (const IMA_OID& phba : phbas) {
        ImaList lhbas(OXR_MODULE, operation);
        if (IMA_VMW_GetLhbaOidList(phba, lhbas.out()) != IMA_STATUS_SUCCESS) {
            continue;
        }
        if (const IMA_OID* const found = find_adapter(lhbas, adapter_name)) {
            lhba_oid = *found;
            if (phba_oid != nullptr) {
                *phba_oid = phba;
            }
            return true;
        }
    }
    return false;
}

// The first target of the list with this name.
const IMA_OID* find_target(const ImaList& targets, const char* target_name) {
    IMA_TARGET_PROPERTIES properties{};
    for (const IMA_OID& target : targets) {
        if (IMA_GetTargetProperties(target, &properties) == IMA_STATUS_SUCCESS &&
            wide_name_equals(properties.name, target_name)) {
            return &target;
        }
    }
    return nullptr;
}

// A name that would have to be cut could be another object's.
template <std::size_t N>
void copy_whole(char (&field)[N], const char* name) {
    const std::string_view text = oxr::field_view(name, N);
    if (text.size() < N) {
        oxr::copy_text(field, text);
    }
}

// The session of the target with this ISID. Logs for `operation`.
bool find_session(const char* operation, const IMA_OID& target, const char* isid, IMA_OID& oid) {
    ImaList sessions(OXR_MODULE, operation);
    if (const IMA_STATUS status = IMA_GetSessionOidList(target, sessions.out()); status != IMA_STATUS_SUCCESS) {
        OXR_ERROR_IN(operation, "get oids : IMA_GetSessionOidList returned IMA error ");
        do_print_ima_error_msg(status, __LINE__, operation, OXR_MODULE);
        return false;
    }
    if (sessions.empty()) {
        OXR_ERROR_IN(operation, "No Sessions Found");
        return false;
    }
    for (const IMA_OID& session : sessions) {
        IMA_SESSION_PROPERTIES properties{};
        if (const IMA_STATUS status = IMA_GetSessionProperties(session, &properties); status != IMA_STATUS_SUCCESS) {
            do_print_ima_error_msg(status, __LINE__, operation, OXR_MODULE);
            continue;
        }
        char text[24];
        format_isid(text, properties.isid);
        if (std::strcmp(text, isid) == 0) {
            oid = session;
            return true;
        }
    }
    OXR_DEBUG_IN(operation, "get oids : No Matching Session Found");
    return false;
}

// The lookup in IMA. Its lists are released before the result is stored.
bool look_up(const char* operation, const IscsiOidQuery& query, IMA_OID& oid) {
    IMA_OID lhba{};
    if (iscsi_get_hba_oids(query.adapter_name, &lhba, nullptr) != 0) {
        OXR_ERROR_IN(operation, "Could not obtain logical and physical hba oid list for the args specified.");
        return false;
    }
    ImaList targets(OXR_MODULE, operation);
    if (const IMA_STATUS status = IMA_GetTargetOidList(lhba, targets.out()); status != IMA_STATUS_SUCCESS) {
        OXR_ERROR_IN(operation, "Could not obtain target list");
        do_print_ima_error_msg(status, __LINE__, operation, OXR_MODULE);
        return false;
    }
    const IMA_OID* const target = find_target(targets, query.target_name);
    if (target == nullptr) {
        OXR_ERROR_IN(operation, "No Matching Target Found");
        return false;
    }
    if (query.isid[0] == '\0') {
        oid = *target;
        return true;
    }
    return find_session(operation, *target, query.isid, oid);
}

}  // namespace

void make_oid_query(IscsiOidQuery& query, const char* adapter_name, const char* target_name, const char* isid) {
    query = {};
    copy_whole(query.adapter_name, adapter_name);
    query.port = ISCSI_PORT;
    copy_whole(query.target_name, target_name);
    if (isid != nullptr) {
        oxr::copy_text(query.isid, oxr::field_view(isid, sizeof query.isid));
    }
}

int iscsi_get_hba_oids(const char* adapter_name, IMA_OID* lhba_oid, IMA_OID* phba_oid) {
    if (adapter_name == nullptr || lhba_oid == nullptr) {
        OXR_ERROR("NULL pointer passed in IscsiGetHbaOids()");
    } else if (search_adapters(__func__, adapter_name, *lhba_oid, phba_oid)) {
        return 0;
    }
    OXR_ERROR("Error - adapter not found.");
    return -1;
}

int iscsi_get_oids(const IscsiOidQuery& query, IMA_OID& oid, int bypass_cache) {
    if (bypass_cache == 0 && fetch_target_oid(query.adapter_name, query.target_name, query.isid, oid) == 1) {
        OXR_DEBUG("fetch_target_oid returned OID[%d, %lu, %" PRIu64 "] for adapter=%s, target=%s, isid=%s",
                  static_cast<int>(oid.objectType), static_cast<unsigned long>(oid.ownerId), oid.objectSequenceNumber,
                  query.adapter_name, query.target_name, query.isid);
        return 0;
    }
    if (!look_up(__func__, query, oid)) {
        return -1;
    }
    if (bypass_cache == 0) {
        add_target_oid(query, oid);
    }
    return 0;
}

int iscsi_get_all_hba_oids(IMA_OID* oids, std::uint32_t& count) {
    ImaList lhbas(OXR_MODULE, __func__);
    if (IMA_GetLhbaOidList(lhbas.out()) != IMA_STATUS_SUCCESS) {
        return -1;
    }
    if (lhbas.empty()) {
        OXR_ERROR("lhba_oid_list is NULL or is empty");
        return -1;
    }
    std::uint64_t copied = lhbas.size();
    if (copied > MAX_LOGICAL_ADAPTERS) {
        OXR_WARN("%" PRIu64 " logical adapters found. Only the first %d are looked at.", copied, MAX_LOGICAL_ADAPTERS);
        copied = MAX_LOGICAL_ADAPTERS;
    }
    for (std::uint64_t i = 0; i < copied; ++i) {
        oids[i] = lhbas[i];
    }
    count = static_cast<std::uint32_t>(copied);
    return 0;
}
