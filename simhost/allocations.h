// Counting of the connection manager's operator new. Its lock is a leaf: allocations happen under any other.
#pragma once

#include <cstdint>

#include "simhost/host.h"

namespace simhost {

void reset_allocations();
void set_allocation_fault(const Fault& fault);
void clear_allocation_faults();
std::uint64_t failable_allocations();  // calls of the nothrow forms
std::uint64_t failed_allocations();

}  // namespace simhost
