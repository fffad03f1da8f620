#include "oxrctl/status/flapping.h"

#include <algorithm>
#include <utility>

namespace oxrctl {

namespace {

constexpr int MOST_PASSES_BETWEEN = 2;
constexpr int LEAST_TURNS = 3;

}  // namespace

void FlappingWatch::end_pass(int pass, const std::deque<ChangeStory>& changes) {
    std::map<std::string, std::pair<int, int>> sums;
    for (auto change = changes.rbegin(); change != changes.rend() && change->pass == pass; ++change) {
        sums[change->target].first += change->added;
        sums[change->target].second += change->removed;
    }
    std::erase_if(targets_, [pass](const auto& each) { return pass - each.second.pass > MOST_PASSES_BETWEEN; });
    for (const auto& [iqn, sum] : sums) {
        Turns& target = targets_[iqn];
        const auto [added, removed] = sum;
        const int direction = added > 0 && removed > 0 ? -target.direction : added > 0 ? 1 : -1;
        target.turns = direction == -target.direction ? target.turns + 1 : 0;
        target.direction = direction != 0 ? direction : 1;
        target.pass = pass;
    }
}

std::vector<FlappingStory> FlappingWatch::found(int pass, const std::vector<TargetStory>& targets) const {
    std::vector<FlappingStory> all;
    for (const auto& [iqn, turns] : targets_) {
        if (turns.turns < LEAST_TURNS || pass - turns.pass > MOST_PASSES_BETWEEN) {
            continue;
        }
        FlappingStory found{iqn, {}, turns.turns};
        for (const TargetStory& target : targets) {
            if (target.iqn == iqn) {
                found.devices.insert(found.devices.end(), target.devices.begin(), target.devices.end());
            }
        }
        all.push_back(std::move(found));
    }
    return all;
}

}  // namespace oxrctl
