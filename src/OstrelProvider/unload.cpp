#include "OstrelProvider/unload.h"

#include <pthread.h>

#include "OstrelConnections/renewal/renewal_state.h"
#include "OstrelProvider/service.h"
#include "OstrelProvider/stop_signal.h"
#include "common/threads.h"

namespace {

// A CIM server may end or unload the library after the cleanup of one class only, or of none. What was there before
// the library was loaded still works when this is destroyed.
struct EndOfLibrary {
    constexpr EndOfLibrary() = default;
    ~EndOfLibrary() {
        end_what_runs();
        remove_stop_signal();
    }
};

const EndOfLibrary end_of_library;

}  // namespace

void end_what_runs() {
    oxr::end_threads();
    const pthread_t worker = oxr::running_thread(oxr_thread);
    const pthread_t renewal = oxr::running_thread(conn_renew_thread);
    // One of our threads that itself ends the process can't be waited for.
    const bool is_ours = pthread_equal(worker, pthread_self()) != 0 || pthread_equal(renewal, pthread_self()) != 0;
    if ((worker != 0 || renewal != 0) && !is_ours) {
        (void)StopService();  // it has logged its failure, and there is nobody left to tell
    }
}
