// The renewal of one target's connections, step by step, on the renewal thread.
#include <algorithm>
#include <cstdint>
#include <memory>

#include "OstrelConnections/psp/psp_client.h"
#include "OstrelConnections/renewal/renewal.h"
#include "OstrelConnections/renewal/renewal_run.h"
#include "OstrelProvider/log.h"
#include "common/heap.h"
#include "common/stop_point.h"
#include "common/text.h"
#include "oxd_ima_utility/session_operations.h"

namespace {

constexpr LogOperation renewing = "renew_iscsi_connections";

constexpr long poll_milliseconds = 100;
constexpr int max_session_checks = 601;
constexpr int max_inventory_attempts = 6;
constexpr int max_path_retries = 600;

// One renewal: the request and the buffers its steps share.
struct Renewal {
    explicit Renewal(RenewalRequest& r) : request(r) {}

    RenewalRequest& request;
    const oxr::FieldText<OSTREL_IQN_SIZE> target_iqn{request.lun.target_iqn};
    const bool group_scoped = request.lun.isGstVolume != 0;
    int initial_paths = 0;
    std::unique_ptr<OstrelPspGroupScopedTarget> group_scoped_target;
    std::unique_ptr<OxrLun> volume;
    std::unique_ptr<TargetDtls[]> details;  // the target's sessions in the last inventory

