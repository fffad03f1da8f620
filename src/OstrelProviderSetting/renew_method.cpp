#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string_view>

#include "OstrelConnections/renewal/renewal.h"
#include "OstrelConnections/renewal/renewal_state.h"
#include "OstrelProvider/config.h"
#include "OstrelProvider/log.h"
#include "OstrelProvider/worker.h"
#include "OstrelProviderSetting/setting_methods.h"
#include "common/blank.h"
#include "common/cmpi_arguments.h"
#include "common/heap.h"
#include "common/stop_point.h"
#include "common/text.h"

namespace {

constexpr LogOperation request = "OstrelHandleRenewIscsiConnections";

constexpr int max_worker_stop_looks = 12;
constexpr int seconds_between_worker_stop_looks = 5;
constexpr int max_lock_file_looks = 60;
constexpr int seconds_between_lock_file_looks = 1;

// The checked arguments. The broker owns the texts and the array; they are valid during the call.
struct RenewalArguments {
    const CMPIArray* targets = nullptr;
    CMPICount num_targets = 0;
    const char* paramname = nullptr;   // null: no value
    const char* paramvalue = nullptr;  // null: no value
};

// The result of a request and the text for the client (null: none).
struct Outcome {
    std::uint32_t oxd_status;
    const char* message;

