#include "soak/tally.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

namespace soak {

std::uint64_t& Tally::of(std::string_view what) {
    for (Count& each : counts_) {
        if (each.name == what) {
            return each.number;
        }
        if (each.name[0] == '\0') {
            what.copy(each.name, sizeof each.name - 1);
            return each.number;
        }
    }
    throw std::length_error("soak: too many counts");
}

void Tally::add(const Tally& other) {
    passes += other.passes;
    seconds += other.seconds;
    violations += other.violations;
    for (const Count& each : other.counts_) {
        if (each.name[0] != '\0') {
            of(each.name) += each.number;
        }
    }
}

void Tally::print() const {
    fmt::print("passes {}, simulated hours {:.0f} ({:.1f} months)\n", passes, seconds / 3600, seconds / 3600 / 730);
    for (const Count& each : counts_) {
        if (each.name[0] != '\0') {
            fmt::print("  {:<47} {:9}\n", each.name, each.number);
        }
    }
    fmt::print("violations {}\n", violations);
}

}  // namespace soak