    const char* iqn() const { return target_iqn.c_str(); }
};

void wait_for_next_poll() {
    oxr::wait_milliseconds(poll_milliseconds);
}

// --- before ------------------------------------------------------------------------------------------------

std::uint32_t read_initial_path_count(Renewal& renewal) {
    renewal.initial_paths = renewal.request.lun.num_active_paths;
    if (renewal.group_scoped) {
        renewal.group_scoped_target = oxr::make_zeroed<OstrelPspGroupScopedTarget>();
        if (renewal.group_scoped_target == nullptr) {
            OXR_ERROR_IN(renewing, "Allocation failed for get group scoped target info data");
            return OXD_FAILED;
        }
        const int result = getGroupScopedTargetInfoByIqn(*renewal.group_scoped_target, renewal.iqn());
        if (result != 0) {
            OXR_ERROR_IN(renewing, "Unable to get device information with target_iqn %s", renewal.iqn());
            return oxd_status_of_lookup(result);
        }
        renewal.initial_paths = renewal.group_scoped_target->total_active_paths;
    }
    OXR_INFO_IN(renewing, "Initial active path count to target %s is %d", renewal.iqn(), renewal.initial_paths);
    return OXD_SUCCESS;
}

std::uint32_t allocate_buffers(Renewal& renewal) {
    renewal.volume = oxr::make_zeroed<OxrLun>();
    if (renewal.volume == nullptr) {
        OXR_ERROR_IN(renewing, "Allocation failed for get device info data");
        return OXD_FAILED;
    }
    renewal.details = oxr::make_zeroed_array<TargetDtls>(MAX_SESSIONS_PER_TARGET);
    if (renewal.details == nullptr) {
        OXR_ERROR_IN(renewing, "Allocation failed for session details");
        return OXD_FAILED;
    }
    return OXD_SUCCESS;
}

// --- removing ----------------------------------------------------------------------------------------------

std::uint32_t wait_until_gone(const Renewal& renewal, const char* adapter, const char* isid) {
    for (int retries = 0; retries < max_session_checks; ++retries) {
        if (isSessionStillPresent(adapter, renewal.iqn(), isid) == 0) {
            return OXD_SUCCESS;
        }
        OXR_ERROR_IN(renewing, "session still present after removal, vmhba %s target %s isid %s : retries %d", adapter,
                     renewal.iqn(), isid, retries);
        wait_for_next_poll();
    }
    return OXD_SESSION_REMOVAL_FAILED;
}

// Removes the session, waits until IMA no longer has it, and marks it as handled.
std::uint32_t log_session_out(const Renewal& renewal, TargetDtls& session) {
    const oxr::FieldText adapter(session.vmhba_name);
    const oxr::FieldText isid(session.isid);
    if (remove_session(adapter.c_str(), renewal.iqn(), isid.c_str()) != 0) {
        OXR_ERROR_IN(renewing, "unable to remove sessions for adapter %s target %s isid %s", adapter.c_str(),
                     renewal.iqn(), isid.c_str());
        return OXD_SESSION_REMOVAL_FAILED;
    }
    const std::uint32_t status = wait_until_gone(renewal, adapter.c_str(), isid.c_str());
    if (status == OXD_SUCCESS) {
        session.handled = 1;
    }
    return status;
}

bool same_local_address(const TargetDtls& a, const TargetDtls& b) {
    return oxr::field_view(a.current_local_ip) == oxr::field_view(b.current_local_ip);
}

// Logs out the other sessions over the address of the session at `first` and counts them in `removed`.
std::uint32_t log_duplicates_out(const Renewal& renewal, int first, int& removed) {
    RenewalRequest& request = renewal.request;
    for (int i = first + 1; i < request.session_count; ++i) {
        if (request.sessions[i].handled == 0 && same_local_address(request.sessions[i], request.sessions[first])) {
            if (const std::uint32_t status = log_session_out(renewal, request.sessions[i]); status != OXD_SUCCESS) {
                return status;
            }
            ++removed;
        }
    }
    return OXD_SUCCESS;
}

// --- creating ----------------------------------------------------------------------------------------------

// Creates a session on the model's adapter, as a copy of the session with the ISID unless it is null.
std::uint32_t create_session(const Renewal& renewal, const TargetDtls& model, const char* isid) {
    const oxr::FieldText adapter(model.vmhba_name);
    if (create_sessions(adapter.c_str(), renewal.iqn(), isid) != 0) {
        OXR_ERROR_IN(renewing, "unable to create sessions for adapter %s target %s", adapter.c_str(), renewal.iqn());
        return OXD_SESSION_CREATION_FAILED;
    }
    return OXD_SUCCESS;
}

// Starts with empty records, so that no session of an earlier inventory is found again.
int read_details(Renewal& renewal) {
    std::fill_n(renewal.details.get(), MAX_SESSIONS_PER_TARGET, TargetDtls{});
    return obtain_oxr_lun_sessions(renewal.request.lun, renewal.details.get());
}

std::uint32_t read_details_with_retries(Renewal& renewal) {
    for (int attempt = 1; read_details(renewal) != 0; ++attempt) {
        if (attempt == max_inventory_attempts) {
            OXR_ERROR_IN(renewing, "unable to obtain sessions for target %s after %d retries", renewal.iqn(), attempt);
            return OXD_FAILED;
        }
        OXR_ERROR_IN(renewing, "Failed to obtain sessions for target %s, retry %d", renewal.iqn(), attempt);
        wait_for_next_poll();
    }
    OXR_DEBUG_IN(renewing, "obtained lun sessions");
    return OXD_SUCCESS;
}

// A logged-in session over the renewed one's address in the last inventory, or null.
const TargetDtls* find_logged_in(const Renewal& renewal, const TargetDtls& renewed) {
    const TargetDtls* const begin = renewal.details.get();
    const TargetDtls* const end = begin + MAX_SESSIONS_PER_TARGET;
    const TargetDtls* const found = std::find_if(begin, end, [&renewed](const TargetDtls& session) {
        return session.session_state == SESSION_STATE_LOGGED_IN && same_local_address(session, renewed);
    });
    return found != end ? found : nullptr;
}

// `parent` is valid until the next inventory.
std::uint32_t wait_for_new_session(Renewal& renewal, const TargetDtls& renewed, const TargetDtls*& parent) {
    for (int retries = 0; retries < max_session_checks; ++retries) {
        if (const std::uint32_t status = read_details_with_retries(renewal); status != OXD_SUCCESS) {
            return status;
        }
        parent = find_logged_in(renewal, renewed);
        if (parent != nullptr) {
            return OXD_SUCCESS;
        }
        OXR_ERROR_IN(renewing,
                     "Either parent session with local_ip %s not appeared after creation or still not in logged_in "
                     "state: retries %d",
                     oxr::FieldText(renewed.current_local_ip).c_str(), retries);
        wait_for_next_poll();
    }
    return OXD_SESSION_CREATION_FAILED;
}

std::uint32_t create_duplicates(const Renewal& renewal, const TargetDtls& parent, int count) {
    const oxr::FieldText isid(parent.isid);
    for (int i = 0; i < count; ++i) {
        if (const std::uint32_t status = create_session(renewal, parent, isid.c_str()); status != OXD_SUCCESS) {
            return status;
        }
        wait_for_next_poll();
    }
    return OXD_SUCCESS;
}

// A group-scoped target gets one session over the address; the next pass adds the others.
std::uint32_t log_in_again(Renewal& renewal, const TargetDtls& renewed, int duplicates) {
    if (const std::uint32_t status = create_session(renewal, renewed, nullptr); status != OXD_SUCCESS) {
        return status;
    }
    const TargetDtls* parent = nullptr;
    if (const std::uint32_t status = wait_for_new_session(renewal, renewed, parent); status != OXD_SUCCESS) {
        return status;
    }
    if (!renewal.group_scoped) {
        if (const std::uint32_t status = create_duplicates(renewal, *parent, duplicates); status != OXD_SUCCESS) {
            return status;
        }
    }
    OXR_DEBUG_IN(renewing, "created duplicate sessions");
    return OXD_SUCCESS;
}

// --- paths -------------------------------------------------------------------------------------------------

std::uint32_t rescan_adapter(const TargetDtls& renewed) {
    const int result = rescan_ioctl(&renewed.vmhba_name, 1);
    if (result == OSTREL_PSP_IOCTL_ERROR_RESCAN_ADAPTER_BUSY) {
        OXR_ERROR_IN(renewing, "Adapter rescan is already in progress on %s, continue..",
                     oxr::FieldText(renewed.vmhba_name).c_str());
    } else if (result != 0) {
        return OXD_PATH_DISCOVERY_FAILED;
    }
    OXR_INFO_IN(renewing, "path rescan complete after session addition");
    return OXD_SUCCESS;
}

std::uint32_t read_path_count(Renewal& renewal, int& paths) {
    if (renewal.group_scoped) {
        const int result = getGroupScopedTargetInfoByIqn(*renewal.group_scoped_target, renewal.iqn());
        if (result != 0) {
            OXR_ERROR_IN(renewing, "Unable to get device information with group scoped target_iqn %s", renewal.iqn());
            return oxd_status_of_lookup(result);
        }
        paths = renewal.group_scoped_target->total_active_paths;
    } else {
        const int result = getDeviceInfoByTargetIqn(*renewal.volume, renewal.iqn());
        if (result != 0) {
            OXR_ERROR_IN(renewing, "Unable to get device information with target_iqn %s", renewal.iqn());
            return oxd_status_of_lookup(result);
        }
        paths = renewal.volume->num_active_paths;
    }
    OXR_INFO_IN(renewing, "PSP returned active path count after renewal is %d", paths);
    return OXD_SUCCESS;
}

std::uint32_t wait_for_paths(Renewal& renewal) {
    for (int retries = 1;; ++retries) {
        int paths = 0;
        if (const std::uint32_t status = read_path_count(renewal, paths); status != OXD_SUCCESS) {
            return status;
        }
        if (paths >= renewal.initial_paths) {
            return OXD_SUCCESS;
        }
        if (retries == max_path_retries) {
            OXR_ERROR_IN(renewing,
                         "path did not get added even after %d retries, aborting the connection renewal for target %s",
                         retries, renewal.iqn());
            return OXD_PATH_DISCOVERY_FAILED;
        }
        wait_for_next_poll();
        OXR_INFO_IN(renewing, "path did not get added after create_session : retry %d", retries);
    }
}

// --- the procedure ------------------------------------------------------------------------------------------

// Renews the address of the session at `first`, with every session over it.
std::uint32_t renew_local_address(Renewal& renewal, int first) {
    TargetDtls& session = renewal.request.sessions[first];
    int duplicates = 0;
    std::uint32_t status = log_duplicates_out(renewal, first, duplicates);
    if (status == OXD_SUCCESS) {
        status = log_session_out(renewal, session);
    }
    if (status == OXD_SUCCESS) {
        status = log_in_again(renewal, session, duplicates);
    }
    if (status == OXD_SUCCESS) {
        status = rescan_adapter(session);
    }
    if (status == OXD_SUCCESS) {
        status = wait_for_paths(renewal);
    }
    if (status == OXD_SUCCESS) {
        OXR_DEBUG_IN(renewing, "done renewal with local_ip %s, continuing to next local ip",
                     oxr::FieldText(session.current_local_ip).c_str());
    }
    return status;
}

std::uint32_t renew_every_local_address(Renewal& renewal) {
    const RenewalRequest& request = renewal.request;
    for (int i = 0; i < request.session_count; ++i) {
        if (request.sessions[i].handled != 0) {
            continue;
        }
        if (const std::uint32_t status = renew_local_address(renewal, i); status != OXD_SUCCESS) {
            return status;
        }
    }
    OXR_INFO_IN(renewing, "connection renewal is successful for device %s target %s",
                oxr::FieldText(request.lun.device_eui).c_str(), renewal.iqn());
    return OXD_SUCCESS;
}

std::uint32_t renew(RenewalRequest& request) {
    Renewal renewal(request);
    std::uint32_t status = read_initial_path_count(renewal);
    if (status == OXD_SUCCESS) {
        status = allocate_buffers(renewal);
    }
    if (status == OXD_SUCCESS) {
        status = renew_every_local_address(renewal);
    }
    return status;
}

}  // namespace

void renew_iscsi_connections(RenewalRequest& request) {
    OXR_INFO("renew_iscsi_connections thread started");
    request.status = static_cast<std::int32_t>(renew(request));
    OXR_INFO("Exiting connection renewal thread");
}
