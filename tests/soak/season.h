// One seed: a host and the rounds of its life, each of events and of the quiet after them.
#pragma once

#include <cstdint>
#include <string>

#include "soak/tally.h"

namespace soak {

struct SeasonOptions {
    int passes = 600;
    bool trace = false;
};

// Returns what was broken first; empty: nothing. Counts into `tally`.
std::string live_through(std::uint64_t seed, const SeasonOptions& options, Tally& tally);

}  // namespace soak
