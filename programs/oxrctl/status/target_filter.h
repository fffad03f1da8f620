// Which targets `oxrctl status` was asked for.
#pragma once

#include <string>

#include "oxrctl/status/log_story.h"

namespace oxrctl {

struct TargetFilter {
    std::string volume;   // pattern of the shell on a volume's name or an IQN; empty: all
    std::string adapter;  // empty: any
    bool problems = false;

    bool is_set() const { return !volume.empty() || !adapter.empty() || problems; }

    // Leaves in the story only the targets that were asked for, and their changes: a volume with the others of its
    // target; of those that are gone, the ones that may be there yet or were asked for by name. False: the log tells of
    // none with the volume or at the adapter.
    [[nodiscard]] bool apply(Story& story) const;

    // "at adapter vmhba64, with a problem"; empty: all.
    std::string text() const;

    // What a message that names the volume is like; empty: no volume was asked for.
    std::string naming() const { return volume.empty() ? "" : "*" + volume + "*"; }
};

}  // namespace oxrctl
