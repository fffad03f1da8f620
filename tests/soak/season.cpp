#include "soak/season.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <set>

#include "OstrelConnections/psp/psp_client.h"
#include "OstrelProvider/service.h"
#include "OstrelProvider/worker.h"
#include "soak/driver.h"
#include "soak/happenings.h"
#include "soak/settled.h"
#include "soak/trace.h"

namespace soak {

namespace {

constexpr int passes_to_settle = 3;
constexpr int passes_looked_at = 8;  // after events have ended

class Season {
public:
    Season(std::uint64_t seed, const SeasonOptions& options, Tally& tally)
        : dice_(seed), tally_(tally), site_(dice_), watch_(site_, operator_, tally) {
        host().observe([this](const simhost::Event& event) {
            if (event.kind == simhost::Event::Kind::pass_begun) {
                operator_.was_read();
                if (eventful_) {
                    happenings_.in_pass();
                }
            }
        });
        if (options.trace) {
            trace(host());
        }
        prepare_library();
        driver_.emplace(site_, dice_, watch_);
        passes_ = static_cast<std::uint64_t>(site_.large() ? options.passes / 4 : options.passes);
    }

    void live() {
        while (tally_.passes < passes_ && !watch_.broken()) {
            go_through_events();
            if (!watch_.broken()) {
                settle();
            }
        }
        driver_->stop();
        watch_.look();
        tally_.seconds = host().now();
        tally_.of("faults injected") = host().faults_injected();
        tally_.of("sessions added") = host().calls("IMA_VMW_AddSession");
        tally_.of("sessions removed") = host().calls("IMA_VMW_RemoveSession");
        for (const auto& [hazard, times] : host().let_pass()) {
            tally_.of("let pass: " + hazard) = times;
        }
        std::string problem;
        written_ = site_.written(problem);
        if (!problem.empty()) {
            watch_.report("the scenario can't be read: " + problem);
        }
    }

    const Watch& watch() const { return watch_; }
    const std::string& written() const { return written_; }

private:
    Dice dice_;
    Tally& tally_;
    Site site_;
    Operator operator_{site_, dice_};
    Happenings happenings_{site_, dice_, operator_, tally_};
    Watch watch_;
    std::optional<Driver> driver_;
    std::string written_;
    bool eventful_ = false;
    std::uint64_t passes_ = 0;

    simhost::Host& host() const { return site_.host(); }

    // As a CIM server's factory call does; the worker comes as far as its first wait and is stopped there.
    void prepare_library() {
        host().set_horizon(host().now());
        OstrelProviderInit();
        if (!host().wait_for_horizon(60) || StopService() != 0) {
            watch_.report("the service doesn't start and stop");
        }
        host().remove_file(OSTREL_LOCK_FILE);
    }

    void go_through_events() {
        eventful_ = true;
        const double length = dice_.any(5, 40) * 120;
        const double end = host().now() + length;
        happenings_.plan(dice_.any(2, static_cast<int>(length / 120) * 2), length);
        for (int acts = dice_.any(0, 6); acts > 0 && !watch_.broken(); --acts) {
            driver_->run_until(std::min(end, host().now() + dice_.seconds(length / 4)));
            act();
        }
        if (!watch_.broken()) {
            driver_->start();
            driver_->run_until(end);
        }
        eventful_ = false;
    }

    // Something that is done through the library.
    void act() {
        const int chance = dice_.any(1, 10);
        if (chance <= 4) {
            renew();
        } else if (chance <= 6) {
            set_value();
        } else if (!driver_->running()) {
            driver_->start();
        } else if (chance <= 8) {
            ++tally_.of("stop");
            driver_->stop();
        } else {
            ++tally_.of("stop in a pass");
            driver_->stop_in_pass();
        }
    }

