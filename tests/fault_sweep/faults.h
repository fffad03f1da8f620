// Which faults there are for each platform operation, and what must come of them.
#pragma once

#include <string>
#include <vector>

#include "simhost/host.h"

namespace fault_sweep {

// The faults to put into calls of an operation, each for its first call, passing.
std::vector<simhost::Fault> faults_of(const std::string& operation);

// Whether the log tells of a failed call, if it must. `met`: the operation, and behind a space the file, of the
// first one; `complaints`: the warnings and errors logged.
bool is_told(const simhost::Fault& fault, const std::string& met, const std::vector<std::string>& complaints);

// Whether a caller may get this result although, or because, a call failed.
bool may_come_of(const simhost::Fault& fault, const std::string& undisturbed, const std::string& result);

// The operation that an imported symbol counts as; empty: there is none.
std::string operation_of(const std::string& symbol);

// Whether an imported symbol has no failure that a platform could answer with.
bool is_without_failure(const std::string& symbol);

}  // namespace fault_sweep
