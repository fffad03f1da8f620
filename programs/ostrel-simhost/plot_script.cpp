#include "plot_script.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "shared/duration.h"
#include "shared/name_list.h"

namespace program {

namespace {

constexpr std::size_t MOST_CURVES = 12;
constexpr std::size_t MOST_EVENTS = 24;  // in the list
constexpr std::size_t MOST_EVENT_LINES = 200;
constexpr std::ptrdiff_t MOST_QUIET_PASSES = 400;  // more would be a grey bar

// In pixels. Panels stand at the left, the legend at their right, the list of events below.
constexpr double WIDTH = 1200;
constexpr double LEFT = 75, RIGHT = 900;
constexpr double TOP = 95, PANEL = 265, GAP = 28, BELOW_PANELS = 92, EVENT_LINE = 22, FOOT = 12;
constexpr double LEGEND_LINE = 25;
constexpr double FONT = 14, TITLE_FONT = 22, LIST_FONT = 14, NOTE_FONT = 13;

// Colours that those with any common colour blindness can tell apart (Okabe and Ito), on white.
constexpr std::array<std::string_view, 7> COLOURS = {"#0072B2", "#E69F00", "#009E73", "#CC79A7",
                                                     "#56B4E9", "#D55E00", "#000000"};
constexpr std::array<std::string_view, 2> DASHES = {"1", "\"-\""};

// A text for gnuplot: in single quotes everything stands for itself but the quote; no markup is on.
std::string quoted(std::string_view text) {
    std::string result = "'";
    for (const char c : text) {
        if (c == '\'') {
            result += "''";
        } else {
            result += static_cast<unsigned char>(c) < ' ' || c == '\x7f' ? '?' : c;
        }
    }
    return result + "'";
}

std::string cut(const std::string& text, std::size_t most) {
    if (text.size() <= most) {
        return text;
    }
    std::size_t end = most - 3;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) {
        --end;
    }
    return text.substr(0, end) + "...";
}

// The note of an event stands two blanks behind it.
std::string one_blank(std::string text) {
    if (const std::size_t note = text.find("  ("); note != std::string::npos) {
        text.erase(note, 1);
    }
    return text;
}

std::string label_of(const std::vector<std::string>& names) {
    constexpr std::size_t most = 34;
    const std::string label = shared::name_list(names, 2);
    return cut(label.size() <= most ? label : shared::name_list(names, 1), most);
}

std::string hours_and_minutes(double seconds) {
    const auto minutes = static_cast<long>(seconds) / 60;
    return fmt::format("{}:{:02}", minutes / 60, minutes % 60);
}

// The step between the marks of the time axis, so that about ten fit.
double time_step(double end) {
    for (const double minutes : {1, 2, 5, 10, 15, 30, 60, 120, 180, 360, 720, 1440, 2880, 10080}) {
        if (end / (minutes * 60) <= 12) {
            return minutes * 60;
        }
    }
    return end / 10;
}

int value_step(int most) {
    for (const int step : {1, 2, 4, 8, 16, 32, 64, 128, 256}) {
        if (most / step <= 8) {
            return step;
        }
    }
    return most / 8;
}

// The number of an event above its line, or those of several that are too close to have one each: "3-4".
struct Mark {
    double time = 0;
    std::size_t first = 0, last = 0;
    int level = 0;  // above the panel

    std::string text() const {
        return first == last ? fmt::format("{}", first + 1) : fmt::format("{}-{}", first + 1, last + 1);
    }
};

// Of the events that are listed.
std::vector<Mark> marks_of(const PlotData& data) {
    constexpr double least_pixels = 48;
    const double least = data.end * least_pixels / (RIGHT - LEFT);
    constexpr int levels = 2;
    std::array<double, levels> taken_up_to{-1, -1};
    std::vector<Mark> marks;
    for (std::size_t i = 0; i < data.events.size() && i < MOST_EVENTS; ++i) {
        const double time = data.events[i].first;
        const auto free = std::find_if(taken_up_to.begin(), taken_up_to.end(), [&](double end) { return end <= time; });
        if (!marks.empty() && (free == taken_up_to.end() || marks.back().time == time)) {
            marks.back().last = i;
        } else {
            *free = time + least;
            marks.push_back({time, i, i, static_cast<int>(free - taken_up_to.begin())});
        }
    }
    return marks;
}

// Whether both have one value for long enough to be seen.
bool meet(const Course& a, const Course& b, double end) {
    std::size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        const double a_ends = i + 1 < a.size() ? a[i + 1].first : end;
        const double b_ends = j + 1 < b.size() ? b[j + 1].first : end;
        const bool at_one_time = std::max(a[i].first, b[j].first) + end / 100 < std::min(a_ends, b_ends);
        if (at_one_time && a[i].second >= 0 && a[i].second == b[j].second) {
            return true;
        }
        ++(a_ends <= b_ends ? i : j);
    }
    return false;
}

