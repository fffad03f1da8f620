// Stop points and waits. SIGUSR1 stops the worker thread. The worker always blocks the signal and accepts it only at
// stop points, where it holds no shared mutex; destructors release heap records, descriptors and IMA lists. A pass has
// a stop point before every call that adds or removes a session or target, rescans, or deletes dead paths. On any other
// thread a stop point does nothing and a wait only waits.
#pragma once

#include <pthread.h>

namespace oxr {

// Makes the calling thread stop at stop points. The thread must block SIGUSR1. A stop point calls `on_stop`, as an
// ordinary function, with the signal's number; it must not return.
void enable_stop_points(void (*on_stop)(int signal));

// Asks a thread with stop points to stop and sends it SIGUSR1. Returns the result of pthread_kill; if it fails, the
// request is withdrawn. One request at a time.
int request_stop(pthread_t thread);

// Clears a completed request. Call it before you create another thread with stop points.
void clear_stop_request();

// Stops the thread if a stop is requested; does not wait. Returns true if a stop is requested but held off: the caller
// should then end its work as soon as it can.
bool stop_point();

// Holds stops off on its thread during its lifetime, for a series of steps of which the last restores what the first
// removes. Cannot be nested.
class StopHold {
public:
    StopHold();
    ~StopHold();
    StopHold(const StopHold&) = delete;
    StopHold& operator=(const StopHold&) = delete;
};

// Waits; on the worker the whole wait is a stop point. If a stop is requested but held off, the wait ends immediately.
// Returns immediately for 0 or less.
void wait_seconds(long seconds);
void wait_milliseconds(long milliseconds);

}  // namespace oxr
