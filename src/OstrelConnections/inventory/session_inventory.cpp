#include "OstrelConnections/inventory/session_inventory.h"

#include <cstring>
#include <iterator>

#include "OstrelProvider/log.h"
#include "common/stop_point.h"
#include "common/text.h"
#include "oxd_ima_utility/ima_list.h"
#include "oxd_ima_utility/ima_text.h"
#include "oxd_ima_utility/oid_lookup.h"

namespace {

constexpr LogOperation inventory = "populate_oxr_sessions";

// The result for one session of the list.
enum class Recorded { yes, skipped, void_inventory };

struct SessionCounts {
    int& dynamic;
    int& total;
    int& login_pending;
};

// Reads the status of the session's first connection. False: skip the session.
bool read_connection(const IMA_OID& session, ImaList& connections, IMA_VMW_CONNECTION_STATUS& connection) {
    const IMA_STATUS listed = IMA_GetConnectionOidList(session, connections.out());
    if (listed != IMA_STATUS_SUCCESS) {
        OXR_ERROR_IN(inventory, "IMA_GetConnectionOidList failed.");
        do_print_ima_error_msg(listed, __LINE__, inventory, OXR_MODULE);
        return false;
    }
    if (connections.empty()) {
        OXR_ERROR_IN(inventory, "ptr_ConnOidList is NULL or empty.");
        return false;
    }
    const IMA_STATUS read = IMA_VMW_GetConnectionStatus(connections[0], &connection);
    if (read != IMA_STATUS_SUCCESS) {
        OXR_ERROR_IN(inventory, "IMA_VMW_GetConnectionStatus failed.");
        do_print_ima_error_msg(read, __LINE__, inventory, OXR_MODULE);
        return false;
    }
    return true;
}

// Writes one address into its field, which holds IPv4 texts. A session with any other address is skipped.
template <std::size_t N>
Recorded record_address(const IMA_VMW_ADDRESS_SLOT& slot, const char* name, const char* isid, char (&field)[N]) {
    if (slot.present != 1) {
        OXR_ERROR_IN(inventory, "%s Address invalid", name);
        return Recorded::void_inventory;
    }
    const bool is_ipv4 = slot.address.ipv4Address != 0;
    const char* const text = is_ipv4 ? getIPAddressStringFromImaIpAddress(slot.address) : nullptr;
    if (text == nullptr || std::strlen(text) >= N) {
        OXR_WARN_IN(inventory, "Session %s has a %s address that is not IPv4. Leaving this session out.", isid, name);
        return Recorded::skipped;
    }
    oxr::copy_text(field, text);
    return Recorded::yes;
}

Recorded record_addresses(const IMA_VMW_CONNECTION_STATUS& connection, TargetDtls& session) {
    Recorded recorded =
        record_address(connection.connectionAddress, "Connection", session.isid, session.initial_remote_ip);
    if (recorded == Recorded::yes) {
        recorded = record_address(connection.remoteAddress, "Remote", session.isid, session.current_remote_ip);
    }
    if (recorded == Recorded::yes) {
        recorded = record_address(connection.localAddress, "Local", session.isid, session.current_local_ip);
    }
    return recorded;
}

// A dynamic session is redirected at login, so its initial and its current remote address differ.
void classify(TargetDtls& session, const SessionCounts& counts) {
    if (std::strcmp(session.initial_remote_ip, session.current_remote_ip) != 0) {
        session.session_type = SESSION_DYNAMIC;
        ++counts.dynamic;
        OXR_DEBUG_IN(inventory,
                     "Session isid = %s , conn_addr = %s , remote_addr = %s , session_type is DYNAMIC(AUTOMATIC)",
                     session.isid, session.initial_remote_ip, session.current_remote_ip);
    } else if (session.session_state == SESSION_STATE_XPT_WAIT || session.session_state == SESSION_STATE_IN_LOGIN) {
        session.session_type = SESSION_LOGIN_PENDING;
        ++counts.login_pending;
        OXR_DEBUG_IN(inventory,
                     "Session isid = %s , conn_addr = %s , remote_addr = %s , session_type is DYNAMIC(AUTOMATIC) but "
                     "in either XPT_WAIT or IN_LOGIN state",
                     session.isid, session.initial_remote_ip, session.current_remote_ip);
    } else {
        session.session_type = SESSION_STATIC;
        OXR_DEBUG_IN(inventory,
                     "Session isid = %s , conn_addr = %s , remote_addr = %s , session_type is STATIC(MANUAL)",
                     session.isid, session.initial_remote_ip, session.current_remote_ip);
    }
}

// Records one session in the next output record, which the next session overwrites if this one is skipped.
Recorded record_session(const IMA_OID& oid, const IscsiProps& props, const AdapterName& adapter, TargetDtls& session,
                        const SessionCounts& counts) {
    IMA_SESSION_PROPERTIES properties{};
    if (const IMA_STATUS status = IMA_GetSessionProperties(oid, &properties); status != IMA_STATUS_SUCCESS) {
        OXR_ERROR_IN(inventory, "IMA_GetSessionProperties failed.");
        do_print_ima_error_msg(status, __LINE__, inventory, OXR_MODULE);
        return Recorded::skipped;
    }
    oxr::copy_field(session.target_iqn, oxr::field_view(props.target_iqn));
    format_isid(session.isid, properties.isid);

    ImaList connections(OXR_MODULE, inventory);
    IMA_VMW_CONNECTION_STATUS connection{};
    if (!read_connection(oid, connections, connection)) {
        return Recorded::skipped;
    }
    session.session_state = connection.state;
    if (session.session_state != SESSION_STATE_LOGGED_IN) {
        OXR_WARN_IN(inventory, "Session %s has status %s.", session.isid, OxrSessionStateStr(session.session_state));
    }
    const Recorded recorded = record_addresses(connection, session);
    if (recorded == Recorded::skipped) {
        // The remaining addresses must not look like a record to code that searches for the last one.
        oxr::copy_text(session.initial_remote_ip, "");
        oxr::copy_text(session.current_remote_ip, "");
        oxr::copy_text(session.current_local_ip, "");
    }
    if (recorded != Recorded::yes) {
        return recorded;
    }
    classify(session, counts);
    oxr::copy_text(session.vmhba_name, oxr::field_view(adapter));
    ++counts.total;
    return Recorded::yes;
}

enum class Walked { to_the_end, full, failed };

// Records the target's sessions on one adapter.
Walked walk_adapter(const IscsiProps& props, int adapter_index, TargetDtls* sessions, const SessionCounts& counts) {
    const AdapterName& adapter = props.vmhba_name_array[adapter_index];
    if (adapter[0] == '\0') {
        OXR_ERROR_IN(inventory, "missing adapter name [%d].", adapter_index);
        return Walked::failed;
    }
    IscsiOidQuery query;
    make_oid_query(query, adapter, props.target_iqn, nullptr);
    IMA_OID target{};
    if (const int result = iscsi_get_oids(query, target, 0); result < 0) {
        OXR_ERROR_IN(inventory, "iscsi_get_oids returned %d", result);
        return Walked::failed;
    }
    ImaList list(OXR_MODULE, inventory);
    if (const IMA_STATUS status = IMA_GetSessionOidList(target, list.out()); status != IMA_STATUS_SUCCESS) {
        do_print_ima_error_msg(status, __LINE__, inventory, OXR_MODULE);
        return Walked::failed;
    }
    if (list.empty()) {
        OXR_ERROR_IN(inventory, "No sessions.");
        return Walked::failed;
    }
    for (const IMA_OID& oid : list) {
        if (counts.total > MAX_SESSIONS_PER_TARGET - 1) {
            OXR_WARN_IN(inventory, "volume: target_iqn = %s has exceeded %d sessions", query.target_name,
                        MAX_SESSIONS_PER_TARGET);
            return Walked::full;
        }
        if (record_session(oid, props, adapter, sessions[counts.total], counts) == Recorded::void_inventory) {
            return Walked::failed;
        }
    }
    return Walked::to_the_end;
}

}  // namespace