    bool ok() const { return oxd_status == OXD_SUCCESS; }
};
constexpr Outcome succeeded{OXD_SUCCESS, nullptr};

Outcome outcome_of(std::uint32_t oxd_status) {
    return {oxd_status, oxd_status == OXD_SUCCESS ? nullptr : ostrel_oxd_status_to_string(oxd_status)};
}

// --- arguments: each step gives null, or the message of the failure that ends the call ---------------------

// An empty array has no element type; CIM servers may pass it as an array of instances.
bool is_string_array(const CMPIData& argument) {
    if ((argument.type & CMPI_ARRAY) == 0 || !oxr::has_value(argument) || argument.value.array == nullptr) {
        return false;
    }
    return argument.type == CMPI_ARRAY || argument.type == CMPI_stringA ||
           (argument.type == CMPI_instanceA && oxr::array_size(argument.value.array) == 0);
}

bool is_iqn(const char* text) {
    return text != nullptr && std::string_view(text).starts_with("iqn");
}

const char* check_targets(const CMPIArgs* in, RenewalArguments& arguments) {
    const CMPIData argument = oxr::get_argument(in, "targets");
    if (!is_string_array(argument)) {
        OXR_ERROR_IN(request, "%s - invalid parameter or missing attribute targets\n", "renew_iscsi_connections");
        return "renewIscsiConnections parameter \"targets\" missing or no targets specified";
    }
    arguments.targets = argument.value.array;
    arguments.num_targets = oxr::array_size(argument.value.array);
    OXR_INFO_IN(request, "target array size is %d", static_cast<int>(arguments.num_targets));
    if (arguments.num_targets < 1) {
        OXR_ERROR_IN(request, "NULL target IQN list passed for changeIscsiDigest method");
        return "NULL target IQN list passed";
    }
    for (CMPICount i = 0; i < arguments.num_targets; ++i) {
        const char* const target = oxr::element_text(arguments.targets, i);
        OXR_INFO_IN(request, "target at index %d is %s", static_cast<int>(i), target != nullptr ? target : "(null)");
        if (!is_iqn(target)) {
            OXR_ERROR_IN(request, "Invalid IQN passed for changeIscsiDigest method");
            return "Invalid target IQN passed";
        }
    }
    return nullptr;
}

// A string that may be null. False if the argument is absent or has another type.
bool read_optional_text(const CMPIArgs* in, const char* name, const char*& text) {
    const CMPIData argument = oxr::get_argument(in, name);
    if (argument.type != CMPI_string) {
        OXR_ERROR_IN(request, "%s - invalid parameter or missing attribute devices\n", "RenewIscsiConnections");
        return false;
    }
    text = oxr::text_of(argument);
    return true;
}

const char* check_parameter(const CMPIArgs* in, RenewalArguments& arguments) {
    if (!read_optional_text(in, "paramname", arguments.paramname)) {
        return "RenewIscsiConnections parameter \"paramname\" missing or no targets specified";
    }
    if (arguments.paramname != nullptr) {
        OXR_DEBUG_IN(request, "got paramname %s", arguments.paramname);
    }
    if (!read_optional_text(in, "paramvalue", arguments.paramvalue)) {
        return "RenewIscsiConnections parameter \"paramValue\" missing or no targets specified";
    }
    if (arguments.paramvalue != nullptr) {
        OXR_DEBUG_IN(request, "got paramvalue %s", arguments.paramvalue);
    }
    return nullptr;
}

// --- the request ------------------------------------------------------------------------------------------

bool read_worker_stop(std::uint32_t& worker_stop) {
    ConfigValues values;
    const oxr::MutexLock lock(config_file_mutex);
    if (OSTREL_GetConfigValues(&values, CONFIG_NORMAL) != 0) {
        OXR_ERROR_IN(request, "Failed to get values from the config file");
        return false;
    }
    worker_stop = values.worker_stop;
    return true;
}

Outcome wait_while_worker_is_stopped() {
    for (int look = 1;; ++look) {
        std::uint32_t worker_stop = 0;
        if (!read_worker_stop(worker_stop)) {
            return {OXD_WORKER_STOP_TIMEOUT, "get oxd config value failed"};
        }
        if (worker_stop == 0) {
            return succeeded;
        }
        if (look == max_worker_stop_looks) {
            return outcome_of(OXD_WORKER_STOP_TIMEOUT);
        }
        oxr::wait_seconds(seconds_between_worker_stop_looks);
    }
}

// If no pass can be running: makes the worker skip its passes and returns true. A worker may have failed to create its
// lock file, and if access() fails, the lock file may still exist.
bool hold_off_worker() {
    const oxr::MutexLock lock(lock_file_mutex);
    if (cycle_under_way || ::access(OSTREL_LOCK_FILE, F_OK) == 0 || errno != ENOENT) {
        return false;
    }
    renew_connections_running.store(1);
    return true;
}

Outcome wait_for_running_pass() {
    for (int look = 1; !hold_off_worker(); ++look) {
        if (look == max_lock_file_looks) {
            return outcome_of(OXD_POLLING_PASS_TIMEOUT);
        }
        oxr::wait_seconds(seconds_between_lock_file_looks);
    }
    return succeeded;
}

Outcome renew_targets(const RenewalArguments& arguments) OXR_REQUIRES(conn_renew_mutex) {
    const auto targets = oxr::make_zeroed_array<TargetIqn>(arguments.num_targets);
    if (targets == nullptr) {
        OXR_ERROR_IN(request, "can not allocate memory for %u targets", arguments.num_targets);
        return outcome_of(OXD_FAILED);
    }
    for (CMPICount i = 0; i < arguments.num_targets; ++i) {
        const char* const target = oxr::element_text(arguments.targets, i);
        oxr::copy_text(targets[i], target != nullptr ? target : "");
    }
    const int count = static_cast<int>(arguments.num_targets);
    if (arguments.paramname == nullptr || !oxr::equal_ignoring_case(arguments.paramname, "iscsidigest")) {
        return outcome_of(handleGeneralConnectionRenewal(targets.get(), count));
    }
    const bool enable = arguments.paramvalue != nullptr && oxr::equal_ignoring_case(arguments.paramvalue, "enable");
    return outcome_of(handleChangeIscsiDigest(targets.get(), count, enable));
}

// One request at a time, from its waits until the worker may run passes again.
Outcome serve_request(const RenewalArguments& arguments) {
    const oxr::MutexLock lock(conn_renew_mutex);
    Outcome outcome = wait_while_worker_is_stopped();
    if (outcome.ok()) {
        outcome = wait_for_running_pass();
    }
    if (outcome.ok()) {
        outcome = renew_targets(arguments);
    }
    renew_connections_running.store(0);
    return outcome;
}

void return_oxd_status(const CMPIArgs* out, std::uint32_t oxd_status) {
    if (out != nullptr) {
        (void)CMAddArg(out, "oxd_status", &oxd_status, CMPI_uint32);  // the status is also logged
    }
    OXR_INFO_IN(request, "returning oxd status %d", static_cast<int>(oxd_status));
}

}  // namespace

CMPIStatus OstrelHandleRenewIscsiConnections(const CMPIBroker* broker, const CMPIArgs* in, CMPIArgs* out) {
    RenewalArguments arguments;
    const char* refusal = check_targets(in, arguments);
    if (refusal == nullptr) {
        refusal = check_parameter(in, arguments);
    }
    if (refusal != nullptr) {
        OXR_DEBUG("HandleRenewIscsiConnections Completed");
        return oxr::status_with_message(broker, CMPI_RC_ERR_INVALID_PARAMETER, refusal);
    }
    const Outcome outcome = serve_request(arguments);
    OXR_DEBUG("HandleRenewIscsiConnections Completed");
    return_oxd_status(out, outcome.oxd_status);
    return oxr::status_with_message(broker, CMPI_RC_OK, outcome.message);
}
