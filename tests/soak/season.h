// One seed: a host and the rounds of its life, each of events and of the quiet after them.
#pragma once

#include <cstdint>
#include <string>

#include "soak/site.h"

namespace soak {

struct Ended {
    std::string broken;    // first; empty: nothing
    std::string scenario;  // all that happened to the host
    Tally counts;
};

// `trace`: print the log, what happens to the host and what is asked of it as it comes.
Ended live_through(std::uint64_t seed, std::uint64_t passes, bool trace);

}  // namespace soak
