// Large blocks stay with the process instead of going back to the system: the replies of one pass are 4 MiB, and
// getting their pages anew each time took most of the time. A block that is kept is poisoned, so that a wrong access is
// seen as in any other freed one.
#include <sanitizer/allocator_interface.h>
#include <sanitizer/asan_interface.h>

#include <cstddef>
#include <cstdlib>
#include <map>
#include <mutex>
#include <new>

namespace {

constexpr std::size_t SMALLEST = 100'000;
constexpr std::size_t MOST_KEPT = 16;

std::mutex mutex;

// By their size. Never destroyed: blocks are freed after all destructors ran.
std::multimap<std::size_t, void*>& kept() {
    static auto& made = *new std::multimap<std::size_t, void*>;
    return made;
}

void* allocate(std::size_t size) {
    if (size >= SMALLEST) {
        const std::lock_guard lock(mutex);
        if (const auto found = kept().extract(size)) {
            ASAN_UNPOISON_MEMORY_REGION(found.mapped(), size);
            return found.mapped();
        }
    }
    return std::malloc(size);
}

void release(void* block) {
    const std::size_t size = __sanitizer_get_allocated_size(block);
    if (size >= SMALLEST) {
        const std::lock_guard lock(mutex);
        if (__asan_address_is_poisoned(block) != 0) {
            std::abort();  // freed before
        }
        if (kept().size() < MOST_KEPT) {
            ASAN_POISON_MEMORY_REGION(block, size);
            kept().emplace(size, block);
            return;
        }
    }
    std::free(block);
}

void* allocate_or_throw(std::size_t size) {
    void* const block = allocate(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

}  // namespace

void* operator new(std::size_t size) {
    return allocate_or_throw(size);
}
void* operator new[](std::size_t size) {
    return allocate_or_throw(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
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
void operator delete(void* block, const std::nothrow_t&) noexcept {
    release(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    release(block);
}
