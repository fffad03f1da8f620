// What a run did, counted. Plain numbers: seeds run in processes of their own and hand theirs over in shared
// memory.
#pragma once

#include <array>
#include <cstdint>

namespace soak {

// What happens to a host. A new one: a name in tally.cpp and an act in happenings.cpp.
enum Kind {
    nic_lost,
    nic_back,
    array_lost,
    array_back,
    array_added,
    group_added,
    volume_added,
    volume_removed,
    group_scoped_target_added,
    sessions_dropped,
    all_sessions_dropped,
    session_flaps,
    logins_fail,
    login_time_changed,
    discovery_fails,
    mode_switched,
    mode_switched_in_pass,
    digest_setting_changed,
    file_edited,
    file_damaged,
    file_removed,
    worker_held_off,
    fault_set,
    // Acts through the library's entries.
    value_set,
    renewal,
    digest_change,
    stop,
    stop_in_pass,
    num_kinds
};

const char* name_of(Kind kind);

// What keeps a target from its number of sessions; each is a bound of the procedures.
enum Reason {
    unreadable,      // an adapter in sight has no session, so none of its sessions are read
    no_dynamic,      // none to model another one on
    all_protected,   // too many, but each carries active paths of a group-scoped target
    ceiling,         // of the host's sessions or paths
    switch_held_up,  // targets whose mode change waits for one that is unreadable
    num_reasons
};

// Hazards of the procedures that are let pass, each exactly in its own case.
constexpr std::array hazards{"stale counts",   "group-scoped count", "failed host count",
                             "static renewal", "digest change",      "switch in mid-pass"};

constexpr int passes_looked_at = 8;  // after events have ended

struct Tally {
    std::uint64_t seeds = 0;
    std::uint64_t passes = 0;
    double seconds = 0;  // simulated
    std::array<std::uint64_t, num_kinds> happened{};
    std::uint64_t faults = 0;
    std::uint64_t added = 0;
    std::uint64_t removed = 0;
    std::uint64_t renewals_succeeded = 0;
    std::array<std::uint64_t, passes_looked_at + 1> settled_after{};  // rounds, by their last pass with a change
    std::array<std::uint64_t, num_reasons> kept{};                    // targets at the end of rounds
    std::uint64_t targets = 0;                                        // all of them
    std::array<std::uint64_t, hazards.size()> let_pass{};
    std::uint64_t violations = 0;

    void add(const Tally& other);
    void print() const;
};

}  // namespace soak
