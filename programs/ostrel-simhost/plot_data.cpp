#include "plot_data.h"

#include <algorithm>
#include <iterator>
#include <set>

namespace ostrel_simhost {

namespace {

void enter(Course& course, double time, int value) {
    if (course.empty() ? value >= 0 : course.back().second != value) {
        course.emplace_back(time, value);
    }
}

int value_at(const Course& course, double time) {
    const auto next =
        std::find_if(course.begin(), course.end(), [time](const auto& step) { return step.first > time; });
    return next == course.begin() ? -1 : std::prev(next)->second;
}

}  // namespace

Course Curve::with_missing_logins() const {
    std::set<double> times;
    for (const Course* const course : {&sessions, &all_sessions}) {
        for (const auto& step : *course) {
            times.insert(step.first);
        }
    }
    Course result;
    for (const double time : times) {
        const int all = value_at(all_sessions, time);
        enter(result, time, all > value_at(sessions, time) ? all : -1);
    }
    return result;
}

void PlotRecord::state(double time, const std::vector<TargetRow>& rows) {
    std::set<std::size_t> seen;
    for (const TargetRow& row : rows) {
        const auto [place, added] = places_.try_emplace(row.name, data_.curves.size());
        if (added) {
            data_.curves.push_back({{row.name}, {}, {}, {}});
        }
        Curve& curve = data_.curves[place->second];
        enter(curve.sessions, time, row.sessions() - row.pending_sessions - row.broken_sessions);
        enter(curve.all_sessions, time, row.sessions());
        enter(curve.paths, time, row.active_paths);
        seen.insert(place->second);
    }
    for (std::size_t i = 0; i < data_.curves.size(); ++i) {
        if (!seen.contains(i)) {
            enter(data_.curves[i].sessions, time, -1);
            enter(data_.curves[i].all_sessions, time, -1);
            enter(data_.curves[i].paths, time, -1);
        }
    }
}

PlotData PlotRecord::finish(double end) {
    std::vector<Curve> drawn;
    for (Curve& curve : data_.curves) {
        const auto alike =
            std::find_if(drawn.begin(), drawn.end(), [&](const Curve& other) { return other.same_course(curve); });
        if (alike == drawn.end()) {
            drawn.push_back(std::move(curve));
        } else {
            alike->names.push_back(std::move(curve.names.front()));
        }
    }
    data_.curves = std::move(drawn);
    data_.end = end;
    return std::move(data_);
}

}  // namespace ostrel_simhost
