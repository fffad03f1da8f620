// The library's own threads: each is created and shown to the others in one step, by this process only, and none once
// the library ends.
#pragma once

#include <pthread.h>

#include <atomic>

namespace oxr {

// Creates a thread and stores its handle in `shown`. Result of pthread_create; ECANCELED after end_threads(). Any
// thread.
int create_thread(std::atomic<pthread_t>& shown, void* (*body)(void*), void* argument);

// Whether threads were created by the process that this one was forked from, and none by this one.
bool is_a_forked_child();

// The thread that `shown` names, 0: none. Waits for a creation under way, so that no running thread is missed. 0 too in
// a child of the process that created it: a fork copies the handle, not the thread.
pthread_t running_thread(const std::atomic<pthread_t>& shown);

// From now on no thread is created.
void end_threads();

}  // namespace oxr
