// Thread and mutex calls: counted, and made to fail. The host itself makes none of them while it counts. A thread
// sanitizer forgets a thread whose join was made to fail: under it that thread can't be joined any more.
#include <errno.h>

#include <functional>
#include <utility>

#include "simhost/inside.h"
#include "simhost/model.h"
#include "simhost/real.h"

namespace simhost {

namespace {

// 0, or the error that the call is to answer. Called only while there is a Host.
int counted(const char* operation, int otherwise) {
    const Inside inside;
    const auto impl = current_impl();
    if (impl == nullptr) {
        return 0;
    }
    const Entered entered(*impl);
    const auto fault = impl->hit(operation);
    return !fault ? 0 : fault->error != 0 ? fault->error : otherwise;
}

std::function<void()> thread_created;

}  // namespace

void after_thread_creation(std::function<void()> action) {
    thread_created = std::move(action);
}

// A thread sanitizer starts a thread of its own along with the first one of the program; let that be before
// anything is counted.
void settle_threads() {
#ifdef SIMHOST_THREAD_SANITIZER
    pthread_t thread{};
    if (::pthread_create(
            &thread, nullptr, [](void*) -> void* { return nullptr; }, nullptr) == 0) {
        ::pthread_join(thread, nullptr);
    }
#endif
}

SIMHOST_INTERPOSE(int, pthread_create, pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                  void* argument) {
    const int error = !host_exists() ? 0 : counted("pthread_create", EAGAIN);
    if (error != 0) {
        return error;
    }
    const int result = real::pthread_create(thread, attributes, start, argument);
    if (host_exists() && thread_created) {
        std::exchange(thread_created, nullptr)();
    }
    return result;
}
SIMHOST_INTERPOSE(int, pthread_join, pthread_t thread, void** result) {
    const int error = !host_exists() ? 0 : counted("pthread_join", EINVAL);
    const auto impl = current_impl();
    if (error != 0 || impl == nullptr) {
        return error != 0 ? error : real::pthread_join(thread, result);
    }
    ++impl->joins;
    const int joined = real::pthread_join(thread, result);
    --impl->joins;
    return joined;
}
SIMHOST_INTERPOSE(int, pthread_kill, pthread_t thread, int signal) {
    const int error = !host_exists() ? 0 : counted("pthread_kill", ESRCH);
    return error != 0 ? error : real::pthread_kill(thread, signal);
}
SIMHOST_INTERPOSE(int, pthread_mutex_init, pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    const int error = !host_exists() ? 0 : counted("pthread_mutex_init", EAGAIN);
    return error != 0 ? error : real::pthread_mutex_init(mutex, attributes);
}
SIMHOST_INTERPOSE(int, pthread_mutex_destroy, pthread_mutex_t* mutex) {
    const int error = !host_exists() ? 0 : counted("pthread_mutex_destroy", EBUSY);
    return error != 0 ? error : real::pthread_mutex_destroy(mutex);
}
SIMHOST_INTERPOSE(int, sigaction, int signal, const struct sigaction* action, struct sigaction* before) {
    const int error = !host_exists() ? 0 : counted("sigaction", EINVAL);
    if (error != 0) {
        errno = error;
        return -1;
    }
    return real::sigaction(signal, action, before);
}

}  // namespace simhost
