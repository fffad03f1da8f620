#include "common/stop_point.h"

#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace oxr {

namespace {

thread_local void (*stop_handler)(int) = nullptr;
thread_local void (*foreign_handler)(int, siginfo_t*) = nullptr;

long long monotonic_nanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

timespec to_timespec(long long nanoseconds) {
    timespec result{};
    result.tv_sec = static_cast<time_t>(nanoseconds / 1000000000LL);
    result.tv_nsec = static_cast<long>(nanoseconds % 1000000000LL);
    return result;
}

// Waits for the worker's signal. False when the time has passed without one.
bool wait_for_signal(long long nanoseconds) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    const timespec timeout = to_timespec(nanoseconds);
    siginfo_t info{};
    const int signal = sigtimedwait(&signals, &info, &timeout);
    if (signal < 0) {
        return errno != EAGAIN;
    }
    if (info.si_code == SI_TKILL && info.si_pid == getpid()) {
        stop_handler(signal);
    } else {
        foreign_handler(signal, &info);
    }
    return true;
}

void wait_nanoseconds(long long nanoseconds) {
    const long long end = monotonic_nanoseconds() + nanoseconds;
    long long left = nanoseconds;
    if (stop_handler == nullptr) {
        timespec rest = to_timespec(left);
        while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
        }
        return;
    }
    while (left > 0 && wait_for_signal(left)) {
        left = end - monotonic_nanoseconds();
    }
}

}  // namespace

void enable_stop_points(void (*on_stop)(int), void (*on_foreign)(int, siginfo_t*)) {
    stop_handler = on_stop;
    foreign_handler = on_foreign;
}

void stop_point() {
    if (stop_handler != nullptr) {
        while (wait_for_signal(0)) {
        }
    }
}

void wait_seconds(long seconds) {
    if (seconds > 0) {
        wait_nanoseconds(seconds * 1000000000LL);
    }
}

void wait_milliseconds(long milliseconds) {
    if (milliseconds > 0) {
        wait_nanoseconds(milliseconds * 1000000LL);
    }
}

}  // namespace oxr