class Script {
public:
    Script(const PlotData& data, PlotFormat format)
        : data_(data), marks_(marks_of(data)), font_unit_(format == PlotFormat::svg ? 1 : 0.75) {
        choose_curves();
        event_rows_ = (std::min(data.events.size(), MOST_EVENTS) + 1) / 2;
        const std::size_t event_lines = event_rows_ + (data_.events.size() > MOST_EVENTS ? 1 : 0);
        height_ = TOP + 2 * PANEL + GAP + BELOW_PANELS + static_cast<double>(event_lines) * EVENT_LINE + FOOT;
        add("set encoding utf8");
        add(fmt::format("set terminal {} size {:.0f},{:.0f} noenhanced font '{},{}' background '#ffffff'",
                        format == PlotFormat::svg ? "svg" : "pngcairo", WIDTH, height_,
                        format == PlotFormat::svg ? "DejaVu Sans,Verdana,Arial,sans-serif" : "DejaVu Sans",
                        FONT * font_unit_));
    }

    std::string write() {
        for (std::size_t i = 0; i < chosen_.size(); ++i) {
            add_course("sessions", i, chosen_[i]->sessions);
            add_course("paths", i, chosen_[i]->paths);
        }
        settings();
        add("set multiplot");
        words();
        panel("sessions", "sessions", TOP, false);
        forget_words();
        panel("paths", "active paths", TOP + PANEL + GAP, true);
        add("unset multiplot");
        return std::move(script_);
    }

private:
    void add(const std::string& line) { script_ += line + "\n"; }

    std::string font(double pixels) const { return fmt::format("font ',{}' ", pixels * font_unit_); }

    double x(double pixels) const { return pixels / WIDTH; }
    double y(double pixels_from_top) const { return 1 - pixels_from_top / height_; }

    // Those of most targets, in the order of the targets.
    void choose_curves() {
        for (const Curve& curve : data_.curves) {
            chosen_.push_back(&curve);
        }
        if (chosen_.size() > MOST_CURVES) {
            std::vector<const Curve*> by_size = chosen_;
            std::stable_sort(by_size.begin(), by_size.end(),
                             [](const Curve* a, const Curve* b) { return a->names.size() > b->names.size(); });
            by_size.resize(MOST_CURVES);
            std::erase_if(chosen_, [&](const Curve* curve) {
                return std::find(by_size.begin(), by_size.end(), curve) == by_size.end();
            });
        }
    }

    std::size_t targets_not_drawn() const {
        std::size_t all = 0, drawn = 0;
        for (const Curve& curve : data_.curves) {
            all += curve.names.size();
        }
        for (const Curve* curve : chosen_) {
            drawn += curve->names.size();
        }
        return all - drawn;
    }

    // Curves that share a value at some time are drawn beside each other, not on each other: the first in its place,
    // the others by turns a line's width above and below.
    std::vector<double> offsets(Course Curve::*course, int most) const {
        constexpr double line_pixels = 2.4;
        const double apart = line_pixels * 1.15 * most / PANEL;
        std::vector<int> lanes;
        for (std::size_t i = 0; i < chosen_.size(); ++i) {
            int lane = 0;
            const auto taken = [&](int wanted) {
                for (std::size_t other = 0; other < i; ++other) {
                    if (lanes[other] == wanted && meet(chosen_[i]->*course, chosen_[other]->*course, data_.end)) {
                        return true;
                    }
                }
                return false;
            };
            while (taken(lane)) {
                lane = lane > 0 ? -lane : 1 - lane;
            }
            lanes.push_back(lane);
        }
        std::vector<double> result;
        for (const int lane : lanes) {
            result.push_back(lane * apart);
        }
        return result;
    }

