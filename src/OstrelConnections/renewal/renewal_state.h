// What the renewal of connections shares with the worker and the service: who runs.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "common/mutex.h"

// Held for one whole renewal request. Taken before config_file_mutex and lock_file_mutex, which are never held
// together.
extern oxr::Mutex conn_renew_mutex;

// 1 while a renewal request is served; the worker then skips its passes. Set with lock_file_mutex held.
extern std::atomic<std::int32_t> renew_connections_running;

// The renewal thread from its creation until it has been joined, else 0.
extern std::atomic<pthread_t> conn_renew_thread;

// How long the end of the service waits for a renewal, in seconds.
inline constexpr int max_renewal_waits = 60;

// How many renewal threads are at work, joined or not.
extern std::atomic<int> renewals_at_work;
