#include "oxrctl/plan_story.h"

#include <fmt/format.h>

#include <algorithm>

#include "shared/duration.h"

namespace oxrctl {

namespace {

PlanTarget target_of(const Json& object) {
    PlanTarget target;
    target.name = object.at("name");
    target.group_scoped = object.at("group_scoped");
    target.mode = object.at("mode");
    target.supported = object.at("supported");
    target.volumes = object.at("volumes");
    target.required = object.at("required");
    target.sessions = object.at("sessions");
    target.short_by = object.at("short_by");
    target.active_paths = object.at("active_paths");
    for (const auto& [ip, count] : object.at("sessions_by_address").items()) {
        target.by_address[ip] = count;
    }
    return target;
}

// The addresses in the order of the scenario, though a target may have only some of them.
std::vector<std::string> addresses_of(const Json& targets) {
    std::vector<std::string> addresses;
    for (const Json& target : targets) {
        for (const auto& [ip, unused] : target.at("sessions_by_address").items()) {
            if (std::find(addresses.begin(), addresses.end(), ip) == addresses.end()) {
                addresses.push_back(ip);
            }
        }
    }
    return addresses;
}

PlanPhase::End end_of(const PlanPhase& phase) {
    using End = PlanPhase::End;
    if (phase.all_passes == 0) {
        return End::no_pass;
    }
    if (phase.skipped_passes == phase.all_passes) {
        return End::skipped;
    }
    return phase.last_changed ? End::changing : End::settled;
}

}  // namespace

bool PlanTarget::same_state(const PlanTarget& other) const {
    return group_scoped == other.group_scoped && mode == other.mode && supported == other.supported &&
           volumes == other.volumes && required == other.required && sessions == other.sessions &&
           active_paths == other.active_paths && by_address == other.by_address;
}

std::vector<const PlanTarget*> Plan::short_targets() const {
    std::vector<const PlanTarget*> found;
    for (const PlanTarget& target : targets) {
        if (target.short_by > 0) {
            found.push_back(&target);
        }
    }
    return found;
}

void PlanReader::take(std::string_view piece) {
    pending_ += piece;
    std::size_t begin = 0;
    for (std::size_t end; (end = pending_.find('\n', begin)) != std::string::npos; begin = end + 1) {
        take_line(std::string_view(pending_).substr(begin, end - begin));
    }
    pending_.erase(0, begin);
}

void PlanReader::take_line(std::string_view line) {
    const Json object = Json::parse(line, nullptr, false);
    if (!object.is_object()) {
        return;
    }
    const std::string type = object.value("type", "");
    if (type == "begin") {
        begin(object);
    } else if (plan_.phases.empty()) {
        return;
    } else if (type == "event") {
        event(object);
    } else if (type == "pass") {
        pass(object);
    } else if (type == "verdict") {
        verdict(object);
    }
}

void PlanReader::begin(const Json& object) {
    plan_.scenario = object.at("scenario");
    plan_.title = object.at("title");
    for (const Json& value : object.at("not_taken")) {
        plan_.not_taken.push_back({value.at("key"), value.at("written"), value.at("in_force"), value.at("why")});
    }
    plan_.addresses = addresses_of(object.at("targets"));
    plan_.phases.emplace_back();
}

void PlanReader::event(const Json& object) {
    const double time = object.at("time");
    if (object.at("kind") == "failure") {
        plan_.notes.push_back(fmt::format("at {} {}", shared::clock_text(time), object.at("text").get<std::string>()));
    }
    if (object.at("kind") != "action") {
        return;
    }
    if (plan_.phases.back().began != time) {
        plan_.phases.emplace_back().began = time;
    }
    plan_.phases.back().events.push_back(object.at("text"));
}

void PlanReader::pass(const Json& object) {
    PlanPhase& phase = plan_.phases.back();
    ++plan_.passes;
    ++phase.all_passes;
    const int skipped = object.at("skipped").get<bool>() ? 1 : 0;
    plan_.skipped_passes += skipped;
    phase.skipped_passes += skipped;
    phase.last_changed = object.at("changed");
    if (phase.last_changed) {
        phase.passes = phase.all_passes;
        phase.seconds = object.at("ended").get<double>() - phase.began;
    }
}

void PlanReader::verdict(const Json& object) {
    const Json& totals = object.at("totals");
    plan_.seconds = object.at("time");
    plan_.settled = object.at("settled_so_far");
    if (const Json& next = object.at("next_event"); !next.is_null()) {
        plan_.next_event = next;
    }
    plan_.reasons = object.at("reasons_so_far").get<std::vector<std::string>>();
    for (const Json& note : object.at("notes")) {
        plan_.notes.push_back(note);
    }
    plan_.violations = object.at("violations").get<std::vector<std::string>>();
    for (const auto& [hazard, times] : object.at("let_pass_times").items()) {
        if (times > 0) {
            plan_.notes.push_back(fmt::format("known hazard, which the scenario lets pass: {} ({})", hazard,
                                              count_of(times.get<std::size_t>(), "time", "times")));
        }
    }
    plan_.sessions = totals.at("sessions");
    plan_.paths = totals.at("paths");
    plan_.most_sessions = object.at("most_sessions");
    plan_.most_paths = object.at("most_paths");
    plan_.session_limit = object.at("session_ceiling");
    plan_.path_limit = object.at("path_limit");
    for (const Json& target : object.at("targets")) {
        plan_.targets.push_back(target_of(target));
    }
    plan_.complete = true;
}

Plan PlanReader::finish() {
    for (PlanPhase& phase : plan_.phases) {
        phase.end = end_of(phase);
    }
    // How it stands after the last event is judged by more than the quietness of the passes.
    if (!plan_.phases.empty()) {
        PlanPhase::End& last = plan_.phases.back().end;
        if (plan_.settled && last == PlanPhase::End::changing) {
            last = PlanPhase::End::settled;
        } else if (!plan_.settled && last == PlanPhase::End::settled) {
            last = PlanPhase::End::unsettled;
        }
    }
    return std::move(plan_);
}

}  // namespace oxrctl
