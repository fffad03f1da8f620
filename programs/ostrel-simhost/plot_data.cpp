#include "plot_data.h"

#include <algorithm>
#include <set>

namespace program {

namespace {

void enter(Course& course, double time, int value) {
    if (course.empty() ? value >= 0 : course.back().second != value) {
        course.emplace_back(time, value);
    }
}

}  // namespace

void PlotRecord::state(double time, const std::vector<TargetRow>& rows) {
    std::set<std::size_t> seen;
    for (const TargetRow& row : rows) {
        const auto [place, added] = places_.try_emplace(row.name, data_.curves.size());
        if (added) {
            data_.curves.push_back({{row.name}, {}, {}});
        }
        Curve& curve = data_.curves[place->second];
        enter(curve.sessions, time, row.sessions());
        enter(curve.paths, time, row.active_paths);
        seen.insert(place->second);
    }
    for (std::size_t i = 0; i < data_.curves.size(); ++i) {
        if (!seen.contains(i)) {
            enter(data_.curves[i].sessions, time, -1);
            enter(data_.curves[i].paths, time, -1);
        }
    }
}

PlotData PlotRecord::finish(double end) {
    std::vector<Curve> drawn;
    for (Curve& curve : data_.curves) {
        const auto alike = std::find_if(drawn.begin(), drawn.end(), [&](const Curve& other) {
            return other.sessions == curve.sessions && other.paths == curve.paths;
        });
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

}  // namespace program
