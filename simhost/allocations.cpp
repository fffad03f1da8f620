#include "simhost/allocations.h"

#include <atomic>
#include <cstdlib>
#include <unordered_set>
#include <vector>

#include "simhost/allocation/counting.h"
#include "simhost/inside.h"
#include "simhost/lock.h"

namespace simhost {

namespace {

// The book's own memory mustn't come from the operators that it counts.
template <typename Item>
struct MallocAllocator {
    using value_type = Item;
    MallocAllocator() = default;
    template <typename Other>
    MallocAllocator(const MallocAllocator<Other>&) {}
    Item* allocate(std::size_t count) {
        void* block = std::malloc(count * sizeof(Item));
        if (block == nullptr) {
            std::abort();
        }
        return static_cast<Item*>(block);
    }
    void deallocate(Item* block, std::size_t) { std::free(block); }
    bool operator==(const MallocAllocator&) const { return true; }
};

struct AllocationFault {
    std::uint64_t nth = 1;
    bool persistent = false;
    std::uint64_t seen = 0;
};

struct Book {
    std::unordered_set<const void*, std::hash<const void*>, std::equal_to<>, MallocAllocator<const void*>> blocks;
    std::vector<AllocationFault, MallocAllocator<AllocationFault>> faults;
    std::uint64_t allocations = 0;
    std::uint64_t bytes = 0;
    std::uint64_t failable = 0;
    std::uint64_t failed = 0;
};

constinit std::atomic<bool> counting{false};
constinit std::atomic<std::size_t> held{0};
constinit Seen<std::mutex> book_mutex;

// Made at first use and never destroyed: blocks are freed after this library's destructors ran.
Book& book() {
    alignas(Book) static unsigned char memory[sizeof(Book)];
    static Book* const made = new (memory) Book;
    return *made;
}

bool fault_hits(Book& of) {
    bool hits = false;
    for (std::size_t i = 0; i < of.faults.size();) {
        AllocationFault& armed = of.faults[i];
        ++armed.seen;
        const bool fires = armed.persistent ? armed.seen >= armed.nth : armed.seen == armed.nth;
        hits = hits || fires;
        if (fires && !armed.persistent) {
            of.faults.erase(of.faults.begin() + static_cast<std::ptrdiff_t>(i));
        } else {
            ++i;
        }
    }
    return hits;
}

}  // namespace

void reset_allocations() {
    const std::lock_guard locked(book_mutex);
    Book& of = book();
    of.blocks.clear();
    of.faults.clear();
    of.allocations = of.bytes = of.failable = of.failed = 0;
    held.store(0);
}

void set_allocation_fault(const Fault& fault) {
    const std::lock_guard locked(book_mutex);
    book().faults.push_back({fault.nth, fault.persistent, 0});
}

void clear_allocation_faults() {
    const std::lock_guard locked(book_mutex);
    book().faults.clear();
}

std::uint64_t failable_allocations() {
    const std::lock_guard locked(book_mutex);
    return book().failable;
}

std::uint64_t failed_allocations() {
    const std::lock_guard locked(book_mutex);
    return book().failed;
}

void Host::count_allocations(bool on) {
    counting.store(on);
}

std::int64_t Host::blocks_held() const {
    return static_cast<std::int64_t>(held.load());
}

std::uint64_t Host::allocations() const {
    const std::lock_guard locked(book_mutex);
    return book().allocations;
}

std::uint64_t Host::allocated_bytes() const {
    const std::lock_guard locked(book_mutex);
    return book().bytes;
}

}  // namespace simhost

using namespace simhost;

extern "C" int simhost_allocation_fails(std::size_t size, int nothrow) {
    if (!counting.load(std::memory_order_relaxed) || inside_depth > 0) {
        return 0;
    }
    const std::lock_guard locked(book_mutex);
    Book& of = book();
    ++of.allocations;
    of.bytes += size;
    if (nothrow == 0) {
        return 0;
    }
    ++of.failable;
    const bool fails = fault_hits(of);
    of.failed += fails ? 1 : 0;
    return fails ? 1 : 0;
}

extern "C" void simhost_block_allocated(const void* block) {
    if (!counting.load(std::memory_order_relaxed) || inside_depth > 0 || block == nullptr) {
        return;
    }
    const std::lock_guard locked(book_mutex);
    book().blocks.insert(block);
    held.store(book().blocks.size());
}

extern "C" void simhost_block_freed(const void* block) {
    if (block == nullptr || held.load(std::memory_order_relaxed) == 0) {
        return;
    }
    const std::lock_guard locked(book_mutex);
    if (book().blocks.erase(block) > 0) {
        held.store(book().blocks.size());
    }
}