const char* OxrSessionStateStr(std::uint32_t state) {
    static constexpr const char* texts[] = {"FREE",      "XPT_WAIT",  "XPT_UP",           "IN_LOGIN",
                                            "LOGGED_IN", "IN_LOGOUT", "LOGOUT_REQUESTED", "CLEANUP_WAIT"};
    return state < std::size(texts) ? texts[state] : "INVALID_STATE";
}

void create_iscsi_props(const char (&target_iqn)[OSTREL_IQN_SIZE], int num_adapters, const AdapterName* adapters,
                        IscsiProps& props) {
    props = {};
    oxr::copy_field(props.target_iqn, oxr::field_view(target_iqn));
    props.num_adapters = num_adapters < OSTREL_MAX_ADAPTERS ? num_adapters : OSTREL_MAX_ADAPTERS;
    for (int i = 0; i < props.num_adapters; ++i) {
        oxr::copy_field(props.vmhba_name_array[i], oxr::field_view(adapters[i]));
    }
}

int populate_oxr_sessions(const IscsiProps& props, TargetDtls* sessions, int& num_dynamic, int& num_total,
                          int& num_login_pending) {
    if (props.target_iqn[0] == '\0') {
        OXR_ERROR("missing target name.");
        return -1;
    }
    num_dynamic = 0;
    num_total = 0;
    if (props.num_adapters <= 0) {
        OXR_ERROR("No adapters found");
        return -1;
    }
    const SessionCounts counts{num_dynamic, num_total, num_login_pending};
    for (int i = 0; i < props.num_adapters; ++i) {
        switch (walk_adapter(props, i, sessions, counts)) {
            case Walked::to_the_end:
                break;
            case Walked::full:
                return 0;
            case Walked::failed:
                return -1;
        }
    }
    return 0;
}

