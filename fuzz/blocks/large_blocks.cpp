// Large blocks stay with the process instead of going back to the system: the replies of one pass are 4 MiB, and
// getting their pages anew each time took most of the time. Each has a slot of its own, poisoned but for the block
// itself and all of it while it is free, so that a wrong access is seen as in any other block.
#include <sanitizer/asan_interface.h>
#include <sanitizer/lsan_interface.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <mutex>
#include <new>

namespace {

constexpr std::size_t SMALLEST = 100'000;
constexpr std::size_t GAP = 4096;  // ahead of each block
constexpr std::size_t SLOT_SIZE = std::size_t{2} << 20;
constexpr std::size_t LARGEST = SLOT_SIZE - 2 * GAP;
constexpr std::size_t NUM_SLOTS = 16;

class Slots {
public:
    Slots() {
        void* const found = mmap(nullptr, NUM_SLOTS * SLOT_SIZE, PROT_READ | PROT_WRITE,
                                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (found == MAP_FAILED) {
            std::abort();
        }
        base_ = static_cast<char*>(found);
        ASAN_POISON_MEMORY_REGION(base_, NUM_SLOTS * SLOT_SIZE);
        __lsan_register_root_region(base_, NUM_SLOTS * SLOT_SIZE);
    }

    bool holds(const void* block) const { return block >= base_ && block < base_ + NUM_SLOTS * SLOT_SIZE; }

    // Null: there is none left.
    void* take(std::size_t size) {
        const std::lock_guard lock(mutex_);
        bool* const free = std::find(std::begin(taken_), std::end(taken_), false);
        if (free == std::end(taken_)) {
            return nullptr;
        }
        *free = true;
        char* const block = base_ + static_cast<std::size_t>(free - taken_) * SLOT_SIZE + GAP;
        ASAN_UNPOISON_MEMORY_REGION(block, size);
        return block;
    }

    void give_back(void* block) {
        const std::lock_guard lock(mutex_);
        const auto slot = static_cast<std::size_t>(static_cast<char*>(block) - base_) / SLOT_SIZE;
        char* const begin = base_ + slot * SLOT_SIZE;
        if (!taken_[slot] || block != begin + GAP) {
            std::abort();  // freed before, or not what was allocated
        }
        taken_[slot] = false;
        ASAN_POISON_MEMORY_REGION(begin, SLOT_SIZE);
    }

private:
    std::mutex mutex_;
    char* base_ = nullptr;
    bool taken_[NUM_SLOTS] = {};
};

// Made at first use and never destroyed: blocks are freed after all destructors ran.
Slots& slots() {
    alignas(Slots) static unsigned char memory[sizeof(Slots)];
    static Slots* const made = new (memory) Slots;
    return *made;
}

void* allocate(std::size_t size) {
    void* block = nullptr;
    if (size >= SMALLEST && size <= LARGEST) {
        block = slots().take(size);
    }
    return block != nullptr ? block : std::malloc(size);
}

void release(void* block) {
    if (slots().holds(block)) {
        slots().give_back(block);
    } else {
        std::free(block);
    }
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
