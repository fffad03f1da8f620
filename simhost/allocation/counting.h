// What the executable's operator new and delete tell the simulated host.
#pragma once

#include <cstddef>

extern "C" {

// Counts an allocation, when that is switched on and it isn't the host's own; 1: it is to fail.
int simhost_allocation_fails(std::size_t size, int nothrow);
void simhost_block_allocated(const void* block);
void simhost_block_freed(const void* block);

}  // extern "C"
