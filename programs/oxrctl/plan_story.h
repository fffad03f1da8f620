// What a run of ostrel-simhost tells of a host: the objects of its output, taken one by one and summed up.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "oxrctl/command.h"
#include "shared/value_not_taken.h"

namespace oxrctl {

struct PlanTarget {
    std::string name;
    bool group_scoped = false;
    std::string mode;  // "dynamic", "static"
    bool supported = true;
    int volumes = 1;
    int required = 0;
    int sessions = 0;
    int short_by = 0;  // sessions that it lacks
    int active_paths = 0;
    std::map<std::string, int> by_address;  // sessions on each local address of the target's adapters

    bool same_state(const PlanTarget& other) const;  // everything but the name
};

// The time from the start, or from an event of the scenario, to the next event.
struct PlanPhase {
    enum class End {
        settled,    // nothing was left to do
        unsettled,  // nothing more was done, yet the host has not what it needs
        changing,   // the last pass still changed something
        skipped,    // worker_stop was set
        no_pass
    };
    double began = 0;
    std::vector<std::string> events;  // that happened at this time
    int passes = 0;                   // up to the last that changed something
    double seconds = 0;               // until its end
    int all_passes = 0;
    int skipped_passes = 0;
    bool last_changed = false;
    End end = End::no_pass;  // with the phase
};

struct Plan {
    std::string scenario, title;
    double seconds = 0;                            // looked ahead
    std::vector<shared::ValueNotTaken> not_taken;  // when the service starts
    std::vector<std::string> addresses;
    std::vector<PlanTarget> targets;  // at the end
    std::vector<PlanPhase> phases;
    int passes = 0;
    int skipped_passes = 0;                 // of them
    int sessions = 0, paths = 0;            // at the end
    int most_sessions = 0, most_paths = 0;  // at the worst moment
    int session_limit = 0, path_limit = 0;
    bool settled = false;                     // as far as was looked
    double next_event = -1;                   // of the scenario, that was not looked at any more; < 0: there is none
    std::vector<std::string> reasons, notes;  // the judgement of ostrel-simhost
    std::vector<std::string> violations;
    bool complete = false;  // the verdict was there

    bool all_skipped() const { return passes > 0 && skipped_passes == passes; }
    bool limit_reached() const { return most_sessions >= session_limit || most_paths >= path_limit; }
    std::vector<const PlanTarget*> short_targets() const;
    bool fine() const { return settled && violations.empty() && short_targets().empty(); }
};

// Takes the output in pieces of any size. What is no object of it is passed by.
class PlanReader {
public:
    void take(std::string_view piece);
    Plan finish();

private:
    void take_line(std::string_view line);
    void begin(const Json& object);
    void event(const Json& object);
    void pass(const Json& object);
    void verdict(const Json& object);

    std::string pending_;
    Plan plan_;
};

}  // namespace oxrctl
