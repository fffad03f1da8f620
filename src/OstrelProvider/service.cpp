#include "OstrelProvider/service.h"

#include <poll.h>
#include <signal.h>

#include <cerrno>
#include <cinttypes>

#include "OstrelConnections/renewal/renewal_state.h"
#include "OstrelProvider/config.h"
#include "OstrelProvider/log.h"
#include "OstrelProvider/worker.h"
#include "common/stop_point.h"
#include "common/text.h"
#include "common/threads.h"

std::atomic<pthread_t> oxr_thread{0};
std::atomic<std::int64_t> tid{0};
oxr::Mutex start_service_mutex;
oxr::Mutex config_file_mutex;

namespace {

constexpr LogOperation stop = "StopService";

constexpr int attempt_milliseconds = 10;
constexpr int attempts_of_a_minute = 60000 / attempt_milliseconds;

oxr::Mutex version_mutex;
ServiceVersions versions OXR_GUARDED_BY(version_mutex){};

// Held while a worker is signalled and joined, so that it is joined only once. The worker never takes it.
oxr::Mutex stop_mutex;

void read_versions() {
    ServiceVersions read{};
    if (getOxdVersion(read.oxd_version) < 0) {
        oxr::copy_text(read.oxd_version, "0.0.0");
    }
    if (getPspVersion(read.psp_version) < 0) {
        oxr::copy_text(read.psp_version, "0.0.0");
    }
    const oxr::MutexLock lock(version_mutex);
    versions = read;
}

// Blocks SIGUSR1 during the creation, so that the worker blocks it from the start.
int create_worker() {
    sigset_t stop_signal;
    sigset_t before;
    sigemptyset(&stop_signal);
    sigaddset(&stop_signal, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &stop_signal, &before);
    worker_ended.store(false);
    const int result = oxr::create_thread(oxr_thread, do_work, nullptr);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return result;
}

void wait_for_renewal() {
    for (int waits = 0; oxr::running_thread(conn_renew_thread) != 0; ++waits) {
        if (waits == max_renewal_waits) {
            OXR_ERROR_IN(stop, "looks like conn_renew_thread is hung even after 60 seconds, continuing with stop");
            return;
        }
        OXR_INFO_IN(stop, "iscsi connection renew thread is running, waiting to complete : retries %d", waits);
        oxr::wait_seconds(1);
    }
}

// Waits before the next attempt. False after a minute of attempts: if the worker hangs in a call of the host, the exit
// must not hang, too.
bool may_try_again(int& attempts) {
    if (attempts++ == attempts_of_a_minute) {
        return false;
    }
    (void)poll(nullptr, 0, attempt_milliseconds);
    return true;
}

// True if it locked the mutex.
bool lock_within_a_minute(oxr::Mutex& mutex) OXR_TRY_ACQUIRE(true, mutex) {
    for (int attempts = 0;;) {
        if (mutex.try_lock()) {
            return true;
        }
        if (!may_try_again(attempts)) {
            return false;
        }
    }
}

int join(pthread_t worker) {
    return pthread_join(worker, nullptr);
}

int join_within_a_minute(pthread_t worker) {
    for (int attempts = 0; !worker_ended.load();) {
        if (!may_try_again(attempts)) {
            return ETIMEDOUT;
        }
    }
    return join(worker);
}

int stop_worker(pthread_t worker, int (*join_it)(pthread_t)) OXR_REQUIRES(stop_mutex) {
    OXR_INFO_IN(stop, "Killing the worker thread - threadid = %" PRId64 ".", tid.load());
    if (const int result = oxr::request_stop(worker); result != 0) {
        OXR_ERROR_IN(stop, "%s, pthread_kill failed", oxr::error_text(result));
        return -1;
    }
    if (const int result = join_it(worker); result != 0) {
        OXR_ERROR_IN(stop, "%s, pthread_join returned %d", oxr::error_text(result), result);
        return -1;
    }
    oxr::clear_stop_request();
    OXR_INFO_IN(stop, "do_work thread killed. pthread_join returned %d", 0);
    return 0;
}

}  // namespace

ServiceVersions service_versions() {
    const oxr::MutexLock lock(version_mutex);
    return versions;
}

int StartService() {
    const oxr::MutexLock lock(start_service_mutex);
    if (oxr::running_thread(oxr_thread) != 0) {
        OXR_INFO("Worker thread exists; no need to create.");
        return 0;
    }
    {
        const oxr::MutexLock config_lock(config_file_mutex);
        OSTREL_CreateConfigFile();
    }
    read_versions();
    OXR_INFO("Creating worker thread");
    if (const int result = create_worker(); result != 0) {
        OXR_ERROR("%s, pthread_create failed", oxr::error_text(result));
        return -1;
    }
    return 0;
}

int StopService() {
    const oxr::MutexLock lock(stop_mutex);
    const pthread_t worker = oxr::running_thread(oxr_thread);
    if (worker == 0) {
        OXR_INFO("No worker thread exists; nothing to stop.");
        wait_for_renewal();
        return 0;
    }
    if (stop_worker(worker, join) != 0) {
        return -1;
    }
    wait_for_renewal();
    oxr_thread.store(0);
    return 0;
}

void EndService() {
    if (lock_within_a_minute(stop_mutex)) {
        const pthread_t worker = oxr::running_thread(oxr_thread);
        if (worker != 0 && stop_worker(worker, join_within_a_minute) == 0) {
            oxr_thread.store(0);
        }
        stop_mutex.unlock();
    }
    wait_for_renewal();
}
