#include "OstrelConnections/renewal/renewal.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string_view>

#include "OstrelConnections/psp/psp_client.h"
#include "OstrelConnections/renewal/renewal_run.h"
#include "OstrelProvider/log.h"
#include "common/heap.h"
#include "common/text.h"

namespace {

// One request's buffers, reused for each target. The session details are from the last inventory.
struct RenewalBuffers {
    RenewalRunPtr run = make_renewal_run();
    std::unique_ptr<TargetDtls[]> details = oxr::make_zeroed_array<TargetDtls>(MAX_SESSIONS_PER_TARGET);

    bool allocated(const char* operation) const {
        if (run == nullptr || details == nullptr) {
            OXR_ERROR_IN(operation, "Allocation failed for the renewal request");
            return false;
        }
        return true;
    }
};

bool is_logged_in(const TargetDtls& session) {
    return session.session_state == SESSION_STATE_LOGGED_IN;
}

// --- steps of both kinds of request; each logs for its calling operation ------------------------------------

std::uint32_t read_sessions(const char* operation, const char* target_iqn, OxrLun& lun, TargetDtls* details) {
    if (obtain_oxr_lun_sessions(lun, details) != 0) {
        OXR_ERROR_IN(operation, "unable to obtain sessions for target %s", target_iqn);
        return OXD_FAILED;
    }
    return OXD_SUCCESS;
}

std::uint32_t read_target(const char* operation, const char* target_iqn, OxrLun& lun, TargetDtls* details) {
    if (const int result = getDeviceInfoByTargetIqn(lun, target_iqn); result != 0) {
        OXR_ERROR_IN(operation, "Unable to get device information with target_iqn %s", target_iqn);
        return oxd_status_of_lookup(result);
    }
    if (const std::uint32_t status = read_sessions(operation, target_iqn, lun, details); status != OXD_SUCCESS) {
        return status;
    }
    OXR_DEBUG_IN(operation, "obtained oxr lun sessions");
    return OXD_SUCCESS;
}

void add_to_request(RenewalRequest& request, const TargetDtls& session) {
    TargetDtls& added = request.sessions[request.session_count++];
    added = session;
    added.handled = 0;
}

std::uint32_t refuse_single_session(const char* operation, const char* target_iqn) {
    OXR_ERROR_IN(operation, "only single session present to target %s", target_iqn);
    return OXD_SINGLE_SESSION;
}

std::uint32_t refuse_failed_sessions(const char* operation, const OxrLun& lun) {
    OXR_ERROR_IN(operation, "some or all of the sessions in failed state for device %s",
                 oxr::FieldText(lun.device_eui).c_str());
    return OXD_SESSIONS_FAILED;
}

std::uint32_t refuse_single_vmknic(const char* operation) {
    OXR_ERROR_IN(operation, "single vmknic present, cannot perform connection renewal");
    return OXD_SINGLE_VMKNIC;
}

std::uint32_t status_of_renewal(const char* operation, const char* target_iqn, const RenewalRequest& request) {
    if (request.status != 0) {
        OXR_ERROR_IN(operation, "renew connections failed for target %s", target_iqn);
    }
    return static_cast<std::uint32_t>(request.status);
}

// --- general renewal --------------------------------------------------------------------------------------

constexpr LogOperation general_renewal = "handleGeneralConnectionRenewal";

std::uint32_t renew_all_sessions(const char* target_iqn, RenewalBuffers& buffers) OXR_REQUIRES(conn_renew_mutex) {
    RenewalRequest& request = buffers.run->request;
    request = {};
    OxrLun& lun = request.lun;
    const TargetDtls* const details = buffers.details.get();
    if (const std::uint32_t status = read_target(general_renewal, target_iqn, lun, buffers.details.get());
        status != OXD_SUCCESS) {
        return status;
    }
    if (lun.num_sessions == 1) {
        return refuse_single_session(general_renewal, target_iqn);
    }
    for (int i = 0; i < lun.num_sessions; ++i) {
        if (is_logged_in(details[i])) {
            add_to_request(request, details[i]);
        }
    }
    if (request.session_count < lun.num_sessions || request.session_count == 0) {
        return refuse_failed_sessions(general_renewal, lun);
    }
    if (get_unique_ip_from_session_list(request.sessions, request.session_count, "local") < 2) {
        return refuse_single_vmknic(general_renewal);
    }
    OXR_DEBUG_IN(general_renewal, "calling thread renew_iscsi_connections");
    if (!run_renewal_thread(general_renewal, *buffers.run)) {
        return OXD_FAILED;
    }
    const std::uint32_t status = status_of_renewal(general_renewal, target_iqn, request);
    if (status == OXD_SUCCESS) {
        OXR_INFO_IN(general_renewal, "Connections renewed successfully for target %s", target_iqn);
    }
    return status;
}

// --- digest change ----------------------------------------------------------------------------------------

constexpr LogOperation digest_change = "handleChangeIscsiDigest";

// A failed lookup counts as on.
bool has_digests(const TargetDtls& session) {
    return isIscsiDigestEnabled(session) != 0;
}

// Adds the logged-in sessions whose digests must change to the request. Returns the number of logged-in sessions.
int select_sessions_to_change(const TargetDtls* details, bool enable, RenewalRequest& request) {
    int logged_in = 0;
    for (int i = 0; i < request.lun.num_sessions; ++i) {
        if (is_logged_in(details[i])) {
            ++logged_in;
            if (has_digests(details[i]) != enable) {
                add_to_request(request, details[i]);
            }
        }
    }
    return logged_in;
}

std::uint32_t check_digests(const char* target_iqn, bool enable, OxrLun& lun, TargetDtls* details) {
    if (const std::uint32_t status = read_sessions(digest_change, target_iqn, lun, details); status != OXD_SUCCESS) {
        return status;
    }
    for (int i = 0; i < lun.num_sessions; ++i) {
        if (!is_logged_in(details[i]) || has_digests(details[i]) == enable) {
            continue;
        }
        if (enable) {
            OXR_ERROR_IN(digest_change, "iSCSI digest not enabled for target %s even after connection renewal",
                         target_iqn);
        } else {
            OXR_ERROR_IN(digest_change, "iSCSI digest not disabled for target %s even after connection renewal",
                         target_iqn);
        }
        return OXD_FAILED;
    }
    return OXD_SUCCESS;
}

// Sets `unchanged` if nothing had to change.
std::uint32_t change_digests(const char* target_iqn, bool enable, RenewalBuffers& buffers, bool& unchanged)
    OXR_REQUIRES(conn_renew_mutex) {
    RenewalRequest& request = buffers.run->request;
    request = {};
    OxrLun& lun = request.lun;
    TargetDtls* const details = buffers.details.get();
    if (const std::uint32_t status = read_target(digest_change, target_iqn, lun, details); status != OXD_SUCCESS) {
        return status;
    }
    if (lun.num_sessions == 1) {
        return refuse_single_session(digest_change, target_iqn);
    }
    const int logged_in = select_sessions_to_change(details, enable, request);
    if (logged_in == 0) {
        return refuse_failed_sessions(digest_change, lun);
    }
    if (request.session_count == 0) {
        OXR_INFO_IN(digest_change, "iSCSI digest change is already applied for device %s",
                    oxr::FieldText(lun.device_eui).c_str());
        unchanged = true;
        return OXD_SUCCESS;
    }
    if (logged_in == 1) {
        return refuse_single_session(digest_change, target_iqn);
    }
    if (get_unique_ip_from_session_list(details, lun.num_sessions, "local") < 2) {
        return refuse_single_vmknic(digest_change);
    }
    OXR_DEBUG_IN(digest_change, "create thread for renewing connections");
    if (!run_renewal_thread(digest_change, *buffers.run)) {
        return OXD_FAILED;
    }
    OXR_INFO_IN(digest_change, "renew_iscsi_connections completed for target_iqn %s", target_iqn);
    if (const std::uint32_t status = status_of_renewal(digest_change, target_iqn, request); status != OXD_SUCCESS) {
        return status;
    }
    if (const std::uint32_t status = check_digests(target_iqn, enable, lun, details); status != OXD_SUCCESS) {
        return status;
    }
    OXR_INFO_IN(digest_change, "iSCSI digest successfully %s for target %s", enable ? "enabled" : "disabled",
                target_iqn);
    return OXD_SUCCESS;
}

}  // namespace

