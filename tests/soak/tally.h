// What a run did, counted by name. Plain memory: seeds run in processes of their own and hand theirs over shared.
#pragma once

#include <cstdint>
#include <string_view>

namespace soak {

struct Tally {
    std::uint64_t passes = 0;
    double seconds = 0;  // simulated
    std::uint64_t violations = 0;

    std::uint64_t& of(std::string_view what);
    void add(const Tally& other);
    void print() const;

private:
    struct Count {
        char name[48];  // empty behind the last one
        std::uint64_t number;
    };
    Count counts_[96]{};
};

}  // namespace soak