    int most_of(Course Curve::*course) const {
        int most = 1;
        for (const Curve* curve : chosen_) {
            for (const auto& [time, value] : curve->*course) {
                most = std::max(most, value);
            }
        }
        return most;
    }

    void add_course(std::string_view what, std::size_t index, const Course& course) {
        add(fmt::format("${}{} << EOD", what, index));
        int before = -1;
        for (const auto& [time, value] : course) {
            if (before >= 0 && value < 0) {
                add(fmt::format("{:.0f} {}\n", time, before));  // a blank line breaks the curve
            } else if (value >= 0) {
                add(fmt::format("{:.0f} {}", time, value));
            }
            before = value;
        }
        if (before >= 0) {
            add(fmt::format("{:.0f} {}", data_.end, before));
        } else if (course.empty()) {
            add("0 NaN");
        }
        add("EOD");
    }

    void settings() {
        add(fmt::format("set xrange [0:{:.0f}]", std::max(data_.end, 1.0)));
        add("set border 3 linecolor '#555555'");
        add("set tics nomirror out textcolor '#333333'");
        add("set grid ytics linetype 1 linewidth 0.6 linecolor '#e4e4e4'");
        add("unset key");
        for (std::size_t i = 0; i < chosen_.size(); ++i) {
            add(fmt::format("set style line {} linecolor '{}' linewidth 2.2 dashtype {}", i + 1,
                            COLOURS[i % COLOURS.size()], DASHES[i / COLOURS.size() % DASHES.size()]));
        }
    }

    void time_tics(bool with_times) {
        std::string tics;
        const double step = time_step(data_.end);
        for (double time = 0; time <= data_.end + 0.5; time += step) {
            tics += fmt::format("{}{} {:.0f}", tics.empty() ? "" : ", ",
                                quoted(with_times ? hours_and_minutes(time) : ""), time);
        }
        add("set xtics (" + tics + ")");
    }

    void word(const std::string& text, double px, double py, std::string_view more = "") {
        add(fmt::format("set label {} at screen {:.5f},{:.5f} {}", quoted(text), x(px), y(py), more));
    }

    // All words outside the panels; they are drawn with the first of them.
    void words() {
        word(cut(data_.title, 100), LEFT, 24, font(TITLE_FONT) + "textcolor '#111111'");
        word(fmt::format("from 0:00 to {}, {} passes of the connection manager", hours_and_minutes(data_.end),
                         data_.passes.size()),
             LEFT, 48, "textcolor '#555555'");
        legend();
        event_list();
    }

    void legend() {
        double line = TOP + 8;
        for (std::size_t i = 0; i < chosen_.size(); ++i, line += LEGEND_LINE) {
            add(fmt::format("set arrow from screen {0:.5f},{1:.5f} to screen {2:.5f},{1:.5f} nohead linestyle {3}",
                            x(RIGHT + 20), y(line), x(RIGHT + 52), i + 1));
            word(label_of(chosen_[i]->names), RIGHT + 60, line, "textcolor '#111111'");
        }
        if (const std::size_t left_out = data_.curves.size() - chosen_.size(); left_out > 0) {
            word(fmt::format("not drawn: {} more curve{}", left_out, left_out == 1 ? "" : "s"), RIGHT + 20, line,
                 "textcolor '#555555'");
            word(fmt::format("({} target{})", targets_not_drawn(), targets_not_drawn() == 1 ? "" : "s"), RIGHT + 20,
                 line + LEGEND_LINE - 4, "textcolor '#555555'");
        }
        double note = TOP + 2 * PANEL + GAP - 40;
        const std::array<std::string_view, 3> with_quiet = {"ticks: passes; the tall ones", "changed something",
                                                            "numbers: events, listed below"};
        const std::array<std::string_view, 3> without = {"ticks: passes that changed", "something",
                                                         "numbers: events, listed below"};
        for (const std::string_view text : shows_quiet_passes() ? with_quiet : without) {
            word(std::string(text), RIGHT + 20, note, font(NOTE_FONT) + "textcolor '#555555'");
            note += 18;
        }
    }

