// Chance from a seed alone: the same numbers with every compiler.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace soak {

class Dice {
public:
    explicit Dice(std::uint64_t seed) : engine_(seed) {}

    int any(int least, int most) {
        return least + static_cast<int>(engine_() % static_cast<std::uint64_t>(most - least + 1));
    }
    bool one_in(int times) { return any(1, times) == 1; }
    double seconds(double most) { return most * any(0, 1'000'000) / 1e6; }

    template <typename Item>
    const Item& pick(const std::vector<Item>& items) {
        return items[static_cast<std::size_t>(any(0, static_cast<int>(items.size()) - 1))];
    }

private:
    std::mt19937_64 engine_;
};

}  // namespace soak
