// The worker thread, and the lock file that exists while a polling pass may be running.
#pragma once

#include <atomic>

#include "OstrelProvider/config.h"
#include "common/mutex.h"

inline constexpr char OSTREL_LOCK_FILE[] = "/etc/ostrel/.lock";

// Serialises the creation of the lock file and checks for it.
extern oxr::Mutex lock_file_mutex;

// The lock file's flag within this process: set before the file is created, even if that fails, and cleared after it is
// removed. It is also cleared if the worker is stopped during the cycle; then only a file that remains makes renewals
// wait.
extern bool cycle_under_way OXR_GUARDED_BY(lock_file_mutex);

// Set when the worker has nothing left to do but end its thread; cleared before a worker is created.
extern std::atomic<bool> worker_ended;

// The thread function: runs cycles until it is stopped at a stop point. Its creator must block SIGUSR1.
void* do_work(void*);

// One cycle: reads the configuration into `values` (unchanged if the file cannot be read), runs a pass unless it must
// skip it, and clears the OID cache. The worker then sleeps for `values.interval` seconds.
void run_worker_cycle(ConfigValues& values) OXR_EXCLUDES(config_file_mutex, lock_file_mutex);

// On the worker, at a stop point: logs its end and ends it. On any other thread the signal is not ours and is passed to
// the action that the host had installed.
void sigusr1_handler(int signal);

void create_lock_file() OXR_REQUIRES(lock_file_mutex);
void remove_lock_file();
