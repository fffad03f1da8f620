// The functions that stand behind the interposed ones: the next definition after ours in the search order.
// Looked up at first use, so that calls that come before any constructor of this library are served too.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

#include <cstdio>

// For what may run before a thread sanitizer is up: its own start calls interposed functions.
#define SIMHOST_EARLY __attribute__((no_sanitize("thread")))

namespace simhost::real {

void* next(const char* name);

template <typename Function>
class Next {
public:
    explicit constexpr Next(const char* name) : name_(name) {}
    template <typename... Arguments>
    SIMHOST_EARLY auto operator()(Arguments... arguments) const {
        void* found = __atomic_load_n(&found_, __ATOMIC_RELAXED);
        if (found == nullptr) {
            found = next(name_);
            __atomic_store_n(&found_, found, __ATOMIC_RELAXED);
        }
        return reinterpret_cast<Function*>(found)(arguments...);
    }

private:
    const char* name_;
    mutable void* found_ = nullptr;
};

inline constinit Next<int(const char*, int, ...)> open{"open"};
inline constinit Next<int(int, const char*, int, ...)> openat{"openat"};
inline constinit Next<FILE*(const char*, const char*)> fopen{"fopen"};
inline constinit Next<int(FILE*)> fclose{"fclose"};
inline constinit Next<DIR*(const char*)> opendir{"opendir"};
inline constinit Next<int(DIR*)> closedir{"closedir"};
inline constinit Next<ssize_t(int, void*, size_t)> read{"read"};
inline constinit Next<ssize_t(int, const void*, size_t)> write{"write"};
inline constinit Next<ssize_t(int, void*, size_t, off_t)> pread{"pread"};
inline constinit Next<ssize_t(int, const void*, size_t, off_t)> pwrite{"pwrite"};
inline constinit Next<int(int, const char*, va_list)> vdprintf{"vdprintf"};
inline constinit Next<int(int)> close{"close"};
inline constinit Next<int(int, unsigned long, ...)> ioctl{"ioctl"};
inline constinit Next<int(int, off_t)> ftruncate{"ftruncate"};
inline constinit Next<int(const char*, off_t)> truncate{"truncate"};
inline constinit Next<int(int, struct stat*)> fstat{"fstat"};
inline constinit Next<int(int, int, struct stat*)> fxstat{"__fxstat"};
inline constinit Next<int(int, const char*, struct stat*, int)> fstatat{"fstatat"};
inline constinit Next<int(int, const char*, int, unsigned, struct statx*)> statx{"statx"};
inline constinit Next<int(int, const char*, int, int)> faccessat{"faccessat"};
inline constinit Next<int(int, const char*, mode_t)> mkdirat{"mkdirat"};
inline constinit Next<int(int, const char*, int)> unlinkat{"unlinkat"};
inline constinit Next<int(const char*)> remove{"remove"};
inline constinit Next<int(int, const char*, int, const char*)> renameat{"renameat"};

inline constinit Next<int(const sigset_t*, siginfo_t*, const timespec*)> sigtimedwait{"sigtimedwait"};
inline constinit Next<int(const timespec*, timespec*)> nanosleep{"nanosleep"};
inline constinit Next<int(clockid_t, int, const timespec*, timespec*)> clock_nanosleep{"clock_nanosleep"};
inline constinit Next<int(unsigned)> usleep{"usleep"};
inline constinit Next<unsigned(unsigned)> sleep{"sleep"};
inline constinit Next<time_t(time_t*)> time{"time"};

inline constinit Next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)> pthread_create{"pthread_create"};
inline constinit Next<int(pthread_t, void**)> pthread_join{"pthread_join"};
inline constinit Next<int(pthread_t, int)> pthread_kill{"pthread_kill"};
inline constinit Next<int(pthread_mutex_t*, const pthread_mutexattr_t*)> pthread_mutex_init{"pthread_mutex_init"};
inline constinit Next<int(pthread_mutex_t*)> pthread_mutex_destroy{"pthread_mutex_destroy"};
inline constinit Next<int(int, const struct sigaction*, struct sigaction*)> sigaction{"sigaction"};

}  // namespace simhost::real

// Defines the C library's function `name` here. Its own declaration isn't used: that one carries noexcept,
// non-null and inline forms that a definition of ours would have to repeat.
#define SIMHOST_INTERPOSE(result, name, ...)                      \
    extern "C" result simhost_##name(__VA_ARGS__) __asm__(#name); \
    extern "C" SIMHOST_EARLY result simhost_##name(__VA_ARGS__)
