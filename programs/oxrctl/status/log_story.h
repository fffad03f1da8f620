// What a log tells, put together message by message: the worker, its passes, the targets, renewals, and what went
// wrong since all was well.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "oxrctl/status/log_time.h"

namespace oxrctl {

// A session as a DEBUG log tells it; what it doesn't tell is empty.
struct SessionStory {
    std::string isid, local_address, remote_address, adapter, state;
};

// A volume, or a group-scoped target with what stands behind it, as the last pass that looked at it found it.
struct TargetStory {
    static constexpr int unknown = -1;

    std::string iqn;
    std::vector<std::string> devices;
    std::vector<std::string> adapters;        // told by a DEBUG log only
    std::vector<SessionStory> sessions_seen;  // the same
    bool group_scoped = false;
    bool static_mode = false;
    bool mode_changed = false;
    int nics = unknown;
    int arrays = unknown;
    int required = unknown;
    int paths = unknown;       // active ones
    int dead_paths = unknown;  // of a volume told by a DEBUG log only
    int sessions = unknown;    // all; told only when they aren't as required
    int pending = unknown;     // of them, those still logging in
    int added = 0;             // in that pass
    int removed = 0;
    int left = unknown;         // sessions after that pass, whichever volume of the target they were told of
    int in_use = 0;             // surplus sessions that stay because they carry active paths
    int passes_logging_in = 0;  // without a break, up to this one
    bool cut_short = false;     // by the host's limit of sessions
    bool unread = false;        // its sessions could not be read
    bool untold = false;        // of one that is gone: it may be among those that the last pass found and didn't tell
    int pass = 0;
    LogSeconds seen = NO_TIME;  // when that pass looked at it
};

// Sessions that a pass added to or removed from one target.
struct ChangeStory {
    std::string time;
    int pass = 0;
    std::string target;  // its IQN
    int added = 0;
    int removed = 0;
    std::vector<std::string> over;  // local addresses and adapters of attempts: "+ 10.0.1.1 vmhba64"
};

// A warning or an error that names what is looked for.
struct NamingMessage {
    std::string time, level, text;
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

// Sessions of a target that passes in a row added and removed by turns.
struct FlappingStory {
    std::string iqn;
    std::vector<std::string> devices;
    int turns = 0;
};

// Up to where a log was counted: the last message's time, and how many messages bear that second.
struct LogPosition {
    LogSeconds time = NO_TIME;
    std::uint64_t messages = 0;
};

// What happened since a position.
struct Totals {
    std::int64_t passes = 0, good_passes = 0, added = 0, removed = 0;
    std::map<std::pair<std::string, std::string>, std::int64_t> messages;  // ERROR and WARN, by level and subject
};

struct Story {
    enum class Worker { unknown, sleeping, in_pass, held_off, held_off_by_renewal, stopped };

    std::string first_time, last_time;
    LogSeconds first = NO_TIME;
    LogPosition last;     // the last message
    LogPosition counted;  // up to where the totals go: the end of a cycle
    std::size_t messages = 0;
    int steps_back = 0;                // of the time, from a message to the next
    std::size_t unreadable_lines = 0;  // not empty, and not of a message

    Worker worker = Worker::unknown;
    std::string worker_since;
    int held_off_cycles = 0;                                  // by a renewal, without a break
    std::vector<std::pair<std::string, std::string>> values;  // keys and values of the last cycle
    int interval = TargetStory::unknown;                      // seconds
    int passes = 0;                                           // that ended
    int ended_pass = 0;                                       // the last of them, as targets count passes
    std::string last_pass;                                    // when the last one that ended began
    std::string last_good_pass;                               // the last one without a warning or an error
    LogSeconds last_pass_began = NO_TIME, last_good_pass_began = NO_TIME;
    int pass_seconds = TargetStory::unknown;  // of the last cycle with a pass
    int longest_pass = 0;                     // seconds
    int volumes = TargetStory::unknown, paths = TargetStory::unknown, sessions = TargetStory::unknown;
    bool path_limit = false;            // the last pass found too many paths
    int without_nics = 0;               // volumes of the last pass whose paths are all gone: the log doesn't name them
    std::vector<std::string> vanished;  // volumes that only earlier passes told of, when there are such
    int untold = 0;                     // volumes that the last pass that ended found and didn't tell

    bool renewal_under_way = false;
    std::string renewal_since, renewal_target;  // the target of the one under way
    std::string last_renewal;                   // when the last one ended
    int last_renewal_status = TargetStory::unknown;

    std::vector<TargetStory> targets;   // of the last pass
    std::vector<TargetStory> gone;      // that only earlier ones found; as many as memory is kept for
    std::deque<ChangeStory> changes;    // the oldest first
    std::size_t earlier_changes = 0;    // older ones, which are not kept
    std::vector<TroubleStory> trouble;  // since the last good pass, the worst first
    std::vector<FlappingStory> flapping;
    std::deque<NamingMessage> naming;  // the last ones
    Totals totals;
};

// A configuration value of the last cycle, as logged; empty: not told.
std::string value_of(const Story& story, std::string_view key);

// A target's sessions at the last pass. The log tells them only of a target that doesn't have its number; else the
// number is the one that the pass saw.
int sessions_of(const Story& story, const TargetStory& target);

// How many sessions a target lacks after the last pass that ended, by its paths where its sessions are not known; 0
// also when nothing is known.
int missing_sessions(const Story& story, const TargetStory& target);

// Whether the targets are those of a pass that ended: it may have found volumes and told none.
bool knows_targets(const Story& story);

// How many targets there are, with those that may be among the untold.
std::size_t present_targets(const Story& story);

// How many targets lack sessions; unknown where the targets are.
int short_targets(const Story& story);

// The dead paths of all targets; unknown when the log doesn't tell those of each.
int dead_paths(const Story& story);

// Takes the lines of a log in their order. Memory doesn't grow with the log.
class StoryReader {
public:
    // Totals are counted of the whole cycles behind `since`.
    // `naming`: a pattern of the shell; warnings and errors with such a text are kept. Empty: none is.
    explicit StoryReader(LogPosition since = {}, std::string naming = "");
    ~StoryReader();
    StoryReader(StoryReader&&) noexcept;

    void take(std::string_view line);

    // What was taken. The reader is used up.
    Story finish();

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace oxrctl
