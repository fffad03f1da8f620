// What must never come about through an action of the connection manager, and the cases that are let pass.
#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "simhost/model.h"
#include "simhost/real.h"

namespace simhost {

std::map<std::string, std::uint64_t, std::less<>> Host::let_pass() const {
    const Entered entered(*impl_);
    return impl_->let_pass;
}

void Host::allow(const std::string& hazard) {
    if (!is_hazard(hazard)) {
        throw std::invalid_argument("simhost: no such hazard: '" + hazard + "'");
    }
    const Entered entered(*impl_);
    impl_->let_pass.emplace(hazard, 0);
}

// Whether this hazard is let pass; counted. If not, the violation that follows tells its name.
bool Host::Impl::excuse(KnownHazard hazard) {
    const auto found = let_pass.find(hazard.name);
    if (found == let_pass.end()) {
        not_excused.emplace_back(hazard.name);
        return false;
    }
    not_excused.clear();
    ++found->second;
    return true;
}

void Host::Impl::violate(std::string text) {
    if (!not_excused.empty()) {
        text += fmt::format(" (known hazard: {})", fmt::join(not_excused, " or "));
        not_excused.clear();
    }
    violations.push_back(fmt::format("{:.3f} s: {}", now(), text));
    emit({Event::Kind::violation, now(), {}, {}, std::move(text)});
}

// A polling pass begins with the PSP's list of all devices.
void Host::Impl::pass_begins() {
    pass_disturbed = false;
    count_disturbed = false;
    added_group_scoped = 0;
    for (const auto& each : groups) {
        each->switched_in_pass = false;
    }
}

// A pass stands between the making and the removal of the lock file; a renewal never does.
bool Host::Impl::in_pass() const {
    const std::string lock_file = files.real_path("/etc/ostrel/.lock");
    return real::faccessat(AT_FDCWD, lock_file.c_str(), 0, 0) == 0;
}

// `mode_changed`: what held before the first of the sessions that go went.
void Host::Impl::removing_static(const Target& of, bool mode_changed, const std::string& isid, bool by_entry) {
    if (mode_changed) {
        return;
    }
    if (!by_entry && !in_pass() && excuse("static renewal")) {
        return;
    }
    if (of.group->switched_in_pass && excuse("switch in mid-pass")) {
        return;
    }
    violate(fmt::format("static session {} of {} removed though its group's mode didn't change", isid, of.iqn));
}

// After removals that began with a logged-in session. `from` and `local_ip`: where the last one removed ran.
void Host::Impl::after_removal(const Target& of, const Port* from, const std::string& local_ip,
                               const std::string& what) {
    bool other_address = false;
    bool other_adapter_empty = false;
    for (const auto& port : of.ports) {
        other_address = other_address || std::any_of(port->sessions.begin(), port->sessions.end(),
                                                     [&](const Session* each) { return each->local_ip != local_ip; });
        other_adapter_empty = other_adapter_empty || (port.get() != from && port->sessions.empty());
    }
    if (other_address && (excuse("working session removed first") || (!in_pass() && excuse("digest change")))) {
        return;
    }
    if ((other_adapter_empty || pass_disturbed) && (excuse("emptied adapter") || excuse("stale counts"))) {
        return;
    }
    violate(fmt::format("{} lost its last logged-in session through {}", of.iqn, what));
}

void Host::Impl::after_addition(const Target& to) {
    added_group_scoped += to.group_scoped ? 1 : 0;
    const int total = static_cast<int>(sessions.size());
    if (total <= MAX_SESSIONS) {
        return;
    }
    if (count_disturbed && excuse("failed host count")) {
        return;
    }
    if (total - MAX_SESSIONS <= added_group_scoped && excuse("group-scoped count")) {
        return;
    }
    violate(fmt::format("{} sessions after IMA_VMW_AddSession to {}", total, to.iqn));
}

}  // namespace simhost
