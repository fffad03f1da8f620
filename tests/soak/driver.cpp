#include "soak/driver.h"

#include "OstrelProvider/worker.h"
#include "support/cim.h"

namespace soak {

using simhost::Event;

// The library is loaded as by a CIM server's factory call.
Driver::Driver(RandomSite& site, Watch& watch) : host_(site.host()), dice_(site.dice), watch_(watch) {
    (void)testing_support::providers(host_);
    host_.remove_file(OSTREL_LOCK_FILE);
    host_.observe([this](const Event& event) { note(event); });
    host_.set_horizon(host_.now());
}

void Driver::start() {
    if (!running()) {
        host_.set_horizon(host_.now());
        if (StartService() == 0) {
            wait();
        }
    }
}

void Driver::stop() {
    stop_at_change_ = 0;
    if (StopService() != 0) {
        watch_.report("the service can't be stopped");
    }
    wakes_at_ = -1;
}

bool Driver::running() const {
    return oxr_thread.load() != 0;
}

void Driver::run_until(double seconds) {
    host_.set_horizon(seconds);
    if (!running()) {
        host_.advance(seconds - host_.now());
        return;
    }
    host_.count_allocations(true);
    wait();
    host_.count_allocations(false);
}

void Driver::finish_cycle() {
    if (wakes_at_ < 0) {
        run_on(host_.now());
    }
}

void Driver::run_cycle() {
    run_on(wakes_at_ >= 0 ? wakes_at_ : host_.now());
}

void Driver::stop_in_pass() {
    if (wakes_at_ >= 0 && dice_.one_in(2)) {
        stop_at_change_ = dice_.any(1, 20);
        run_until(wakes_at_ + 60);
    } else if (wakes_at_ >= 0) {
        run_until(wakes_at_ + dice_.seconds(6));
    }
    stop();
}

// Runs on the worker, or on who makes the host change.
void Driver::note(const Event& event) {
    if (event.kind == Event::Kind::sleep_begun) {
        // Told of long sleeps only, and only the worker has those.
        wakes_at_ = event.time + std::stod(event.text);
        ++cycles_;
        watch_.after_cycle();
    } else if (event.kind == Event::Kind::pass_begun) {
        wakes_at_ = -1;
    } else if (stop_at_change_ > 0 && event.kind != Event::Kind::action && --stop_at_change_ == 0) {
        host_.set_horizon(event.time);  // the pass comes no further than its next wait
    }
}

// To the end of the cycle that is under way at that moment. The time it takes is its own.
void Driver::run_on(double from) {
    const std::uint64_t cycles = cycles_;
    for (double more = 15; cycles_ == cycles && running() && watch_.broken().empty(); more *= 2) {
        run_until(from + more);
    }
}

// Until the worker sleeps beyond the horizon.
void Driver::wait() {
    if (!host_.wait_for_horizon(120)) {
        watch_.report("the worker doesn't come back to its sleep");
    }
}

// With the worker away: it would take the clock on while the renewal works between two waits.
std::string Driver::renew(const std::vector<std::string>& targets, const std::string& name, const std::string& value) {
    stop();
    host_.set_horizon(1e12);
    const std::string status = testing_support::renew(testing_support::providers(host_), targets, name, value);
    watch_.look();
    host_.set_horizon(host_.now());
    return status;
}

void Driver::set_value(const std::string& name, std::uint32_t value) {
    (void)testing_support::set_value(testing_support::providers(host_), name, value);
}

}  // namespace soak
