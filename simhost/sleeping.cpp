// The C library's waits and its time of day, by the simulated clock.
#include <errno.h>
#include <sched.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "simhost/inside.h"
#include "simhost/model.h"
#include "simhost/real.h"

namespace simhost {

namespace {

constexpr std::int64_t HORIZON_SLICE_NS = 1'000'000;  // between looks whether the horizon was raised
constexpr std::int64_t LONGEST_SLICE_NS = 50'000'000;

timespec span(std::int64_t ns) {
    return {ns / 1'000'000'000, ns % 1'000'000'000};
}

double seconds_of(const timespec& span) {
    return static_cast<double>(span.tv_sec) + static_cast<double>(span.tv_nsec) * 1e-9;
}

timespec span_of(double seconds) {
    const double whole = std::floor(std::max(0.0, seconds));
    return {static_cast<time_t>(whole), static_cast<long>((std::max(0.0, seconds) - whole) * 1e9)};
}

// Takes a pending signal of the set without waiting: its number, or 0.
int pending_signal(const sigset_t* set, siginfo_t* info, std::int64_t ns = 0) {
    const timespec wait = span(ns);
    const int number = real::sigtimedwait(set, info, &wait);
    return number > 0 ? number : 0;
}

enum class End { elapsed, signal, interrupted };

struct Waited {
    End end = End::elapsed;
    int signal = 0;
    double left = 0;
};

// Waits outside the lock for a slice of real time.
bool slice(Host::Impl& impl, std::unique_lock<HostMutex>& lock, std::int64_t ns, const sigset_t* set, siginfo_t* info,
           Waited& waited) {
    impl.tell();
    lock.unlock();
    if (set != nullptr) {
        waited.signal = pending_signal(set, info, ns);
        waited.end = waited.signal > 0 ? End::signal : End::elapsed;
    } else {
        const timespec wait = span(ns);
        waited.end = real::nanosleep(&wait, nullptr) == 0 ? End::elapsed : End::interrupted;
    }
    lock.lock();
    return waited.end == End::elapsed;
}

class RegisteredSleeper {
public:
    RegisteredSleeper(Host::Impl& impl, double until) : impl_(impl) {
        sleeper.until = until;
        impl_.sleepers.push_back(&sleeper);
    }
    ~RegisteredSleeper() { erase_item(impl_.sleepers, &sleeper); }
    RegisteredSleeper(const RegisteredSleeper&) = delete;
    RegisteredSleeper& operator=(const RegisteredSleeper&) = delete;

