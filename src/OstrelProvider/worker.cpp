#include "OstrelProvider/worker.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>

#include "OstrelConnections/polling_pass.h"
#include "OstrelConnections/renewal/renewal_state.h"
#include "OstrelProvider/config.h"
#include "OstrelProvider/logs_path.h"
#include "OstrelProvider/service.h"
#include "OstrelProvider/stop_signal.h"
#include "common/descriptor.h"
#include "common/stop_point.h"
#include "common/text.h"
#include "configuration/config_text.h"
#include "oxd_ima_utility/oid_cache.h"

oxr::Mutex lock_file_mutex;
bool cycle_under_way OXR_GUARDED_BY(lock_file_mutex) = false;
std::atomic<bool> worker_ended{false};

namespace {

constexpr LogOperation work = "do_work";

// The worker's thread, for the signal handler.
std::atomic<pthread_t> worker_self{0};

// Thrown at a stop point to end the worker. pthread_exit is not usable while the library is unloaded: it may load the
// unwinder and wait for the dynamic loader, which waits for the worker.
struct WorkerStopped {};

// The part of a cycle during which no renewal may run.
class LockedCycle {
public:
    LockedCycle() {
        const oxr::MutexLock lock(lock_file_mutex);
        cycle_under_way = true;
        create_lock_file();
    }
    ~LockedCycle() {
        const oxr::MutexLock lock(lock_file_mutex);
        cycle_under_way = false;
    }
    LockedCycle(const LockedCycle&) = delete;
    LockedCycle& operator=(const LockedCycle&) = delete;
};

void read_configuration(ConfigValues& values) {
    const oxr::MutexLock lock(config_file_mutex);
    if (OSTREL_GetConfigValues(&values, CONFIG_NORMAL) < 0) {
        OXR_ERROR_IN(work, "Failed to get values from the config file. Using default value.");
    }
    char filename[LOG_FILENAME_SIZE];
    set_log_filename(get_log_filename(filename));
}

void log_configuration(const ConfigValues& values) {
    char config_line[CONFIG_LINE_SIZE];
    compose_config_line(config_line, &values);
    OXR_INFO_IN(work, "%s", config_line);
}

void run_pass_unless_held_off(const ConfigValues& values) {
    if (values.worker_stop != 0) {
        OXR_INFO_IN(work, "worker_stop = %d continue to sleep.", static_cast<int>(values.worker_stop));
    } else if (renew_connections_running.load() != 0) {
        OXR_INFO_IN(work, "renewal connections(iscsi digest) in progress continue to sleep");
    } else {
        (void)handle_ostrel_connections(values);  // a failed pass is repeated only in the next cycle
    }
}

void sleep_until_next_cycle(const ConfigValues& values) {
    OXR_INFO_IN(work, "About to sleep for interval = %d seconds", static_cast<int>(values.interval));
    oxr::wait_seconds(static_cast<long>(values.interval));
    OXR_INFO_IN(work, "Waking up after interval = %d seconds to poll Ostrel array connection",
                static_cast<int>(values.interval));
}

}  // namespace

void* do_work(void*) {
    worker_self.store(pthread_self());
    tid.store(static_cast<std::int64_t>(pthread_self()));
    oxr::enable_stop_points(sigusr1_handler);
    ConfigValues values;
    try {
        for (;;) {
            run_worker_cycle(values);
            sleep_until_next_cycle(values);
        }
    } catch (const WorkerStopped&) {
    }
    worker_ended.store(true);
    return nullptr;
}

void run_worker_cycle(ConfigValues& values) {
    read_configuration(values);
    log_configuration(values);
    {
        const LockedCycle locked;
        run_pass_unless_held_off(values);
        remove_lock_file();
    }
    refresh_target_oids_table();
}

void sigusr1_handler(int signal) {
    if (pthread_equal(worker_self.load(), pthread_self()) == 0) {
        pass_on_signal(signal);
        return;
    }
    OXR_INFO("Signal %d caught. Performing cleanup of resources allocated by polling thread.", signal);
    OXR_INFO("Polling thread exiting. Thread id = %" PRId64, tid.load());
    worker_self.store(0);
    throw WorkerStopped();
}

void create_lock_file() {
    if (::access(OSTREL_LOCK_FILE, F_OK) == 0) {
        return;
    }
    OXR_DEBUG("lock file does NOT exist. Creating...");
    const oxr::Descriptor file(::open(OSTREL_LOCK_FILE, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!file.valid()) {
        OXR_ERROR("%s, fopen() failed", oxr::error_text(errno));
    }
}

void remove_lock_file() {
    if (::unlink(OSTREL_LOCK_FILE) == 0) {
        OXR_DEBUG("lock file has been deleted");
    } else {
        OXR_ERROR("Error deleting the lock file");
    }
}
