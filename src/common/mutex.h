// Mutexes in static storage, with annotations for clang's thread-safety analysis.
#pragma once

#include <pthread.h>

#if defined(__clang__)
#define OXR_ANNOTATION(x) __attribute__((x))
#else
#define OXR_ANNOTATION(x)
#endif
#define OXR_CAPABILITY OXR_ANNOTATION(capability("mutex"))
#define OXR_SCOPED_CAPABILITY OXR_ANNOTATION(scoped_lockable)
#define OXR_ACQUIRE(...) OXR_ANNOTATION(acquire_capability(__VA_ARGS__))
#define OXR_TRY_ACQUIRE(...) OXR_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define OXR_RELEASE(...) OXR_ANNOTATION(release_capability(__VA_ARGS__))
#define OXR_REQUIRES(...) OXR_ANNOTATION(requires_capability(__VA_ARGS__))
#define OXR_EXCLUDES(...) OXR_ANNOTATION(locks_excluded(__VA_ARGS__))
#define OXR_GUARDED_BY(x) OXR_ANNOTATION(guarded_by(x))

namespace oxr {

// How many mutexes the calling thread holds or waits for. Needed if a signal handler of the host interrupts our code
// and ends the process.
extern constinit thread_local int mutexes_held;

class OXR_CAPABILITY Mutex {
public:
    constexpr Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() OXR_ACQUIRE() {
        ++mutexes_held;
        pthread_mutex_lock(&mutex_);
    }
    // True if it locked the mutex, false if another thread holds it.
    bool try_lock() OXR_TRY_ACQUIRE(true) {
        const bool locked = pthread_mutex_trylock(&mutex_) == 0;
        mutexes_held += locked ? 1 : 0;
        return locked;
    }
    void unlock() OXR_RELEASE() {
        pthread_mutex_unlock(&mutex_);
        --mutexes_held;
    }

    // Return pthread results. A mutex can also be locked before init() and after destroy(): it then has its static
    // initialiser. The last messages of a shutdown need that.
    int init() { return pthread_mutex_init(&mutex_, nullptr); }
    int destroy() {
        const int result = pthread_mutex_destroy(&mutex_);
        if (result == 0) {
            mutex_ = PTHREAD_MUTEX_INITIALIZER;
        }
        return result;
    }

private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

class OXR_SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutex) OXR_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~MutexLock() OXR_RELEASE() { mutex_.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    Mutex& mutex_;
};

}  // namespace oxr
