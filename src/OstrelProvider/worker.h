// The one worker thread and the lock file that tells others a polling pass may be under way.
#pragma once

#include <atomic>

#include "OstrelProvider/config.h"
#include "common/mutex.h"

inline constexpr char OSTREL_LOCK_FILE[] = "/etc/ostrel/.lock";

// Serialises creating the lock file and testing for it.
extern oxr::Mutex lock_file_mutex;

// What the lock file tells others, for this process: set before the file is made, whether or not it can be, and
// cleared after it is removed. It ends with the worker's cycle also when the worker is stopped there, so that only
// a file that is really left holds anybody off then.
extern bool cycle_under_way OXR_GUARDED_BY(lock_file_mutex);

// Set when nothing is left of the worker but its thread; whoever creates one clears it before.
extern std::atomic<bool> worker_ended;

// The thread's body: cycle after cycle until it is stopped at a stop point. SIGUSR1 is blocked by its creator.
void* do_work(void*);

// One cycle: reads the configuration into `values` (which keeps what it held when the file can't be read), makes a
// pass unless it is held off, and forgets what was looked up. The worker sleeps `values.interval` after it.
void run_worker_cycle(ConfigValues& values) OXR_EXCLUDES(config_file_mutex, lock_file_mutex);

// Logs the worker's end and ends it, when the worker calls it at a stop point. In any other thread the signal
// is not ours and goes to the action that the host had installed.
void sigusr1_handler(int signal);

void create_lock_file() OXR_REQUIRES(lock_file_mutex);
void remove_lock_file();
