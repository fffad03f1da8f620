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

struct Ended {
    std::string broken;    // first; empty: nothing
    std::string scenario;  // all that happened to the host
};

// Counts into `tally`.
Ended live_through(std::uint64_t seed, const SeasonOptions& options, Tally& tally);

}  // namespace soak
