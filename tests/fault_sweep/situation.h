// The situations that faults are put into: hosts in a state that calls for work, and the work.
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "simhost/host.h"

namespace fault_sweep {

struct Situation {
    std::string name;
    std::function<std::unique_ptr<simhost::Host>()> make;
    // The work; what its caller got. It runs on the thread that calls it, and may start and stop the worker.
    std::function<std::string(simhost::Host&)> act;
    bool is_start = false;  // of the service; done again it makes up for one that failed
    // How often the work is done while a fault stays.
    int repetitions = 1;
    // Which target gets the last sessions below the ceiling may depend on the fault; their total may not.
    bool compare_totals_only = false;
    // Another state than the undisturbed one that the procedure itself may come to rest in after a fault.
    bool (*excused)(const simhost::Host&) = nullptr;

    friend void PrintTo(const Situation& each, std::ostream* out) { *out << each.name; }
};

const std::vector<Situation>& situations();

}  // namespace fault_sweep
