// Faults for the n-th call of an operation from here on.
#pragma once

#include "simhost/host.h"

namespace testing_support {

// With the operation's usual failure.
inline simhost::Fault failing(const std::string& operation, std::uint64_t nth = 1) {
    return {.operation = operation, .nth = nth, .path_contains = {}};
}

// With a status of IMA or the PSP.
inline simhost::Fault status_fault(const std::string& operation, std::uint32_t status, std::uint64_t nth = 1) {
    return {.operation = operation, .nth = nth, .status = status, .path_contains = {}};
}

// With an errno.
inline simhost::Fault errno_fault(const std::string& operation, int error, std::uint64_t nth = 1) {
    return {.operation = operation, .nth = nth, .error = error, .path_contains = {}};
}

inline simhost::Fault failing_with(const std::string& operation, int error, const std::string& path_contains = "") {
    return {.operation = operation, .error = error, .path_contains = path_contains};
}

// And every later call, too.
inline simhost::Fault lasting(simhost::Fault fault) {
    fault.persistent = true;
    return fault;
}

}  // namespace testing_support
