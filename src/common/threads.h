// The library's own threads. A thread is created and published in one step, belongs to this process only, and is never
// created after end_threads().
#pragma once

#include <pthread.h>

#include <atomic>

namespace oxr {

// Creates a thread and stores its handle in `shown`. Returns the result of pthread_create, or ECANCELED after
// end_threads(). Any thread.
int create_thread(std::atomic<pthread_t>& shown, void* (*body)(void*), void* argument);

// Whether threads were created by the process that this one was forked from, and none by this one.
bool is_a_forked_child();

// The thread in `shown`, or 0. Waits for a creation in progress, so that no running thread is missed. Also 0 in a
// forked child of the process that created it: a fork copies the handle, not the thread.
pthread_t running_thread(const std::atomic<pthread_t>& shown);

// No thread is created any more.
void end_threads();

}  // namespace oxr
