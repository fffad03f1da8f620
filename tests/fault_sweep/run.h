// One run of a situation with a fault, in a process of its own, and what must hold after it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "fault_sweep/situation.h"
#include "simhost/host.h"

namespace fault_sweep {

// What a run came to. `broken` names what did not hold, one line each.
struct Report {
    bool hit = false;                                                   // the fault was met
    std::string result;                                                 // what the caller got
    std::string host_after;                                             // the site three passes later
    std::string config_after;                                           // the configuration file after the work
    std::map<std::string, std::map<std::string, std::uint64_t>> calls;  // by operation and part of a path
    std::vector<std::string> broken;
};

// Runs the situation on a prepared host, which stays as it was. Without a fault's operation: how it goes undisturbed.
// Otherwise `undisturbed` is that report.
Report run(const Situation& situation, simhost::Host& host, const simhost::Fault& fault = {},
           const Report& undisturbed = {});

}  // namespace fault_sweep
