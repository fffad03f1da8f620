#include "plot_script.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "shared/duration.h"
#include "shared/name_list.h"

namespace ostrel_simhost {

namespace {

constexpr std::size_t MOST_CURVES = 12;
constexpr std::size_t MOST_EVENTS = 24;  // in the list
constexpr std::size_t MOST_EVENT_LINES = 200;
constexpr std::ptrdiff_t MOST_QUIET_PASSES = 400;  // more would be a grey bar

// In pixels. Panels stand at the left, the legend at their right, the list of events below.
constexpr double WIDTH = 1200;
constexpr double LEFT = 75, RIGHT = 900;
constexpr double TOP = 95, PANEL = 265, GAP = 28, BELOW_PANELS = 92, EVENT_LINE = 22, FOOT = 12;
constexpr double LEGEND_LINE = 25, NOTE_LINE = 18, TITLE_LINE = 28;
constexpr double EVENT_COLUMN = (WIDTH - LEFT) / 2;
constexpr double FONT = 14, TITLE_FONT = 22, LIST_FONT = 14, NOTE_FONT = 13;

// Colours that those with any common colour blindness can tell apart (Okabe and Ito), on white.
constexpr std::array<std::string_view, 7> COLOURS = {"#0072B2", "#E69F00", "#009E73", "#CC79A7",
                                                     "#56B4E9", "#D55E00", "#000000"};
constexpr std::array<std::string_view, 2> DASHES = {"1", "\"-\""};

// A text for gnuplot: in single quotes everything stands for itself but the quote; no markup is on.
std::string in_quotes(std::string_view text) {
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

// How wide a letter of the usual fonts is, of their height; rather too much than too little.
double width_of(unsigned char letter) {
    constexpr std::string_view narrow = "iljtfrI.,:;'|!()[]- ", wide = "mwMW@%";
    if ((letter & 0xC0U) == 0x80U) {
        return 0;  // goes on with a letter in UTF-8
    }
    const char c = static_cast<char>(letter);
    return narrow.find(c) != std::string_view::npos ? 0.39 : wide.find(c) != std::string_view::npos ? 1.0 : 0.64;
}

double width_of(std::string_view text, double font) {
    double width = 0;
    for (const char c : text) {
        width += width_of(static_cast<unsigned char>(c)) * font;
    }
    return width;
}

// How much of a line stays when it is broken: up to its last blank, else its last hyphen, else all.
std::size_t break_of(std::string_view line) {
    const std::size_t blank = line.rfind(' ');
    const std::size_t hyphen = line.rfind('-');
    return blank != std::string_view::npos ? blank + 1 : hyphen != std::string_view::npos ? hyphen + 1 : line.size();
}

// The text in lines of at most so many pixels.
std::vector<std::string> folded(std::string_view text, double pixels, double font) {
    std::vector<std::string> lines{""};
    for (const char c : text) {
        std::string& line = lines.back();
        const bool begins_letter = width_of(static_cast<unsigned char>(c)) > 0;
        if (begins_letter && c != ' ' && !line.empty() && width_of(line + c, font) > pixels) {
            std::string rest = line.substr(break_of(line));
            line.resize(break_of(line));
            lines.push_back(std::move(rest));
        }
        lines.back() += c;
    }
    return lines;
}

// The note of an event stands two blanks behind it.
std::string one_blank(std::string text) {
    if (const std::size_t note = text.find("  ("); note != std::string::npos) {
        text.erase(note, 1);
    }
    return text;
}

std::vector<std::string> label_of(const std::vector<std::string>& names) {
    constexpr std::size_t most = 34;
    constexpr double pixels = WIDTH - RIGHT - 62;
    const std::string label = shared::name_list(names, 2);
    return folded(label.size() <= most ? label : shared::name_list(names, 1), pixels, FONT);
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

// How the values of a panel stand: from 0 on in equal steps, or by powers of two, so that a target with very many
// doesn't flatten the others.
struct Scale {
    bool is_logarithmic = false;
    double top = 1;  // where the largest value stands

    double operator()(double value) const { return is_logarithmic ? std::log2(1 + value) : value; }

    Scale(std::vector<int> largest_of_each) {
        constexpr int far_apart = 6;
        std::erase(largest_of_each, 0);
        if (!largest_of_each.empty()) {
            std::sort(largest_of_each.begin(), largest_of_each.end());
            const int largest = largest_of_each.back();
            is_logarithmic = largest > far_apart * largest_of_each[(largest_of_each.size() - 1) / 2];
            top = (*this)(largest);
        }
    }
};

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
        for (const Curve* curve : chosen_) {
            has_missing_logins_.push_back(!curve->with_missing_logins().empty());
        }
        title_ = folded(data_.title, WIDTH - LEFT - 10, TITLE_FONT);
        top_ = TOP + static_cast<double>(title_.size() - 1) * TITLE_LINE;
        lay_out_events();
        const double events = static_cast<double>(std::max(event_lines_[0], event_lines_[1])) * EVENT_LINE;
        double legend_lines = 0;
        for (const Curve* curve : chosen_) {
            legend_lines += static_cast<double>(label_of(curve->names).size());
        }
        const double legend = top_ + (legend_lines + 2) * LEGEND_LINE + 4 * NOTE_LINE;
        panel_ = std::max(PANEL, (legend - top_ - GAP) / 2);
        events_top_ = top_ + 2 * panel_ + GAP + BELOW_PANELS;
        height_ = events_top_ + events + (data_.events.size() > MOST_EVENTS ? EVENT_LINE : 0) + FOOT;
        add("set encoding utf8");
        add(fmt::format("set terminal {} size {:.0f},{:.0f} noenhanced font '{},{}' background '#ffffff'",
                        format == PlotFormat::svg ? "svg" : "pngcairo", WIDTH, height_,
                        format == PlotFormat::svg ? "DejaVu Sans,Verdana,Arial,sans-serif" : "DejaVu Sans",
                        FONT * font_unit_));
    }

    std::string write() {
        for (std::size_t i = 0; i < chosen_.size(); ++i) {
            add_course("sessions", i, chosen_[i]->sessions);
            if (has_missing_logins_[i]) {
                add_course("all", i, chosen_[i]->with_missing_logins());
            }
            add_course("paths", i, chosen_[i]->paths);
        }
        settings();
        add("set multiplot");
        words();
        panel("sessions", "sessions", top_, false);
        forget_words();
        panel("paths", "active paths", top_ + panel_ + GAP, true);
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
    std::vector<double> offsets(Course Curve::*course, double top) const {
        constexpr double line_pixels = 2.4;
        const double apart = line_pixels * 1.15 * top / panel_;
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

    std::vector<int> largest_of_each(Course Curve::*course) const {
        std::vector<int> result;
        for (const Curve* curve : chosen_) {
            int& most = result.emplace_back(0);
            for (const auto& [time, value] : curve->*course) {
                most = std::max(most, value);
            }
        }
        return result;
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
            add(fmt::format("set style line {} linecolor '{}' linewidth 2.2 dashtype (2,3)", dotted(i),
                            COLOURS[i % COLOURS.size()]));
        }
    }

    // The style of a curve's sessions that are not all logged in.
    static std::size_t dotted(std::size_t curve) { return MOST_CURVES + curve + 1; }

    void time_tics(bool with_times) {
        std::string tics;
        const double step = time_step(data_.end);
        for (double time = 0; time <= data_.end + 0.5; time += step) {
            tics += fmt::format("{}{} {:.0f}", tics.empty() ? "" : ", ",
                                in_quotes(with_times ? hours_and_minutes(time) : ""), time);
        }
        add("set xtics (" + tics + ")");
    }

    void word(const std::string& text, double px, double py, std::string_view more = "") {
        add(fmt::format("set label {} at screen {:.5f},{:.5f} {}", in_quotes(text), x(px), y(py), more));
    }

    // All words outside the panels; they are drawn with the first of them.
    void words() {
        for (std::size_t i = 0; i < title_.size(); ++i) {
            word(title_[i], LEFT, 24 + static_cast<double>(i) * TITLE_LINE, font(TITLE_FONT) + "textcolor '#111111'");
        }
        word(fmt::format("from 0:00 to {}, {} passes of the connection manager", hours_and_minutes(data_.end),
                         data_.passes.size()),
             LEFT, top_ - 47, "textcolor '#555555'");
        legend();
        event_list();
    }

    // A sample of a line at the left of the legend.
    void sample(double line, std::size_t style) {
        add(fmt::format("set arrow from screen {0:.5f},{1:.5f} to screen {2:.5f},{1:.5f} nohead linestyle {3}",
                        x(RIGHT + 20), y(line), x(RIGHT + 52), style));
    }

    void legend() {
        double line = top_ + 8;
        for (std::size_t i = 0; i < chosen_.size(); ++i) {
            sample(line, i + 1);
            for (const std::string& part : label_of(chosen_[i]->names)) {
                word(part, RIGHT + 60, line, "textcolor '#111111'");
                line += LEGEND_LINE;
            }
        }
        if (const std::size_t left_out = data_.curves.size() - chosen_.size(); left_out > 0) {
            word(fmt::format("not drawn: {} more curve{}", left_out, left_out == 1 ? "" : "s"), RIGHT + 20, line,
                 "textcolor '#555555'");
            word(fmt::format("({} target{})", targets_not_drawn(), targets_not_drawn() == 1 ? "" : "s"), RIGHT + 20,
                 line + LEGEND_LINE - 4, "textcolor '#555555'");
        }
        notes();
    }

    void notes() {
        std::vector<std::string> lines;
        const auto with_logins = std::find(has_missing_logins_.begin(), has_missing_logins_.end(), true);
        if (with_logins != has_missing_logins_.end()) {
            lines.insert(lines.end(), {"         with sessions that are", "         not logged in"});
        }
        const std::vector<std::string> ticks =
            shows_quiet_passes() ? std::vector<std::string>{"ticks: passes; the tall ones", "changed something"}
                                 : std::vector<std::string>{"ticks: passes that changed", "something"};
        lines.insert(lines.end(), ticks.begin(), ticks.end());
        lines.emplace_back("numbers: events, listed below");
        double line = top_ + 2 * panel_ + GAP + 14 - static_cast<double>(lines.size()) * NOTE_LINE;
        if (with_logins != has_missing_logins_.end()) {
            sample(line, dotted(static_cast<std::size_t>(with_logins - has_missing_logins_.begin())));
        }
        for (const std::string& text : lines) {
            word(text, RIGHT + 20, line, font(NOTE_FONT) + "textcolor '#555555'");
            line += NOTE_LINE;
        }
    }

    // Two columns, as long as each other.
    void lay_out_events() {
        for (std::size_t i = 0; i < data_.events.size() && i < MOST_EVENTS; ++i) {
            events_.push_back(folded(one_blank(data_.events[i].second), EVENT_COLUMN - 90, LIST_FONT));
        }
        in_first_column_ = (events_.size() + 1) / 2;
        for (std::size_t i = 0; i < events_.size(); ++i) {
            event_lines_[i < in_first_column_ ? 0 : 1] += events_[i].size();
        }
    }

    void event_list() {
        double py = events_top_;
        for (std::size_t i = 0; i < events_.size(); ++i) {
            const double px = LEFT + (i < in_first_column_ ? 0 : EVENT_COLUMN);
            py = i == in_first_column_ ? events_top_ : py;
            word(fmt::format("{}", i + 1), px + 16, py, "right " + font(LIST_FONT) + "textcolor '#B0413E'");
            word(hours_and_minutes(data_.events[i].first), px + 68, py,
                 "right " + font(LIST_FONT) + "textcolor '#555555'");
            for (const std::string& line : events_[i]) {
                word(line, px + 78, py, font(LIST_FONT) + "textcolor '#111111'");
                py += EVENT_LINE;
            }
        }
        if (data_.events.size() > events_.size()) {
            const double lines = static_cast<double>(std::max(event_lines_[0], event_lines_[1]));
            word(fmt::format("and {} events more", data_.events.size() - events_.size()), LEFT,
                 events_top_ + lines * EVENT_LINE, font(LIST_FONT) + "textcolor '#555555'");
        }
    }

    void forget_words() {
        add("unset label");
        add("unset arrow");
    }

    void panel(std::string_view what, std::string_view title, double top, bool with_times) {
        const bool upper = !with_times;
        const auto course = upper ? &Curve::sessions : &Curve::paths;
        const std::vector<int> largest = largest_of_each(upper ? &Curve::all_sessions : &Curve::paths);
        const Scale scale(largest);
        const auto shifts = offsets(course, scale.top);
        add(fmt::format("set lmargin at screen {:.5f}; set rmargin at screen {:.5f}", x(LEFT), x(RIGHT)));
        add(fmt::format("set tmargin at screen {:.5f}; set bmargin at screen {:.5f}", y(top), y(top + panel_)));
        add(fmt::format("set yrange [{:.3f}:{:.3f}]", -0.09 * scale.top, 1.06 * scale.top));
        value_tics(scale, largest.empty() ? 1 : *std::max_element(largest.begin(), largest.end()));
        add(fmt::format("set ylabel {} textcolor '#333333' offset 0.5,0",
                        in_quotes(fmt::format("{}{}", title, scale.is_logarithmic ? " (by powers of two)" : ""))));
        time_tics(with_times);
        add(with_times ? "set xlabel 'time (hours:minutes)' textcolor '#333333'" : "unset xlabel");
        pass_ticks();
        event_marks(top, upper);
        const std::string_view value = scale.is_logarithmic ? "log(1+$2)/log(2)" : "$2";
        std::string plots;
        const auto plot = [&](std::string_view data, std::size_t i, std::size_t style) {
            plots += fmt::format("{} ${}{} using 1:({}+({:.4f})) with steps linestyle {}",
                                 plots.empty() ? "plot" : ", \\\n    ", data, i, value, shifts[i], style);
        };
        for (std::size_t i = 0; i < chosen_.size(); ++i) {
            if (upper && has_missing_logins_[i]) {
                plot("all", i, dotted(i));
            }
            plot(what, i, i + 1);
        }
        add(plots.empty() ? "plot NaN" : plots);
    }

    void value_tics(const Scale& scale, int largest) {
        if (!scale.is_logarithmic) {
            add(fmt::format("set ytics 0,{}", value_step(largest)));
            return;
        }
        std::string tics = "'0' 0";
        constexpr double apart = 0.6;
        for (int value = 1; scale(value) + apart < scale.top; value *= 2) {
            tics += fmt::format(", '{}' {:.4f}", value, scale(value));
        }
        tics += fmt::format(", '{}' {:.4f}", largest, scale.top);
        add("set ytics (" + tics + ")");
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
                                in_quotes(mark.text()), mark.time, y(top - 10 - 15.0 * mark.level), font(LIST_FONT)));
            }
        }
    }

    const PlotData& data_;
    const std::vector<Mark> marks_;
    const double font_unit_;  // a pixel, which is a unit of SVG and three quarters of a point
    std::vector<const Curve*> chosen_;
    std::vector<bool> has_missing_logins_;          // of them
    std::vector<std::string> title_;                // in lines
    std::vector<std::vector<std::string>> events_;  // that are listed, in lines
    std::size_t in_first_column_ = 0;               // of them
    std::array<std::size_t, 2> event_lines_{};      // in each column
    double top_ = TOP, panel_ = PANEL;              // of the panels
    double events_top_ = 0;
    double height_ = 0;
    std::string script_;
};

}  // namespace

std::string plot_script(const PlotData& data, PlotFormat format) {
    return Script(data, format).write();
}

}  // namespace ostrel_simhost
