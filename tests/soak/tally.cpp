#include "soak/tally.h"

#include <cstdio>

namespace soak {

namespace {

constexpr const char* names[num_kinds] = {"NIC lost",
                                          "NIC back",
                                          "array lost",
                                          "array back",
                                          "array added",
                                          "group added",
                                          "volume added",
                                          "volume removed",
                                          "group-scoped target added",
                                          "sessions dropped",
                                          "all sessions dropped",
                                          "session flaps",
                                          "logins fail",
                                          "login time changed",
                                          "discovery fails",
                                          "mode switched",
                                          "mode switched in pass",
                                          "digest setting changed",
                                          "file edited",
                                          "file damaged",
                                          "file removed",
                                          "worker held off",
                                          "fault set",
                                          "value set",
                                          "renewal",
                                          "digest change",
                                          "stop",
                                          "stop in pass"};

constexpr const char* reasons[num_reasons] = {"unreadable", "no dynamic session", "protected", "ceiling",
                                              "switch held up"};

unsigned long long number(std::uint64_t value) {
    return value;
}

template <std::size_t N>
void add_each(std::array<std::uint64_t, N>& to, const std::array<std::uint64_t, N>& from) {
    for (std::size_t i = 0; i < N; ++i) {
        to[i] += from[i];
    }
}

}  // namespace

const char* name_of(Kind kind) {
    return names[kind];
}

void Tally::add(const Tally& other) {
    seeds += other.seeds;
    passes += other.passes;
    seconds += other.seconds;
    add_each(happened, other.happened);
    faults += other.faults;
    added += other.added;
    removed += other.removed;
    renewals_succeeded += other.renewals_succeeded;
    add_each(settled_after, other.settled_after);
    add_each(kept, other.kept);
    targets += other.targets;
    add_each(let_pass, other.let_pass);
    violations += other.violations;
}

void Tally::print() const {
    std::printf("seeds %llu, passes %llu, simulated hours %.0f (%.1f months)\n", number(seeds), number(passes),
                seconds / 3600, seconds / 3600 / 730);
    for (int kind = 0; kind < num_kinds; ++kind) {
        std::printf("  %-26s %8llu\n", names[kind], number(happened[static_cast<std::size_t>(kind)]));
    }
    std::printf("faults injected %llu, sessions added %llu, removed %llu, renewals that succeeded %llu\n",
                number(faults), number(added), number(removed), number(renewals_succeeded));
    std::printf("rounds by passes until settled:");
    for (std::size_t i = 0; i < settled_after.size(); ++i) {
        std::printf(" %zu: %llu%s", i, number(settled_after[i]), i + 1 < settled_after.size() ? "," : "\n");
    }
    std::printf("targets looked at then %llu, kept from their number:", number(targets));
    for (int reason = 0; reason < num_reasons; ++reason) {
        std::printf(" %s %llu%s", reasons[reason], number(kept[static_cast<std::size_t>(reason)]),
                    reason + 1 < num_reasons ? "," : "\n");
    }
    std::printf("hazards let pass:");
    for (std::size_t i = 0; i < hazards.size(); ++i) {
        std::printf(" %s %llu%s", hazards[i], number(let_pass[i]), i + 1 < hazards.size() ? "," : "\n");
    }
    std::printf("violations %llu\n", number(violations));
}

}  // namespace soak