int obtain_oxr_lun_sessions(OxrLun& lun, TargetDtls* sessions) {
    IscsiProps props;
    create_iscsi_props(lun.target_iqn, lun.num_adapters, lun.vmhba_name_array, props);
    int num_dynamic = 0;
    int num_total = 0;
    int num_login_pending = 0;
    const int result = populate_oxr_sessions(props, sessions, num_dynamic, num_total, num_login_pending);
    if (result >= 0) {
        lun.num_sessions = num_total;
        lun.num_dynamic_sessions = num_dynamic;
        lun.num_login_pending_sessions = num_login_pending;
    }
    return result;
}

int get_all_system_sessions(int& num_sessions, int delay_seconds) {
    oxr::wait_seconds(delay_seconds);
    IMA_OID adapters[MAX_LOGICAL_ADAPTERS];
    std::uint32_t num_adapters = 0;
    if (iscsi_get_all_hba_oids(adapters, num_adapters) != 0) {
        OXR_ERROR("Could not obtain logical and physical hba oid list for the args specified.");
        return -1;
    }
    OXR_DEBUG("oid count = %d", static_cast<int>(num_adapters));
    int total = 0;
    for (std::uint32_t n = 0; n < num_adapters; ++n) {
        ImaList sessions(OXR_MODULE, __func__);
        if (const IMA_STATUS status = IMA_GetSessionOidList(adapters[n], sessions.out());
            status != IMA_STATUS_SUCCESS) {
            OXR_IMA_ERROR(status);
        }
        if (sessions.empty()) {
            OXR_WARN("No sessions present for adapter number %u", n);
        } else {
            total += static_cast<int>(sessions.size());
        }
    }
    OXR_INFO("total number of system sessions = %d", total);
    num_sessions = total;
    return 0;
}
