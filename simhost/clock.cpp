// The simulated clock and what is due by it.
#include <chrono>
#include <cmath>

#include "simhost/model.h"

namespace simhost {

namespace {

std::int64_t steady_ns() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

double Host::Impl::factor() const {
    return options.clock == ClockMode::scaled ? options.factor : 1;
}

double Host::Impl::now() const {
    if (options.clock == ClockMode::instant) {
        return instant_now;
    }
    const double due = due_now;
    return due >= 0 ? due : static_cast<double>(steady_ns() - real_start_ns) * 1e-9 * factor();
}

void Host::Impl::schedule(double moment, Timer timer) {
    timers.emplace(moment, std::move(timer));
}

// Runs what is due, each at its own moment and in order.
void Host::Impl::run_due() {
    if (running_timers || timers.empty()) {
        return;
    }
    double end = now();
    if (timers.begin()->first > end) {
        return;
    }
    struct Running {
        Host::Impl& of;
        explicit Running(Host::Impl& impl) : of(impl) { of.running_timers = true; }
        ~Running() {
            of.running_timers = false;
            of.due_now = -1;
        }
    } running(*this);
    while (!timers.empty() && timers.begin()->first <= end) {
        auto next = timers.extract(timers.begin());
        if (options.clock == ClockMode::instant) {
            run(std::move(next.mapped()));
            tell();
            end = instant_now;
        } else {
            due_now = std::max(0.0, next.key());
            run(std::move(next.mapped()));
            tell();
        }
    }
}

// Instant clock: moves on to `moment`, running on the way what falls due, at its own moment.
void Host::Impl::advance_to(double moment) {
    if (running_timers) {
        return;
    }
    run_due();
    while (!timers.empty() && timers.begin()->first <= moment) {
        instant_now = std::max<double>(instant_now, timers.begin()->first);
        run_due();
    }
    instant_now = std::max<double>(instant_now, moment);
}

void Host::Impl::run(Timer timer) {
    switch (timer.kind) {
        case Timer::Kind::action: {
            emit({Event::Kind::action, now(), {}, {}, timer.name});
            const Callback callback(*this);
            timer.action(owner);
            return;
        }
        case Timer::Kind::relogin: {
            const auto port = ports_by_id.find(timer.id);
            if (port != ports_by_id.end() && port->second->relogin_step == timer.step) {
                relogin(*port->second);
            }
            return;
        }
        case Timer::Kind::nic_login:
            for (const auto& on : adapters) {
                for (const auto& nic : on->nics) {
                    if (nic->oid == timer.id) {
                        nic_login(*on, *nic);
                    }
                }
            }
            return;
        case Timer::Kind::login_half:
        case Timer::Kind::login:
        case Timer::Kind::claim:
            break;
    }
    const auto found = sessions.find(timer.id);
    if (found == sessions.end() || found->second->step != timer.step) {
        return;
    }
    Session& of = *found->second;
    if (timer.kind == Timer::Kind::claim) {
        claim(of);
    } else if (timer.kind == Timer::Kind::login) {
        log_in(of, false);
    } else {
        set_state(of, IN_LOGIN);
        emit(Event::Kind::session_state, of.port, isid_text(of.isid) + " IN_LOGIN");
    }
}

}  // namespace simhost
