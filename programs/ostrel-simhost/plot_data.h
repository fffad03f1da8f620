// What a picture of a run shows: the course of each target's sessions and paths, the passes, the events.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "record.h"

namespace ostrel_simhost {

// A step line: from each time on its value stands. A negative value: the target isn't there.
using Course = std::vector<std::pair<double, int>>;

struct Curve {
    std::vector<std::string> names;  // of the targets with this course
    Course sessions;                 // those that are logged in
    Course all_sessions;
    Course paths;

    bool same_course(const Curve& other) const {
        return sessions == other.sessions && all_sessions == other.all_sessions && paths == other.paths;
    }
    // All sessions while some aren't logged in.
    Course with_missing_logins() const;
};

struct PlotData {
    std::string title;
    double end = 0;
    std::vector<Curve> curves;                           // in the order of the targets
    std::vector<std::pair<double, bool>> passes;         // their ends; whether they changed something
    std::vector<std::pair<double, std::string>> events;  // what the scenario or an operator did
};

// Gathers it while a run goes on. Only changes are kept, so that a run of months has room.
class PlotRecord {
public:
    explicit PlotRecord(std::string title = "") { data_.title = std::move(title); }

    void state(double time, const std::vector<TargetRow>& rows);
    void pass(double time, bool changed) { data_.passes.emplace_back(time, changed); }
    void event(double time, const std::string& text) { data_.events.emplace_back(time, text); }
    PlotData finish(double end);

private:
    PlotData data_;
    std::map<std::string, std::size_t> places_;  // of a target in data_.curves
};

}  // namespace ostrel_simhost
