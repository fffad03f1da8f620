// State that the renewal shares with the worker and the service.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "common/mutex.h"

// Held during a whole renewal request. Taken before config_file_mutex and lock_file_mutex, which are never held
// together.
extern oxr::Mutex conn_renew_mutex;

// 1 during a renewal request: the worker skips its passes. Set with lock_file_mutex held.
extern std::atomic<std::int32_t> renew_connections_running;

// The renewal thread from its creation until it is joined, else 0.
extern std::atomic<pthread_t> conn_renew_thread;

// How many seconds the end of the service waits for a renewal.
inline constexpr int max_renewal_waits = 60;

// The number of running renewal threads, including those that could not be joined.
extern std::atomic<int> renewals_at_work;
