#include "common/threads.h"

#include <cxxabi.h>
#include <unistd.h>

#include <cerrno>

#include "common/mutex.h"

namespace oxr {

namespace {

Mutex creation_mutex;
std::atomic<bool> ended{false};

// Accessed without the lock: in a forked child, a thread of the parent may have locked it.
std::atomic<pid_t> creator{0};

// The first thread that throws may have to wait for the dynamic loader, which resolves the thread's exception storage.
// When it unloads the library, the loader waits for the worker. So this is resolved before the worker exists.
void settle_exceptions() {
    [[maybe_unused]] void* const volatile settled = abi::__cxa_get_globals();
}

}  // namespace

bool is_a_forked_child() {
    const pid_t process = creator.load();
    return process != 0 && process != getpid();
}

int create_thread(std::atomic<pthread_t>& shown, void* (*body)(void*), void* argument) {
    settle_exceptions();
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
    ended.store(true);
}

}  // namespace oxr
