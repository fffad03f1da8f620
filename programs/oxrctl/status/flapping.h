// Sessions that passes add and remove by turns, as when two volumes with different needs share a target.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "oxrctl/status/log_story.h"

namespace oxrctl {

class FlappingWatch {
public:
    // Of `changes`, those of the pass that ended.
    void end_pass(int pass, const std::deque<ChangeStory>& changes);

    // The targets that still flap at `pass`.
    std::vector<FlappingStory> found(int pass, const std::vector<TargetStory>& targets) const;

private:
    struct Turns {
        int direction = 0;  // of the last change: 1 added, -1 removed
        int pass = 0;
        int turns = 0;
    };
    std::map<std::string, Turns> targets_;  // by IQN
};

}  // namespace oxrctl
