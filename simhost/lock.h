// Mutexes that a thread sanitizer sees taken also inside its own wrappers of sleeping and joining calls, which is
// where the host's code for these calls runs: what happens in there it takes for the C library's and ignores.
#pragma once

#include <mutex>

#if defined(__SANITIZE_THREAD__)
#define SIMHOST_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define SIMHOST_THREAD_SANITIZER 1
#endif
#endif

#ifdef SIMHOST_THREAD_SANITIZER
extern "C" {
void __tsan_acquire(void* address);
void __tsan_release(void* address);
}
#endif

namespace simhost {

template <typename Mutex>
class Seen {
public:
    void lock() {
        mutex_.lock();
#ifdef SIMHOST_THREAD_SANITIZER
        __tsan_acquire(this);
#endif
    }
    void unlock() {
#ifdef SIMHOST_THREAD_SANITIZER
        __tsan_release(this);
#endif
        mutex_.unlock();
    }

private:
    Mutex mutex_;
};

using HostMutex = Seen<std::recursive_mutex>;

}  // namespace simhost
