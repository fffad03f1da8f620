#include "soak/watch.h"

#include <fmt/format.h>

#include <algorithm>

#include "support/engine.h"

namespace soak {

using simhost::Event;

Watch::Watch(RandomSite& site, const Operator& by) : site_(site), host_(site.host()), operator_(by) {
    host_.observe([this](const Event& event) { note(event); });
}

// Sessions that the manager adds and removes; the host's own logins are none of them.
void Watch::note(const Event& event) {
    if (event.kind == Event::Kind::session_removed) {
        changes_[event.target] |= LOST;
    } else if (event.kind == Event::Kind::session_added && host_.calls("IMA_VMW_AddSession") != additions_) {
        additions_ = host_.calls("IMA_VMW_AddSession");
        changes_[event.target] |= GAINED;
        look_at_addition(event.target);
    }
}

// No configuration asks for more than 32 sessions, those that log in included. Behind a group-scoped target they
// can be counted in part, and so can those of any after a failed call.
void Watch::look_at_addition(const std::string& iqn) {
    const auto sessions = host_.sessions(iqn);
    const auto wanted = std::count_if(sessions.begin(), sessions.end(), [](const simhost::SessionView& each) {
        return each.first_remote_ip != each.current_remote_ip || each.state == simhost::XPT_WAIT ||
               each.state == simhost::IN_LOGIN;
    });
    if (wanted > 32 && !host_.target(iqn).group_scoped && host_.faults_injected() == faults_before_) {
        report(fmt::format("{} has {} sessions after an addition", iqn, wanted));
    }
}

void Watch::report(const std::string& what) {
    if (broken_.empty()) {
        broken_ = fmt::format("pass {}, {:.3f} s: {}", site_.counts["passes"], host_.now(), what);
    }
    ++site_.counts["violations"];
}

void Watch::look() {
    const std::vector<std::string> violations = host_.violations();
    for (; violations_seen_ < violations.size(); ++violations_seen_) {
        report(violations[violations_seen_]);
    }
}

void Watch::after_cycle() {
    ++site_.counts["passes"];
    look();
    for (const std::string& each : testing_support::what_is_held(host_)) {
        // Who starts the worker can still hold this one at the end of a short first cycle.
        if (each != "start_service_mutex") {
            report("held after a cycle: " + each);
        }
    }
    const bool disturbed = host_.faults_injected() != faults_before_;
    faults_before_ = host_.faults_injected();
    if (const std::string wrong = operator_.look(disturbed); !wrong.empty()) {
        report(wrong);
    }
}

}  // namespace soak
