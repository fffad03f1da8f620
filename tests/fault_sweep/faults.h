// Which faults there are for each platform operation, and what must come of them.
#pragma once

#include <string>
#include <vector>

#include "simhost/host.h"

namespace fault_sweep {

// The faults to put into calls of an operation, each for its first call: in passing, and from then on.
std::vector<simhost::Fault> faults_of(const std::string& operation);

// Whether the log tells of a failed call, if it must. `met`: the operation, and behind a space the file, of the
// first one; `complaints`: the warnings and errors logged.
bool is_told(const simhost::Fault& fault, const std::string& met, const std::vector<std::string>& complaints);

// Whether a caller may get this result although, or because, a call failed.
bool may_come_of(const simhost::Fault& fault, const std::string& undisturbed, const std::string& result);

}  // namespace fault_sweep