std::uint32_t handleGeneralConnectionRenewal(const TargetIqn* targets, int count) {
    RenewalBuffers buffers;
    if (!buffers.allocated(__func__)) {
        return OXD_FAILED;
    }
    for (int i = 0; i < count; ++i) {
        if (const std::uint32_t status = renew_all_sessions(targets[i], buffers); status != OXD_SUCCESS) {
            return status;
        }
    }
    return OXD_SUCCESS;
}

std::uint32_t handleChangeIscsiDigest(const TargetIqn* targets, int count, bool enable) {
    RenewalBuffers buffers;
    if (!buffers.allocated(__func__)) {
        return OXD_FAILED;
    }
    for (int i = 0; i < count; ++i) {
        bool unchanged = false;
        const std::uint32_t status = change_digests(targets[i], enable, buffers, unchanged);
        if (status != OXD_SUCCESS || unchanged) {
            return status;
        }
    }
    return OXD_SUCCESS;
}

int get_unique_ip_from_session_list(const TargetDtls* sessions, int count, const char* kind) {
    int unique = 0;
    if (std::string_view(kind) == "local") {
        for (int i = 0; i < count; ++i) {
            const std::string_view address = oxr::field_view(sessions[i].current_local_ip);
            const bool seen = std::any_of(sessions, sessions + i, [address](const TargetDtls& earlier) {
                return oxr::field_view(earlier.current_local_ip) == address;
            });
            unique += seen ? 0 : 1;
        }
    }
    OXR_INFO("total unique local ip's %d", unique);
    return unique;
}