    void renew() {
        const auto targets = host().targets();
        RenewalCall call;
        for (int count = dice_.any(1, 3); count > 0 && !targets.empty(); --count) {
            call.targets.push_back(dice_.pick(targets).iqn);
        }
        call.digests = dice_.one_in(2);
        call.enable = dice_.one_in(2);
        if (call.digests && dice_.one_in(2)) {
            for (const program::AdapterEntry& each : site_.scenario().adapters) {
                site_.happen(fmt::format("digests = {{ adapter = \"{}\", on = {} }}", each.name, call.enable));
            }
        }
        ++tally_.of(call.digests ? "digest change" : "renewal");
        const std::uint32_t status = driver_->renew(call);
        site_.remark(fmt::format("renewal of {} answers {}", fmt::join(call.targets, ", "), status));
        if (status == 0) {
            ++tally_.of("renewals and digest changes that succeeded");
        }
    }

    void set_value() {
        ++tally_.of("value set");
        operator_.gave_way();
        if (dice_.one_in(2)) {
            driver_->set_value("interval", static_cast<std::uint32_t>(dice_.any(30, 600)));
        } else {
            driver_->set_value("vol_sessions", static_cast<std::uint32_t>(dice_.any(0, 20)));
        }
    }

    // The events end. What the host does by itself comes first, with or without passes meanwhile.
    void settle() {
        happenings_.end();
        // Logging in with a login time that was set meanwhile, a second try, and claiming the paths.
        const program::Scenario& on = site_.scenario();
        const double recovered = host().now() + 2 * 15 + 40 + on.login_seconds + on.claim_seconds + 5;
        if (dice_.one_in(2)) {
            driver_->stop();
        }
        driver_->run_until(recovered);
        driver_->finish_cycle();
        watch_.quiet_begins();
        const std::set<std::string> by_lost_nics = counting_lost_nics(host());
        Changes before = changes();
        driver_->start();
        int settled_after = 0;
        int sessions_settled_after = 0;
        for (int pass = 1; pass <= passes_looked_at && !watch_.broken(); ++pass) {
            driver_->run_cycle();
            const Changes now = changes();
            settled_after = now.sessions != before.sessions || now.requests != before.requests ? pass : settled_after;
            sessions_settled_after = now.sessions != before.sessions ? pass : sessions_settled_after;
            before = now;
        }
        if (watch_.broken()) {
            return;
        }
        ++tally_.of(fmt::format("rounds settled after {} passes", settled_after));
        const Verdict verdict = judge(host(), operator_.values());
        // A switch that can't be finished is tried again in every pass, down to its requests.
        if ((verdict.kept.contains(SWITCH_HELD_UP) ? sessions_settled_after : settled_after) > passes_to_settle) {
            watch_.report("sessions or paths change in pass " + std::to_string(settled_after) + " after events ended");
        }
        for (const std::string& iqn : watch_.gained_and_lost()) {
            if (!by_lost_nics.contains(iqn) && is_readable(host(), iqn)) {
                watch_.report(iqn + " gains and loses sessions though nothing happens");
            }
        }
        for (const std::string& each : verdict.wrong) {
            watch_.report(each);
        }
        tally_.of("targets looked at") += verdict.targets;
        for (const auto& [reason, targets] : verdict.kept) {
            tally_.of(reason) += targets;
        }
    }

    // What the connection manager has done to the host.
    struct Changes {
        std::uint64_t sessions;
        std::uint64_t requests;
    };
    Changes changes() const {
        const simhost::Host& on = host();
        return {on.calls("IMA_VMW_AddSession") + on.calls("IMA_VMW_RemoveSession") +
                    on.calls("IMA_RemoveStaticDiscoveryTarget"),
                on.calls("IMA_VMW_Rediscover") + on.calls("psp." + std::to_string(OSTREL_PSP_IOCTL_RESCAN)) +
                    on.calls("psp." + std::to_string(OSTREL_PSP_IOCTL_DELETE_DEAD_PATHS))};
    }
};

}  // namespace

Ended live_through(std::uint64_t seed, const SeasonOptions& options, Tally& tally) {
    Season season(seed, options, tally);
    season.live();
    ++tally.of("seeds");
    return {season.watch().broken() ? season.watch().found().front() : std::string(), season.written()};
}

}  // namespace soak
