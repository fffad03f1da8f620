#include <fmt/format.h>

#include "scenario.h"
#include "scenario_parts.h"
#include "shared/duration.h"

namespace program {

namespace {

std::string plural(std::size_t count, std::string_view what) {
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

std::string_view mode_word(simhost::GroupMode mode) {
    return mode == simhost::GroupMode::dynamic_discovery ? "dynamic" : "static";
}

struct Teller {
    std::string operator()(const NicDown& a) const { return fmt::format("NIC {} lost", a.ip); }
    std::string operator()(const NicUp& a) const { return fmt::format("NIC {} back", a.ip); }
    std::string operator()(const ArrayDown& a) const { return fmt::format("array {}/{} lost", a.group, a.array); }
    std::string operator()(const ArrayUp& a) const { return fmt::format("array {}/{} back", a.group, a.array); }
    std::string operator()(const AddArray& a) const {
        return fmt::format("array {} added to group {}", a.array.name, a.group);
    }
    std::string operator()(const SwitchMode& a) const {
        return fmt::format("group {} switched to {} discovery", a.group, mode_word(a.mode));
    }
    std::string operator()(const DropSessions& a) const {
        return fmt::format("{} of {} dropped", plural(static_cast<std::size_t>(a.count), "session"), a.target);
    }
    std::string operator()(const SetState& a) const {
        return fmt::format("{} of {}{}{} put into {}", plural(static_cast<std::size_t>(a.count), "session"), a.target,
                           a.local_ip.empty() ? "" : " on ", a.local_ip, session_state_word(a.state));
    }
    std::string operator()(const AddSession& a) const {
        return fmt::format("{} {} of {} made by the host", plural(static_cast<std::size_t>(a.session.count), "session"),
                           session_state_word(a.session.spec.state), a.session.target);
    }
    std::string operator()(const FailLogins& a) const {
        return a.failing ? "logins begin to fail" : "logins succeed again";
    }
    std::string operator()(const LoginSeconds& a) const {
        return fmt::format("logins now take {}", shared::duration_text(a.seconds));
    }
    std::string operator()(const Digests& a) const {
        return fmt::format("digests switched {} on {}", a.on ? "on" : "off", a.adapter);
    }
    std::string operator()(const DiscoveryOutcome& a) const {
        return fmt::format("discovery on {} now answers {}", a.adapter, a.status);
    }
    std::string operator()(const AddVolumes& a) const {
        return a.volumes.empty() ? "no volume added"
                                 : fmt::format("{} added ({}{}{})", plural(a.volumes.size(), "volume"),
                                               a.volumes.front().spec.eui, a.volumes.size() > 1 ? ".." : "",
                                               a.volumes.size() > 1 ? a.volumes.back().spec.eui : "");
    }
    std::string operator()(const RemoveVolume& a) const { return fmt::format("volume {} removed", a.name); }
    std::string operator()(const WriteConfig& a) const {
        std::string text = "operator sets";
        for (const auto& [key, value] : a.changes) {
            text += fmt::format(" {}={}", key, value);
        }
        return text;
    }
    std::string operator()(const WriteConfigLine& a) const {
        return fmt::format("operator adds the line \"{}\"", a.line);
    }
    std::string operator()(const WriteConfigFile& a) const {
        return fmt::format("operator replaces the configuration file ({} bytes)", a.text.size());
    }
    std::string operator()(const RemoveConfig&) const { return "operator removes the configuration file"; }
    std::string operator()(const InjectFault& a) const {
        return fmt::format("fault set: {} fails at call {}{}", a.fault.operation, a.fault.nth,
                           a.fault.persistent ? " and from then on" : "");
    }
    std::string operator()(const ClearFaults&) const { return "all faults cleared"; }
};

}  // namespace

std::string action_text(const Action& action) {
    return std::visit(Teller{}, action);
}

}  // namespace program
