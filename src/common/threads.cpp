#include "common/threads.h"

#include <unistd.h>

#include <cerrno>

#include "common/mutex.h"

namespace oxr {

namespace {

Mutex creation_mutex;
bool ended OXR_GUARDED_BY(creation_mutex) = false;

// Set and read before the lock is taken: in a forked child it may be locked by a thread of the parent.
std::atomic<pid_t> creator{0};

bool is_a_forked_child() {
    const pid_t process = creator.load();
    return process != 0 && process != getpid();
}

}  // namespace

int create_thread(std::atomic<pthread_t>& shown, void* (*body)(void*), void* argument) {
    creator.store(getpid());
    const MutexLock lock(creation_mutex);
    if (ended) {
        return ECANCELED;
    }
    pthread_t thread{};
    const int result = pthread_create(&thread, nullptr, body, argument);
    if (result == 0) {
        shown.store(thread);
    }
    return result;
}

pthread_t running_thread(const std::atomic<pthread_t>& shown) {
    if (is_a_forked_child()) {
        return 0;
    }
    const MutexLock lock(creation_mutex);
    return shown.load();
}

void end_threads() {
    if (is_a_forked_child()) {
        return;
    }
    const MutexLock lock(creation_mutex);
    ended = true;
}

}  // namespace oxr
