#include "soak/driver.h"

#include <variant>

#include "OstrelProvider/service.h"
#include "OstrelProvider/worker.h"
#include "OstrelProviderSetting/setting_methods.h"
#include "cimserver/broker/objects.h"

namespace soak {

using simhost::Event;

Driver::Driver(Site& site, Dice& dice, Watch& watch) : host_(site.host()), dice_(dice), watch_(watch) {
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
    for (double more = 15; cycles_ == cycles && running() && !watch_.broken(); more *= 2) {
        run_until(from + more);
    }
}

// Until the worker sleeps beyond the horizon.
void Driver::wait() {
    constexpr double patience = 120;
    if (!host_.wait_for_horizon(patience)) {
        watch_.report("the worker doesn't come back to its sleep");
    }
}

// With the worker away: it would take the clock on while the renewal works between two waits.
std::uint32_t Driver::renew(const RenewalCall& call) {
    stop();
    host_.set_horizon(1e12);
    const cimserver::Request request;
    cimserver::NamedList arguments{{"targets", cimserver::text_list(call.targets)}};
    for (const char* const name : {"paramname", "paramvalue"}) {
        arguments.push_back({name, cimserver::null_value(CMPI_string)});
    }
    if (call.digests) {
        arguments[1].value = cimserver::text_value("iscsidigest");
        arguments[2].value = cimserver::text_value(call.enable ? "enable" : "disable");
    }
    auto* const in = cimserver::make_object<cimserver::ArgsObject>(arguments);
    auto* const out = cimserver::make_object<cimserver::ArgsObject>(cimserver::NamedList{});
    (void)OstrelHandleRenewIscsiConnections(nullptr, in, out);
    const cimserver::Value* const status = cimserver::find(out->args, "oxd_status");
    watch_.look();
    host_.set_horizon(host_.now());
    return status == nullptr ? UINT32_MAX : static_cast<std::uint32_t>(std::get<std::uint64_t>(status->data));
}

void Driver::set_value(const std::string& name, std::uint32_t value) {
    const cimserver::Request request;
    auto* const in = cimserver::make_object<cimserver::ArgsObject>(
        cimserver::NamedList{{"name", cimserver::text_value(name)}, {"value", cimserver::uint32_value(value)}});
    (void)::set_value("SetValue", nullptr, in);
}

}  // namespace soak
