// The one worker thread and the lock file that tells others a polling pass may be under way.
#pragma once

#include "common/mutex.h"

inline constexpr char OSTREL_LOCK_FILE[] = "/etc/ostrel/.lock";

// Serialises creating the lock file and testing for it.
extern oxr::Mutex lock_file_mutex;

// The thread's body: cycle after cycle until it is stopped at a stop point. SIGUSR1 is blocked by its creator.
void* do_work(void*);

// Logs the worker's end and ends it, when the worker calls it at a stop point. In any other thread the signal
// is not ours and goes to the action that the host had installed.
void sigusr1_handler(int signal);

void create_lock_file() OXR_REQUIRES(lock_file_mutex);
void remove_lock_file();
