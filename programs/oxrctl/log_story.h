// What a log tells, put together message by message: the worker, its passes, the targets, renewals, and what went
// wrong since all was well.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "oxrctl/log_lines.h"

namespace oxrctl {

// A volume, or a group-scoped target with what stands behind it, as the last pass that looked at it found it.
struct TargetStory {
    static constexpr int unknown = -1;

    std::string iqn;
    std::vector<std::string> devices;
    bool group_scoped = false;
    bool static_mode = false;
    bool mode_changed = false;
    int nics = unknown;
    int arrays = unknown;
    int required = unknown;
    int paths = unknown;     // active ones
    int sessions = unknown;  // all; told only when they aren't as required
    int pending = unknown;   // of them, those still logging in
    int added = 0;           // in that pass
    int removed = 0;
    bool cut_short = false;  // by the host's ceiling
    bool unread = false;     // its sessions could not be read
    int pass = 0;
};

// Sessions that a pass added to or removed from one target.
struct ChangeStory {
    std::string time;
    int pass = 0;
    std::string target;  // its IQN
    int added = 0;
    int removed = 0;
};

// Messages of one place in the source.
struct TroubleStory {
    std::string level;
    std::string place;  // "OstrelConnections: populate_oxr_sessions"
    std::string text;   // of the last one
    std::string first;  // times
    std::string last;
    int times = 0;
};

struct Story {
    enum class Worker { unknown, sleeping, in_pass, held_off, held_off_by_renewal, stopped };

    std::string first_time, last_time;
    std::size_t messages = 0;
    std::size_t unreadable_lines = 0;  // not empty, and not of a message

    Worker worker = Worker::unknown;
    std::string worker_since;
    std::vector<std::pair<std::string, std::string>> values;  // keys and values of the last cycle
    int passes = 0;                                           // that ended
    std::string last_pass;                                    // when the last one that ended began
    std::string last_good_pass;                               // the last one without a warning or an error
    int volumes = TargetStory::unknown, paths = TargetStory::unknown, sessions = TargetStory::unknown;
    bool path_limit = false;  // the last pass found too many paths

    bool renewal_under_way = false;
    std::string renewal_since, renewal_target;  // the target of the one under way
    std::string last_renewal;                   // when the last one ended
    int last_renewal_status = TargetStory::unknown;

    std::vector<TargetStory> targets;   // of the last pass
    std::vector<ChangeStory> changes;   // all, the oldest first
    std::vector<TroubleStory> trouble;  // since the last good pass, the most frequent first
};

// A target's sessions at the last pass. The log tells them only of a target that doesn't have its number; else the
// number is the one that the pass saw.
int sessions_of(const Story& story, const TargetStory& target);

// Reads the files' messages in their order.
Story read_story(const std::vector<LogFile>& files);

}  // namespace oxrctl
