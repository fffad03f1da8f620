#include "OstrelProvider/provider_users.h"

#include <cerrno>
#include <cstdint>

#include "OstrelConnections/renewal/renewal_state.h"
#include "OstrelProvider/config.h"
#include "OstrelProvider/log.h"
#include "OstrelProvider/logs_path.h"
#include "OstrelProvider/service.h"
#include "OstrelProvider/stop_signal.h"
#include "OstrelProvider/worker.h"
#include "common/text.h"
#include "common/threads.h"

namespace {

constexpr LogOperation start = "OstrelProviderInit";
constexpr LogOperation cleanup = "OstrelProviderCleanup";

// Guards the set of users and the shared state. Taken before every shared mutex.
oxr::Mutex users_mutex;

// One bit for each management interface in use.
std::uint32_t users OXR_GUARDED_BY(users_mutex) = 0;

// A shared mutex and its name in messages. It is initialised only once, before anybody can hold it.
struct SharedMutex {
    oxr::Mutex& mutex;
    const char* name;
    bool initialised;
    int result;  // of the last initialisation
};

SharedMutex shared_log{log_file_mutex, "log_file_mutex", false, 0};
SharedMutex shared_config{config_file_mutex, "config_file_mutex", false, 0};
SharedMutex shared_lock_file{lock_file_mutex, "lock_file_mutex", false, 0};
SharedMutex shared_conn_renew{conn_renew_mutex, "conn_renew_mutex", false, 0};
SharedMutex shared_start{start_service_mutex, "start_service_mutex", false, 0};

std::uint32_t bit(ProviderMi mi) {
    return 1U << static_cast<unsigned>(mi);
}

void init_once(SharedMutex& shared) {
    if (!shared.initialised) {
        shared.result = shared.mutex.init();
        shared.initialised = shared.result == 0;
    }
}

void init_shared_mutexes() OXR_REQUIRES(users_mutex) {
    for (SharedMutex* const shared :
         {&shared_log, &shared_config, &shared_lock_file, &shared_conn_renew, &shared_start}) {
        init_once(*shared);
    }
}

// A mutex that is still held is not destroyed.
int destroy(SharedMutex& shared) {
    if (!shared.initialised) {
        return 0;
    }
    const int result = shared.mutex.destroy();
    shared.initialised = result != 0;
    return result;
}

// The steps of OstrelProviderInit before the service starts. False if one failed.
bool prepare_shared_state() OXR_REQUIRES(users_mutex) {
    init_shared_mutexes();
    {
        const oxr::MutexLock config_lock(config_file_mutex);
        char filename[LOG_FILENAME_SIZE];
        set_log_filename(get_log_filename(filename));
    }
    if (!shared_log.initialised) {
        OXR_ERROR_IN(start, "pthread_mutex_init returned %d", shared_log.result);
        return false;
    }
    OSTREL_CreateLogDir();
    OXR_INFO_IN(start, "Initializing the provider.");
    for (SharedMutex* const shared : {&shared_config, &shared_lock_file, &shared_conn_renew, &shared_start}) {
        if (!shared->initialised) {
            OXR_ERROR_IN(start, "pthread_mutex_init returned %d for %s", shared->result, shared->name);
            return false;
        }
    }
    if (const int result = install_stop_signal(); result != 0) {
        OXR_ERROR_IN(start, "sigaction returned %d, %s", result, oxr::error_text(errno));
        return false;
    }
    return true;
}

void destroy_shared_mutexes() OXR_REQUIRES(users_mutex) {
    for (SharedMutex* const shared : {&shared_config, &shared_log, &shared_start}) {
        if (const int result = destroy(*shared); result != 0) {
            OXR_ERROR_IN(cleanup, "pthread_mutex_destroy returned %d", result);
        }
    }
    for (SharedMutex* const shared : {&shared_lock_file, &shared_conn_renew}) {
        if (const int result = destroy(*shared); result != 0) {
            OXR_ERROR_IN(cleanup, "%s destroy returned %d", shared->name, result);
        }
    }
}

bool is_last_user(ProviderMi mi) {
    const oxr::MutexLock lock(users_mutex);
    return users == bit(mi);
}

}  // namespace

void OstrelProviderInit() {
    {
        const oxr::MutexLock lock(users_mutex);
        if (!prepare_shared_state()) {
            return;
        }
    }
    OXR_INFO("Calling StartService.");
    if (StartService() < 0) {
        OXR_ERROR("Could not create worker thread in StartService().");
    }
}

void hand_out(ProviderMi mi) {
    const oxr::MutexLock lock(users_mutex);
    if (users == 0) {
        init_shared_mutexes();
    }
    users |= bit(mi);
}

void give_back(ProviderMi mi) {
    // A worker that another provider started must not outlive the library. Stopping it can take long, so the lock is
    // not held.
    if (is_last_user(mi) && oxr::running_thread(oxr_thread) != 0) {
        (void)StopService();  // logs its failure
    }
    const oxr::MutexLock lock(users_mutex);
    const std::uint32_t before = users;
    users &= ~bit(mi);
    if (before != 0 && users == 0) {
        remove_stop_signal();
        destroy_shared_mutexes();
    }
}
