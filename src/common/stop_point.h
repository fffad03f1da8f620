// Stop points and waits. The worker thread is stopped by SIGUSR1, which it keeps blocked for its whole life
// and takes only here, where it holds no shared mutex: a stop can come anywhere in a pass and leaves nothing
// locked; heap records, descriptors and IMA lists are given back by their owners' destructors. A pass has one ahead of
// every call that adds or removes a session or target, rescans or deletes. On any other thread a stop point does
// nothing and a wait only waits.
#pragma once

#include <pthread.h>

namespace oxr {

// Makes the calling thread one that stops at stop points. SIGUSR1 must be blocked in it. `on_stop` is called
// there, as an ordinary function, with the signal's number; it does not return.
void enable_stop_points(void (*on_stop)(int signal));

// Asks a thread with stop points to stop and sends it SIGUSR1. Result of pthread_kill; when it fails the
// request is withdrawn. One request at a time.
int request_stop(pthread_t thread);

// Withdraws a request that was carried out, before another thread with stop points is created.
void clear_stop_request();

// A look whether a stop is asked for, without waiting. True: it is, but it is held off, and the caller ends what it
// does as soon as it may.
bool stop_point();

// Holds stops off on its thread while it lives, for steps of which the first takes away what the last gives back. Not
// nested.
class StopHold {
public:
    StopHold();
    ~StopHold();
    StopHold(const StopHold&) = delete;
    StopHold& operator=(const StopHold&) = delete;
};

// Waits in one piece; on the worker the whole wait is a stop point, and ends at once when a stop is asked for but held
// off. 0 or less: returns at once.
void wait_seconds(long seconds);
void wait_milliseconds(long milliseconds);

}  // namespace oxr
