#include "OstrelProvider/unload.h"

#include <pthread.h>

#include "OstrelConnections/renewal/renewal_state.h"
#include "OstrelProvider/service.h"
#include "OstrelProvider/stop_signal.h"
#include "common/mutex.h"
#include "common/stop_point.h"
#include "common/threads.h"

namespace {

// A CIM server may exit or unload the library after the cleanup of only one class, or of none. Everything that existed
// before the library was loaded still works when this is destroyed.
struct EndOfLibrary {
    constexpr EndOfLibrary() = default;
    ~EndOfLibrary() {
        end_what_runs();
        remove_stop_signal();
    }
};

const EndOfLibrary end_of_library;

bool is_this_thread(const std::atomic<pthread_t>& shown) {
    return pthread_equal(shown.load(), pthread_self()) != 0;
}

// Takes no lock and logs nothing, because this thread may hold any lock.
void let_renewal_finish() {
    oxr::enable_stop_points(nullptr);
    for (int waits = 0; renewals_at_work.load() != 0 && waits < max_renewal_waits; ++waits) {
        oxr::wait_seconds(1);
    }
}

}  // namespace

void end_what_runs() {
    oxr::end_threads();
    if (oxr::is_a_forked_child() || is_this_thread(conn_renew_thread)) {
        return;
    }
    if (oxr::mutexes_held != 0 || is_this_thread(oxr_thread)) {
        let_renewal_finish();
        return;
    }
    EndService();
}
