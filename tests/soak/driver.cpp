#include "soak/driver.h"

#include <variant>

#include "OstrelProvider/config.h"
#include "OstrelProvider/service.h"
#include "OstrelProvider/worker.h"
#include "OstrelProviderSetting/setting_methods.h"
#include "cimserver/broker/objects.h"

namespace soak {

using simhost::Event;

namespace {

// Blocks of the library are counted while one lives.
class Counted {
public:
    explicit Counted(simhost::Host& host) : host_(host) { host_.count_allocations(true); }
    ~Counted() { host_.count_allocations(false); }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

private:
    simhost::Host& host_;
};

// The worker's cycles, one after the other on the calling thread.
class DirectDriver final : public Driver {
public:
    DirectDriver(Site& site, Dice& dice, Watch& watch) : Driver(site, dice, watch) { host_.set_horizon(1e12); }

    void start() override {
        if (!running_) {
            values_ = {};
            const oxr::MutexLock lock(config_file_mutex);
            OSTREL_CreateConfigFile();
            next_cycle_ = host_.now();
            running_ = true;
        }
    }
    void stop() override { running_ = false; }
    bool running() const override { return running_; }

    void run_until(double seconds) override {
        while (running_ && next_cycle_ <= seconds && !watch_.broken()) {
            run_cycles(1);
        }
        pass_time_until(seconds);
    }
    void run_cycles(int count) override {
        for (; count > 0 && !watch_.broken(); --count) {
            pass_time_until(next_cycle_);
            {
                const Counted counted(host_);
                run_worker_cycle(values_);
            }
            watch_.after_cycle();
            next_cycle_ = host_.now() + values_.interval;
        }
    }
    void stop_in_pass() override { stop(); }
    std::uint32_t renew(const RenewalCall& call) override { return call_renewal(call); }

private:
    ConfigValues values_;
    bool running_ = false;
    double next_cycle_ = 0;

    void pass_time_until(double seconds) {
        if (seconds > host_.now()) {
            host_.advance(seconds - host_.now());
        }
    }
};

// The service with its worker thread. The clock goes as far as the horizon; beyond it the worker sleeps, and
// nothing runs but the caller.
class WorkerDriver final : public Driver {
public:
    WorkerDriver(Site& site, Dice& dice, Watch& watch) : Driver(site, dice, watch) {
        host_.observe([this](const Event& event) { note(event); });
        host_.set_horizon(host_.now());
    }
    ~WorkerDriver() override { stop(); }

    void start() override {
        if (oxr_thread.load() == 0) {
            host_.set_horizon(host_.now());
            if (StartService() == 0) {
                wait();
            }
        }
    }
    void stop() override {
        stop_at_change_ = 0;
        if (StopService() != 0) {
            watch_.report("the service can't be stopped");
        }
        wakes_at_ = -1;
    }
    bool running() const override { return oxr_thread.load() != 0; }

    void run_until(double seconds) override {
        if (!running()) {
            host_.set_horizon(seconds);
            host_.advance(seconds - host_.now());
            return;
        }
        const Counted counted(host_);
        host_.set_horizon(seconds);
        wait();
    }
    void run_cycles(int count) override {
        for (; count > 0; --count) {
            run_on(wakes_at_ >= 0 ? wakes_at_ : host_.now());
        }
    }
    void finish_cycle() override {
        if (wakes_at_ < 0) {
            run_on(host_.now());
        }
    }
    void stop_in_pass() override {
        if (wakes_at_ >= 0 && dice_.one_in(2)) {
            stop_at_change_ = dice_.any(1, 20);
            run_until(wakes_at_ + 60);
        } else if (wakes_at_ >= 0) {
            run_until(wakes_at_ + dice_.seconds(6));
        }
        stop();
    }
    // With the worker away: it would take the clock on while the renewal works between two waits.
    std::uint32_t renew(const RenewalCall& call) override {
        stop();
        host_.set_horizon(1e12);
        const std::uint32_t status = call_renewal(call);
        host_.set_horizon(host_.now());
        return status;
    }

private:
    double wakes_at_ = -1;      // the worker's sleep between two cycles ends; -1: it isn't in one
    std::uint64_t cycles_ = 0;  // finished
    int stop_at_change_ = 0;    // of the host's sessions or paths, so many from now; 0: at none

    // Runs on the worker, or on who makes the host change.
    void note(const Event& event) {
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
    void run_on(double from) {
        const std::uint64_t cycles = cycles_;
        for (double more = 15; cycles_ == cycles && running() && !watch_.broken(); more *= 2) {
            run_until(from + more);
        }
    }
    // Until the worker sleeps beyond the horizon.
    void wait() {
        constexpr double looks = 0.005;
        constexpr int patience = 120 * 200;
        for (int look = 0; !host_.wait_for_horizon(looks); ++look) {
            if (look == patience) {
                return watch_.report("the worker doesn't come back to its sleep");
            }
        }
    }
};

using cimserver::NamedList;

cimserver::Value text_or_null(const char* text) {
    return text == nullptr ? cimserver::null_value(CMPI_string) : cimserver::text_value(text);
}

}  // namespace

std::uint32_t Driver::call_renewal(const RenewalCall& call) {
    const cimserver::Request request;
    const char* const enable = call.enable ? "enable" : "disable";
    auto* const in = cimserver::make_object<cimserver::ArgsObject>(
        NamedList{{"targets", cimserver::text_list(call.targets)},
                  {"paramname", text_or_null(call.digests ? "iscsidigest" : nullptr)},
                  {"paramvalue", text_or_null(call.digests ? enable : nullptr)}});
    auto* const out = cimserver::make_object<cimserver::ArgsObject>(NamedList{});
    (void)OstrelHandleRenewIscsiConnections(nullptr, in, out);
    const cimserver::Value* const status = cimserver::find(out->args, "oxd_status");
    watch_.look();
    return status == nullptr ? UINT32_MAX : static_cast<std::uint32_t>(std::get<std::uint64_t>(status->data));
}

void Driver::set_value(const std::string& name, std::uint32_t value) {
    const cimserver::Request request;
    auto* const in = cimserver::make_object<cimserver::ArgsObject>(
        NamedList{{"name", cimserver::text_value(name)}, {"value", cimserver::uint32_value(value)}});
    (void)::set_value("SetValue", nullptr, in);
}

std::unique_ptr<Driver> make_direct_driver(Site& site, Dice& dice, Watch& watch) {
    return std::make_unique<DirectDriver>(site, dice, watch);
}

std::unique_ptr<Driver> make_worker_driver(Site& site, Dice& dice, Watch& watch) {
    return std::make_unique<WorkerDriver>(site, dice, watch);
}

}  // namespace soak
