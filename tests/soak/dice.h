// Chance from a seed alone: the same numbers with every compiler.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <random>

namespace soak {

class Dice {
public:
    explicit Dice(std::uint64_t seed) : engine_(seed) {}

    template <typename Number>
    Number any(Number least, Number most) {
        return least + static_cast<Number>(engine_() % static_cast<std::uint64_t>(most - least + 1));
    }
    bool one_in(int times) { return any(1, times) == 1; }
    double seconds(double most) { return most * any(0, 1'000'000) / 1e6; }

    template <typename Items>
    const auto& pick(const Items& items) {
        return *std::next(std::begin(items), any<std::ptrdiff_t>(0, std::ssize(items) - 1));
    }

private:
    std::mt19937_64 engine_;
};

}  // namespace soak
