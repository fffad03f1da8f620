#include "soak/season.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <set>

#include "soak/driver.h"
#include "soak/happenings.h"
#include "soak/settled.h"
#include "support/engine.h"

namespace soak {

using testing_support::adapter_requests;
using testing_support::session_changes;

namespace {

constexpr int passes_to_settle = 3;
constexpr int passes_looked_at = 8;  // after events have ended

class Season {
public:
    explicit Season(std::uint64_t seed) : site_(seed) {
        host().observe([this](const simhost::Event& event) {
            if (event.kind == simhost::Event::Kind::pass_begun) {
                operator_.was_read();
                if (eventful_) {
                    happenings_.in_pass();
                }
            }
        });
    }

    void trace() {
        host().observe([this, told = std::map<std::string, std::size_t>()](const simhost::Event& event) mutable {
            const std::pair<std::string, std::string> texts[] = {
                {"events", site_.text()},
                {"log", host().log()},
                {DEEP_LOGS, host().read_file(std::string(DEEP_LOGS) + "/oxr.log")}};
            for (const auto& [name, text] : texts) {
                std::size_t& bytes = told[name];
                fmt::print("{}", text.substr(bytes > text.size() ? 0 : bytes));  // shorter: it began anew
                bytes = text.size();
            }
            fmt::print("{:12.3f}  {} {} {}\n", event.time, testing_support::request_text(event), event.adapter,
                       event.text);
        });
    }

    Ended live(std::uint64_t passes) {
        passes = site_.large ? passes / 4 : passes;
        while (site_.counts["passes"] < passes && is_whole()) {
            go_through_events();
            if (is_whole()) {
                settle();
            }
        }
        driver_.stop();
        watch_.look();
        Tally& counts = site_.counts;
        counts["simulated hours"] = static_cast<std::uint64_t>(host().now() / 3600);
        counts["faults injected"] = host().faults_injected();
        counts["sessions added"] = host().calls("IMA_VMW_AddSession");
        counts["sessions removed"] = host().calls("IMA_VMW_RemoveSession");
        for (const auto& [hazard, times] : host().let_pass()) {
            counts["let pass: " + hazard] = times;
        }
        const std::string scenario = fmt::format("run_for = {}\n", host().now() + 1) + site_.text();
        const auto read = ostrel_simhost::read_scenario(scenario);
        if (!read.problems.empty()) {
            watch_.report("the scenario can't be read: " + ostrel_simhost::problems_text(read.problems, "scenario"));
        }
        return {watch_.broken(), scenario, counts};
    }

private:
    RandomSite site_;
    Operator operator_{site_};
    Happenings happenings_{site_, operator_};
    Watch watch_{site_, operator_};
    Driver driver_{site_, watch_};
    bool eventful_ = false;

    simhost::Host& host() const { return site_.host(); }
    bool is_whole() const { return watch_.broken().empty(); }

    void go_through_events() {
        eventful_ = true;
        const double length = site_.dice.any(5, 40) * 120;
        const double end = host().now() + length;
        happenings_.plan(site_.dice.any(2, static_cast<int>(length / 120) * 2), length);
        for (int acts = site_.dice.any(0, 6); acts > 0 && is_whole(); --acts) {
            driver_.run_until(std::min(end, host().now() + site_.dice.seconds(length / 4)));
            act();
        }
        if (is_whole()) {
            driver_.start();
            driver_.run_until(end);
        }
        eventful_ = false;
    }

    // Something that is done through the library.
    void act() {
        const int chance = site_.dice.any(1, 10);
        if (chance <= 4) {
            renew();
        } else if (chance <= 6) {
            ++site_.counts["value set"];
            operator_.leave();
            const bool interval = site_.dice.one_in(2);
            driver_.set_value(interval ? "interval" : "vol_sessions",
                              interval ? site_.dice.any(30U, 600U) : site_.dice.any(0U, 20U));
        } else if (!driver_.running()) {
            driver_.start();
        } else if (chance <= 8) {
            ++site_.counts["stop"];
            driver_.stop();
        } else {
            ++site_.counts["stop in a pass"];
            driver_.stop_in_pass();
        }
    }

    void renew() {
        const auto all = host().targets();
        std::vector<std::string> targets;
        for (int count = site_.dice.any(1, 3); count > 0 && !all.empty(); --count) {
            targets.push_back(site_.dice.pick(all).iqn);
        }
        const bool digests = site_.dice.one_in(2);
        const bool enable = site_.dice.one_in(2);
        if (digests && site_.dice.one_in(2)) {
            for (const ostrel_simhost::AdapterEntry& each : site_.scenario().adapters) {
                site_.happen(fmt::format("digests = {{ adapter = \"{}\", on = {} }}", each.name, enable));
            }
        }
        ++site_.counts[digests ? "digest change" : "renewal"];
        const std::string value = enable ? "enable" : "disable";
        const std::string status = driver_.renew(targets, digests ? "iscsidigest" : "", digests ? value : "");
        site_.remark(fmt::format("renewal of {} answers {}", fmt::join(targets, ", "), status));
        site_.counts["renewals and digest changes that succeeded"] += status == "0" ? 1 : 0;
    }

    // The events end. What the host does by itself comes first, with or without passes meanwhile.
    void settle() {
        happenings_.end();
        // Logging in with a login time that was set meanwhile, a second try, and claiming the paths.
        const ostrel_simhost::Scenario& on = site_.scenario();
        const double recovered = host().now() + 2 * 15 + 40 + on.login_seconds + on.claim_seconds + 5;
        if (site_.dice.one_in(2)) {
            driver_.stop();
        }
        driver_.run_until(recovered);
        driver_.finish_cycle();
        watch_.quiet_begins();
        const std::set<std::string> by_lost_nics = counting_lost_nics(host());
        driver_.start();
        int settled_after = 0;
        int sessions_settled_after = 0;
        for (int pass = 1; pass <= passes_looked_at && is_whole(); ++pass) {
            const std::uint64_t sessions = session_changes(host());
            const std::uint64_t requests = adapter_requests(host());
            driver_.run_cycle();
            sessions_settled_after = session_changes(host()) != sessions ? pass : sessions_settled_after;
            settled_after =
                adapter_requests(host()) != requests ? pass : std::max(settled_after, sessions_settled_after);
        }
        if (!is_whole()) {
            return;
        }
        ++site_.counts[fmt::format("rounds settled after {} passes", settled_after)];
        // A switch that can't be finished is tried again in every pass, down to its requests.
        const bool held_up = judge(site_, watch_, operator_.values());
        if ((held_up ? sessions_settled_after : settled_after) > passes_to_settle) {
            watch_.report(fmt::format("sessions or paths change in pass {} after events ended", settled_after));
        }
        for (const auto& [iqn, changes] : watch_.changes()) {
            if (changes == (GAINED | LOST) && !by_lost_nics.contains(iqn) && is_readable(host(), iqn)) {
                watch_.report(iqn + " gains and loses sessions though nothing happens");
            }
        }
    }
};

}  // namespace

Ended live_through(std::uint64_t seed, std::uint64_t passes, bool trace) {
    Season season(seed);
    if (trace) {
        season.trace();
    }
    return season.live(passes);
}

}  // namespace soak