    Host::Impl::Sleeper sleeper;

private:
    Host::Impl& impl_;
};

void wait_instant(Host::Impl& impl, std::unique_lock<HostMutex>& lock, double until, const sigset_t* set,
                  siginfo_t* info, Waited& waited) {
    RegisteredSleeper me(impl, until);
    while (!impl.gone && impl.now() < until) {
        // Another sleeper that is due before goes first.
        const bool to_its_end = set == nullptr && impl.joins > 0;
        double limit = to_its_end ? until : std::min(until, impl.horizon);
        bool behind_another = false;
        for (const Host::Impl::Sleeper* other : impl.sleepers) {
            if (other != &me.sleeper && other->until < limit) {
                limit = other->until;
                behind_another = true;
            }
        }
        if (limit > impl.now()) {
            impl.advance_to(limit);
            continue;
        }
        if (!behind_another) {
            me.sleeper.blocked_at = impl.horizon_generation;
        }
        if (!slice(impl, lock, HORIZON_SLICE_NS, set, info, waited)) {
            return;
        }
    }
}

void wait_scaled(Host::Impl& impl, std::unique_lock<HostMutex>& lock, double until, const sigset_t* set,
                 siginfo_t* info, Waited& waited) {
    while (!impl.gone) {
        impl.run_due();
        const double next = impl.timers.empty() ? until : std::min(until, impl.timers.begin()->first);
        const double left = (next - impl.now()) / impl.factor();
        if (next >= until && left <= 1e-9) {
            return;
        }
        const double ns = std::clamp(std::ceil(left * 1e9), 1000.0, static_cast<double>(LONGEST_SLICE_NS));
        if (!slice(impl, lock, static_cast<std::int64_t>(ns), set, info, waited)) {
            return;
        }
    }
}

// `set`: the wait is for its signals; null: it is a mere sleep, which a handled signal interrupts.
Waited wait_on(Host::Impl& impl, double seconds, const sigset_t* set, siginfo_t* info) {
    Waited waited;
    std::unique_lock lock(impl.mutex);
    if (impl.callbacks > 0 || impl.running_timers) {
        return waited;  // an observer, a script or an action sleeps: others wait for the lock that it holds
    }
    impl.started = true;
    impl.run_due();
    const double begun = impl.now();
    ++impl.sleeps;
    if (seconds >= 10) {
        impl.emit({Event::Kind::sleep_begun, begun, {}, {}, text_of(seconds)});
        impl.tell();
    }
    if (impl.options.clock == ClockMode::instant) {
        wait_instant(impl, lock, begun + seconds, set, info, waited);
    } else {
        wait_scaled(impl, lock, begun + seconds, set, info, waited);
    }
    const double passed = waited.end == End::elapsed ? seconds : std::min(seconds, impl.now() - begun);
    impl.slept += passed;
    waited.left = seconds - passed;
    impl.tell();
    lock.unlock();
    if (impl.options.clock == ClockMode::instant) {
        sched_yield();  // a thread that does nothing but sleep leaves the others their turn
    }
    return waited;
}

bool valid(const timespec* span) {
    return span->tv_sec >= 0 && span->tv_nsec >= 0 && span->tv_nsec < 1'000'000'000;
}

int sleep_on(Host::Impl& impl, const timespec* wait, timespec* left) {
    if (seconds_of(*wait) <= 0) {
        return 0;
    }
    const Waited waited = wait_on(impl, seconds_of(*wait), nullptr, nullptr);
    if (waited.end == End::elapsed) {
        return 0;
    }
    if (left != nullptr) {
        *left = span_of(waited.left);
    }
    return EINTR;
}

}  // namespace

SIMHOST_INTERPOSE(int, sigtimedwait, const sigset_t* set, siginfo_t* info, const timespec* timeout) {
    if (!host_exists() || timeout == nullptr || !valid(timeout)) {
        return real::sigtimedwait(set, info, timeout);
    }
    const Inside inside;
    const auto impl = current_impl();
    const double seconds = seconds_of(*timeout);
    int number = pending_signal(set, info);
    if (number == 0 && seconds > 0 && impl != nullptr) {
        number = wait_on(*impl, seconds, set, info).signal;
    }
    if (number > 0) {
        return number;
    }
    errno = EAGAIN;
    return -1;
}

SIMHOST_INTERPOSE(int, nanosleep, const timespec* wait, timespec* left) {
    if (!host_exists() || wait == nullptr || !valid(wait)) {
        return real::nanosleep(wait, left);
    }
    const Inside inside;
    const auto impl = current_impl();
    const int result = impl == nullptr ? 0 : sleep_on(*impl, wait, left);
    if (result != 0) {
        errno = result;
        return -1;
    }
    return 0;
}

SIMHOST_INTERPOSE(int, clock_nanosleep, clockid_t clock, int flags, const timespec* wait, timespec* left) {
    if (!host_exists() || flags != 0 || wait == nullptr || !valid(wait)) {
        return real::clock_nanosleep(clock, flags, wait, left);
    }
    const Inside inside;
    const auto impl = current_impl();
    return impl == nullptr ? 0 : sleep_on(*impl, wait, left);
}

SIMHOST_INTERPOSE(int, usleep, unsigned microseconds) {
    if (!host_exists()) {
        return real::usleep(microseconds);
    }
    const timespec wait = span(static_cast<std::int64_t>(microseconds) * 1000);
    return simhost_nanosleep(&wait, nullptr);
}

SIMHOST_INTERPOSE(unsigned, sleep, unsigned seconds) {
    if (!host_exists()) {
        return real::sleep(seconds);
    }
    const timespec wait{static_cast<time_t>(seconds), 0};
    timespec left{};
    return simhost_nanosleep(&wait, &left) == 0 ? 0 : static_cast<unsigned>(std::ceil(seconds_of(left)));
}

SIMHOST_INTERPOSE(time_t, time, time_t* out) {
    if (!host_exists()) {
        return real::time(out);
    }
    const Inside inside;
    const auto impl = current_impl();
    if (impl == nullptr) {
        return real::time(out);
    }
    const time_t moment = impl->options.start_time + static_cast<time_t>(std::floor(impl->now()));
    if (out != nullptr) {
        *out = moment;
    }
    return moment;
}

// --- the Host's own members on time ------------------------------------------------------------------------

double Host::now() const {
    return impl_->now();
}

void Host::advance(double seconds) {
    const Entered entered(*impl_);
    impl_->started = true;
    if (impl_->options.clock == ClockMode::instant) {
        impl_->advance_to(impl_->now() + seconds);
    } else {
        impl_->real_start_ns -= static_cast<std::int64_t>(seconds / impl_->factor() * 1e9);
        impl_->run_due();
    }
}

void Host::at(double seconds, const std::string& name, std::function<void(Host&)> action) {
    const Entered entered(*impl_);
    Timer timer;
    timer.name = name;
    timer.action = std::move(action);
    impl_->schedule(std::max(seconds, impl_->now()), std::move(timer));
}

double Host::slept() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->slept;
}

std::uint64_t Host::sleeps() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->sleeps;
}

void Host::set_horizon(double seconds) {
    const std::lock_guard lock(impl_->mutex);
    impl_->horizon = seconds;
    ++impl_->horizon_generation;
}

bool Host::wait_for_horizon(double real_seconds) {
    const Inside inside;
    for (double waited = 0;;) {
        {
            const std::lock_guard lock(impl_->mutex);
            for (const Impl::Sleeper* each : impl_->sleepers) {
                if (impl_->now() >= impl_->horizon && each->blocked_at == impl_->horizon_generation &&
                    each->until > impl_->horizon) {
                    return true;
                }
            }
        }
        if (waited >= real_seconds) {
            return false;
        }
        const timespec wait = span(500'000);
        real::nanosleep(&wait, nullptr);
        waited += 0.0005;
    }
}

}  // namespace simhost
