#include "soak/watch.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "support/engine.h"

namespace soak {

using simhost::Event;

Watch::Watch(Site& site, const Operator& by, Tally& tally) : host_(site.host()), operator_(by), tally_(tally) {
    host_.observe([this](const Event& event) { note(event); });
}

void Watch::quiet_begins() {
    gained_.clear();
    lost_.clear();
}

std::vector<std::string> Watch::gained_and_lost() const {
    std::vector<std::string> both;
    std::set_intersection(gained_.begin(), gained_.end(), lost_.begin(), lost_.end(), std::back_inserter(both));
    return both;
}

// Sessions that the manager adds and removes; the host's own logins are none of them.
void Watch::note(const Event& event) {
    if (event.kind == Event::Kind::session_removed) {
        lost_.insert(event.target);
    } else if (event.kind == Event::Kind::session_added && host_.calls("IMA_VMW_AddSession") != additions_) {
        additions_ = host_.calls("IMA_VMW_AddSession");
        gained_.insert(event.target);
        look_at_addition(event.target);
    }
}

// No configuration asks for more than 32 sessions, those that log in included. Behind a group-scoped target they
// can be counted in part, and so can those of any after a failed call.
void Watch::look_at_addition(const std::string& iqn) {
    constexpr std::ptrdiff_t most = 32;
    const auto sessions = host_.sessions(iqn);
    const auto wanted = std::count_if(sessions.begin(), sessions.end(), [](const simhost::SessionView& each) {
        return each.first_remote_ip != each.current_remote_ip || each.state == simhost::XPT_WAIT ||
               each.state == simhost::IN_LOGIN;
    });
    if (wanted > most && !host_.target(iqn).group_scoped && host_.faults_injected() == faults_before_) {
        report(iqn + " has " + std::to_string(wanted) + " sessions after an addition");
    }
}

void Watch::report(const std::string& what) {
    char where[64];
    std::snprintf(where, sizeof where, "pass %llu, %.3f s: ", static_cast<unsigned long long>(tally_.passes),
                  host_.now());
    found_.push_back(where + what);
    ++tally_.violations;
}

void Watch::look() {
    const std::vector<std::string> broken = host_.violations();
    for (; violations_seen_ < broken.size(); ++violations_seen_) {
        report(broken[violations_seen_]);
    }
}

void Watch::look_at_what_is_held() {
    if (host_.lists_held() != 0) {
        report(std::to_string(host_.lists_held()) + " IMA lists are held after a cycle");
    }
    if (host_.descriptors_held() != 0) {
        report(std::to_string(host_.descriptors_held()) + " descriptors are open after a cycle");
    }
    if (host_.blocks_held() != 0) {
        report(std::to_string(host_.blocks_held()) + " heap blocks are held after a cycle");
    }
    for (const std::string& each : testing_support::shared_mutexes_held()) {
        // Who starts the worker can still hold this one at the end of a short first cycle.
        if (each != "start_service_mutex") {
            report(each + " is held after a cycle");
        }
    }
}

void Watch::after_cycle() {
    ++tally_.passes;
    look();
    look_at_what_is_held();
    const bool disturbed = host_.faults_injected() != faults_before_;
    faults_before_ = host_.faults_injected();
    if (const std::string wrong = operator_.look(disturbed); !wrong.empty()) {
        report(wrong);
    }
}

}  // namespace soak
