// The operators new and delete of an executable that has its allocations counted and, the nothrow ones, made to
// fail. They stand in the executable itself, which is searched before every library.
#include <cstdlib>
#include <new>

#include "simhost/allocation/counting.h"

namespace {

void* allocate(std::size_t size, std::size_t alignment, bool nothrow) {
    if (simhost_allocation_fails(size, nothrow ? 1 : 0) != 0) {
        return nullptr;
    }
    const std::size_t wanted = size == 0 ? 1 : size;
    void* block = nullptr;
    if (alignment == 0) {
        block = std::malloc(wanted);
    } else {
        block = std::aligned_alloc(alignment, (wanted + alignment - 1) / alignment * alignment);
    }
    simhost_block_allocated(block);
    return block;
}

void* allocate_or_throw(std::size_t size, std::size_t alignment) {
    void* block = allocate(size, alignment, false);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void release(void* block) {
    simhost_block_freed(block);
    std::free(block);
}

}  // namespace

void* operator new(std::size_t size) {
    return allocate_or_throw(size, 0);
}
void* operator new[](std::size_t size) {
    return allocate_or_throw(size, 0);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocate_or_throw(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return allocate_or_throw(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size, 0, true);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size, 0, true);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocate(size, static_cast<std::size_t>(alignment), true);
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocate(size, static_cast<std::size_t>(alignment), true);
}

void operator delete(void* block) noexcept {
    release(block);
}
void operator delete[](void* block) noexcept {
    release(block);
}
void operator delete(void* block, std::size_t) noexcept {
    release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    release(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
    release(block);
}
void operator delete[](void* block, std::align_val_t) noexcept {
    release(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    release(block);
}
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept {
    release(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    release(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    release(block);
}
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept {
    release(block);
}
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept {
    release(block);
}
