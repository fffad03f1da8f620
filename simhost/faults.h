// Counted operations and the faults set on them. Guarded by its owner's lock.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simhost/host.h"

namespace simhost {

class FaultBook {
public:
    // Counts a call; the fault it meets, if any. `path` is the path on the host of a file operation.
    std::optional<Fault> hit(std::string_view operation, std::string_view path);
    void set(const Fault& fault);
    void clear();
    std::uint64_t calls(std::string_view operation, std::string_view path_contains) const;
    std::uint64_t injected() const { return injected_; }
    std::vector<std::string> called() const;

private:
    struct Armed {
        Fault fault;
        std::uint64_t seen = 0;
    };
    struct CountedOperation {
        std::uint64_t calls = 0;
        std::map<std::string, std::uint64_t, std::less<>> calls_by_path;  // of file operations
        std::vector<Armed> armed;
    };
    std::map<std::string, CountedOperation, std::less<>> operations_;
    std::uint64_t injected_ = 0;
};

}  // namespace simhost