    void event_list() {
        const double top = TOP + 2 * PANEL + GAP + BELOW_PANELS;
        const std::size_t shown = std::min(data_.events.size(), MOST_EVENTS);
        const double column = (WIDTH - LEFT) / 2;
        for (std::size_t i = 0; i < shown; ++i) {
            const double px = LEFT + (i < event_rows_ ? 0 : column);
            const double py = top + static_cast<double>(i % event_rows_) * EVENT_LINE;
            const auto& [time, text] = data_.events[i];
            word(fmt::format("{}", i + 1), px + 16, py, "right " + font(LIST_FONT) + "textcolor '#B0413E'");
            word(hours_and_minutes(time), px + 68, py, "right " + font(LIST_FONT) + "textcolor '#555555'");
            word(cut(one_blank(text), 60), px + 78, py, font(LIST_FONT) + "textcolor '#111111'");
        }
        if (data_.events.size() > shown) {
            word(fmt::format("and {} events more", data_.events.size() - shown), LEFT,
                 top + static_cast<double>(event_rows_) * EVENT_LINE, font(LIST_FONT) + "textcolor '#555555'");
        }
    }

    void forget_words() {
        add("unset label");
        add("unset arrow");
    }

    void panel(std::string_view what, std::string_view title, double top, bool with_times) {
        const bool upper = !with_times;
        const auto course = upper ? &Curve::sessions : &Curve::paths;
        const int most = most_of(course);
        const auto shifts = offsets(course, most);
        add(fmt::format("set lmargin at screen {:.5f}; set rmargin at screen {:.5f}", x(LEFT), x(RIGHT)));
        add(fmt::format("set tmargin at screen {:.5f}; set bmargin at screen {:.5f}", y(top), y(top + PANEL)));
        add(fmt::format("set yrange [{:.3f}:{:.3f}]", -0.09 * most, 1.06 * most));
        add(fmt::format("set ytics 0,{}", value_step(most)));
        add(fmt::format("set ylabel {} textcolor '#333333' offset 0.5,0", quoted(title)));
        time_tics(with_times);
        add(with_times ? "set xlabel 'time (hours:minutes)' textcolor '#333333'" : "unset xlabel");
        pass_ticks();
        event_marks(top, upper);
        std::string plots;
        for (std::size_t i = 0; i < chosen_.size(); ++i) {
            plots += fmt::format("{} ${}{} using 1:($2+({:.4f})) with steps linestyle {}",
                                 i == 0 ? "plot" : ", \\\n    ", what, i, shifts[i], i + 1);
        }
        add(plots.empty() ? "plot NaN" : plots);
    }

    bool shows_quiet_passes() const {
        return std::count_if(data_.passes.begin(), data_.passes.end(), [](const auto& pass) { return !pass.second; }) <=
               MOST_QUIET_PASSES;
    }

    void pass_ticks() {
        const bool with_quiet = shows_quiet_passes();
        for (const auto& [time, changed] : data_.passes) {
            if (changed || with_quiet) {
                add(fmt::format(
                    "set arrow from {0:.0f}, graph 0 to {0:.0f}, graph {1} nohead linewidth {2} linecolor '{3}'", time,
                    changed ? "0.06" : "0.025", changed ? "1.8" : "0.8", changed ? "#333333" : "#999999"));
            }
        }
    }

    void event_marks(double top, bool with_numbers) {
        double before = -1;
        for (std::size_t i = 0; i < data_.events.size() && i < MOST_EVENT_LINES; ++i) {
            const double time = data_.events[i].first;
            if (time != before) {
                add(fmt::format(
                    "set arrow from {0:.0f}, graph 0 to {0:.0f}, graph 1 nohead back dashtype (4,4) linewidth 1 "
                    "linecolor '#C98886'",
                    time));
            }
            before = time;
        }
        for (const Mark& mark : marks_) {
            if (with_numbers) {
                add(fmt::format("set label {} at {:.0f}, screen {:.5f} center {}textcolor '#B0413E'",
                                quoted(mark.text()), mark.time, y(top - 10 - 15.0 * mark.level), font(LIST_FONT)));
            }
        }
    }

    const PlotData& data_;
    const std::vector<Mark> marks_;
    const double font_unit_;  // a pixel, which is a unit of SVG and three quarters of a point
    std::vector<const Curve*> chosen_;
    std::size_t event_rows_ = 0;
    double height_ = 0;
    std::string script_;
};

}  // namespace

std::string plot_script(const PlotData& data, PlotFormat format) {
    return Script(data, format).write();
}

}  // namespace program
