#include "OstrelConnections/renewal/renewal_run.h"

#include "OstrelProvider/log.h"
#include "common/heap.h"
#include "common/threads.h"

namespace {

void drop(RenewalRun* run) {
    if (run->owners.fetch_sub(1) > 1) {
        return;
    }
    // A handle that is still set belongs to a thread that could not be joined.
    pthread_t shown = run->thread;
    if (shown != 0) {
        (void)conn_renew_thread.compare_exchange_strong(shown, 0);
    }
    delete run;
}

void* renewal_thread(void* argument) {
    RenewalRun* const run = static_cast<RenewalRun*>(argument);
    renew_iscsi_connections(run->request);
    renewals_at_work.fetch_sub(1);
    drop(run);
    return nullptr;
}

}  // namespace

void DropRenewalRun::operator()(RenewalRun* run) const {
    drop(run);
}

RenewalRunPtr make_renewal_run() {
    RenewalRunPtr run(oxr::make_zeroed<RenewalRun>().release());
    if (run != nullptr) {
        run->owners.store(1);
    }
    return run;
}

bool run_renewal_thread(const char* operation, RenewalRun& run) {
    run.owners.fetch_add(1);
    renewals_at_work.fetch_add(1);
    if (const int result = oxr::create_thread(conn_renew_thread, renewal_thread, &run); result != 0) {
        renewals_at_work.fetch_sub(1);
        run.owners.fetch_sub(1);
        OXR_ERROR_IN(operation, "pthread_create failed for connection renewal thread : returned %d", result);
        return false;
    }
    run.thread = conn_renew_thread.load();
    if (const int result = pthread_join(run.thread, nullptr); result != 0) {
        OXR_ERROR_IN(operation, "pthread_join failed for connection renewal thread : returned %d", result);
        return false;
    }
    conn_renew_thread.store(0);
    run.thread = 0;
    return true;
}
