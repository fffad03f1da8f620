// Runs the renewal thread for one request. The request outlives a failed join.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "OstrelConnections/renewal/renewal.h"

// A request and its users: its creator, and the thread while it runs. The last one deletes it, so a thread that could
// not be joined still has its request.
struct RenewalRun {
    RenewalRequest request;
    pthread_t thread;
    std::atomic<int> owners;
};

struct DropRenewalRun {
    void operator()(RenewalRun* run) const;
};
using RenewalRunPtr = std::unique_ptr<RenewalRun, DropRenewalRun>;

// A run with a zeroed request, or null if memory is short.
RenewalRunPtr make_renewal_run();

// Runs the renewal thread on the request and joins it; conn_renew_thread holds its handle meanwhile. False if it could
// not be created or joined, which is logged for `operation`; the caller must not use the request then.
bool run_renewal_thread(const char* operation, RenewalRun& run) OXR_REQUIRES(conn_renew_mutex);

// The OXD status of a PSP lookup that failed with `result`.
inline std::uint32_t oxd_status_of_lookup(int result) {
    return result == OSTREL_PSP_IOCTL_ERROR_DEVICE_NOT_FOUND ? OXD_DEVICE_NOT_FOUND : OXD_FAILED;
}
