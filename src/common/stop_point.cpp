#include "common/stop_point.h"

#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

#include "common/mutex.h"

namespace oxr {

namespace {

thread_local void (*stop_handler)(int) = nullptr;
thread_local bool held_off = false;

// Held during a request, so that the thread cannot end between the request and its signal.
Mutex request_mutex;
std::atomic<bool> requested{false};

constexpr long long nanoseconds_per_second = 1000000000LL;
constexpr long long slice_nanoseconds = 100000000LL;

long long monotonic_nanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * nanoseconds_per_second + now.tv_nsec;
}

timespec to_timespec(long long nanoseconds) {
    timespec result{};
    result.tv_sec = static_cast<time_t>(nanoseconds / nanoseconds_per_second);
    result.tv_nsec = static_cast<long>(nanoseconds % nanoseconds_per_second);
    return result;
}

bool stop_is_requested() {
    if (!requested.load()) {
        return false;
    }
    const MutexLock lock(request_mutex);
    return requested.load();
}

void sleep_plainly(long long nanoseconds) {
    timespec rest = to_timespec(nanoseconds);
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}

// Waits without accepting signals and checks for a request from time to time.
void sleep_in_slices(long long nanoseconds) {
    while (nanoseconds > 0) {
        const long long slice = std::min(nanoseconds, slice_nanoseconds);
        sleep_plainly(slice);
        nanoseconds -= slice;
        if (stop_point()) {
            return;
        }
    }
}

// The worker's wait. A SIGUSR1 that no request sent was sent to the process, for a thread that also waits for it or
// will unblock it. The worker sends it to the process again and does not accept the signal for the rest of the wait.
void wait_for_stop(long long nanoseconds) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    const long long end = monotonic_nanoseconds() + nanoseconds;
    for (long long left = nanoseconds; left > 0; left = end - monotonic_nanoseconds()) {
        if (stop_point()) {
            return;
        }
        const timespec timeout = to_timespec(left);
        const int signal = sigtimedwait(&signals, nullptr, &timeout);
        if (signal < 0 && errno == EAGAIN) {
            break;
        }
        if (signal == SIGUSR1 && !stop_is_requested()) {
            (void)kill(getpid(), SIGUSR1);  // cannot fail for the own process
            sleep_in_slices(end - monotonic_nanoseconds());
            break;
        }
    }
    stop_point();
}

void wait_nanoseconds(long long nanoseconds) {
    if (stop_handler == nullptr) {
        sleep_plainly(nanoseconds);
    } else {
        wait_for_stop(nanoseconds);
    }
}

}  // namespace

void enable_stop_points(void (*on_stop)(int)) {
    stop_handler = on_stop;
}

int request_stop(pthread_t thread) {
    const MutexLock lock(request_mutex);
    requested.store(true);
    const int result = pthread_kill(thread, SIGUSR1);
    if (result != 0) {
        requested.store(false);
    }
    return result;
}

void clear_stop_request() {
    const MutexLock lock(request_mutex);
    requested.store(false);
}

bool stop_point() {
    if (stop_handler == nullptr || !stop_is_requested()) {
        return false;
    }
    if (!held_off) {
        stop_handler(SIGUSR1);
    }
    return true;
}

StopHold::StopHold() {
    held_off = true;
}

StopHold::~StopHold() {
    held_off = false;
}

void wait_seconds(long seconds) {
    if (seconds > 0) {
        wait_nanoseconds(seconds * nanoseconds_per_second);
    }
}

void wait_milliseconds(long milliseconds) {
    if (milliseconds > 0) {
        wait_nanoseconds(milliseconds * 1000000LL);
    }
}

}  // namespace oxr
