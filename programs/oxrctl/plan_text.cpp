// A plan, or two side by side, for a person: first the answer, then what it rests on.
#include <fmt/format.h>

#include <algorithm>

#include "oxrctl/plan_pair.h"
#include "oxrctl/text.h"
#include "shared/duration.h"
#include "shared/name_list.h"

namespace oxrctl {

namespace {

constexpr std::size_t MOST_TARGET_LINES = 30;
constexpr std::size_t MOST_NAMES_WIDTH = 34;

// What a scenario brought along must neither move the cursor nor break the columns.
std::string fit(std::string_view text, std::size_t width) {
    std::string shown;
    for (const char c : text) {
        shown += (c >= '\0' && c < ' ') || c == '\x7f' ? '?' : c;
    }
    if (width_of(shown) <= width) {
        return shown;
    }
    std::size_t end = 0;
    for (std::size_t letters = 0; end < shown.size(); ++end) {
        if (!continues_letter(shown[end]) && ++letters > width - 3) {
            break;
        }
    }
    return shown.substr(0, end) + "...";
}

std::string change(const std::string& a, const std::string& b) {
    return a == b ? a : a + " -> " + b;
}

std::string change(int a, int b) {
    return change(fmt::format("{}", a), fmt::format("{}", b));
}

class Teller {
public:
    explicit Teller(const std::vector<PlanSubject>& subjects)
        : subjects_(subjects),
          a_(subjects.front().plan),
          b_(subjects.back().plan),
          two_(subjects.size() > 1),
          addresses_(a_.addresses) {
        for (const std::string& ip : b_.addresses) {
            if (std::find(addresses_.begin(), addresses_.end(), ip) == addresses_.end()) {
                addresses_.push_back(ip);
            }
        }
    }

    std::string tell() {
        head();
        for (std::size_t i = 0; i < subjects_.size(); ++i) {
            answer(subjects_[i], two_ ? fmt::format("{}  ", letter(i)) : "");
        }
        notes();
        targets();
        phases();
        limits();
        return std::move(text_);
    }

private:
    static char letter(std::size_t index) { return static_cast<char>('A' + index); }

    void line(const std::string& text) { text_ += fit(text, LINE_WIDTH) + "\n"; }

    void wrapped(const std::string& first, const std::string& text) {
        text_ += oxrctl::wrapped(first, fit(text, text.size() + 3));
    }

    void head() {
        if (!two_) {
            line(subjects_[0].label + (a_.title.empty() ? "" : ": " + a_.title));
        } else {
            for (std::size_t i = 0; i < subjects_.size(); ++i) {
                wrapped(fmt::format("{}  ", letter(i)), subjects_[i].label);
            }
        }
        for (std::size_t i = 0; i < subjects_.size(); ++i) {
            for (const shared::ValueNotTaken& value : subjects_[i].plan.not_taken) {
                wrapped(two_ ? fmt::format("{}  ", letter(i)) : "  ", not_taken_text(value));
            }
        }
        if (two_) {
            line("Where they differ, A -> B is shown.");
        }
        const bool some_skipped = a_.skipped_passes + b_.skipped_passes > 0;
        wrapped(
            fmt::format("Looked ahead {}: ",
                        change(shared::duration_text(a_.seconds), shared::duration_text(b_.seconds))),
            fmt::format(
                "{} {} of the connection manager{}.", change(a_.passes, b_.passes),
                a_.passes == 1 && b_.passes == 1 ? "pass" : "passes",
                some_skipped ? fmt::format(", {} of them skipped", change(a_.skipped_passes, b_.skipped_passes)) : ""));
        line("");
    }

    void answer(const PlanSubject& subject, const std::string& mark) {
        const Plan& plan = subject.plan;
        const auto lacking = cut_short(plan);
        const std::string settled = plan.all_skipped() ? "SETTLED, but the service held off in every pass" : "SETTLED";
        wrapped(mark, (!plan.settled     ? "NOT SETTLED at the end"
                       : lacking.empty() ? settled + ": every volume has the sessions it needs"
                                         : settled + ", but not every volume gets what it needs") +
                          (subject.guesses.empty() ? "" : ", on what was guessed") +
                          (plan.violations.empty() ? "" : ", and an invariant of the host is broken"));
        const std::string indent(mark.size(), ' ');
        if (!plan.settled) {
            for (const std::string& reason : plan.reasons) {
                wrapped(indent + "  - ", reason);
            }
        }
        for (const CutShort& each : lacking) {
            const std::string limit =
                plan.most_paths >= plan.path_limit         ? fmt::format(" (limit of {} paths)", plan.path_limit)
                : plan.most_sessions >= plan.session_limit ? fmt::format(" (limit of {} sessions)", plan.session_limit)
                                                           : "";
            wrapped(indent + "  - ",
                    fmt::format("{}short by {}{}: {}{}", limit.empty() ? "" : "cut ",
                                count_of(static_cast<std::size_t>(each.by), "session", "sessions"),
                                each.names.size() > 1 ? " each" : "", shared::name_list(each.names), limit));
        }
        for (const std::string& violation : broken_invariants(plan)) {
            wrapped(indent + "  - ", "broken: " + violation);
        }
    }

    void notes() {
        if (!subjects_.front().read.empty()) {
            wrapped("read: ", subjects_.front().read);
        }
        for (const std::string& guess : subjects_.front().guesses) {
            wrapped("guessed: ", guess);
        }
        for (std::size_t i = 0; i < subjects_.size(); ++i) {
            const std::string mark = two_ ? fmt::format("note, {}: ", letter(i)) : "note: ";
            for (const std::string& note : notes_of(subjects_[i].plan)) {
                wrapped(mark, note);
            }
        }
        line("");
    }

    void targets() {
        const auto pairs = target_pairs(a_, b_);
        line("Sessions at the end of each volume and group-scoped target");
        Columns columns("lrrrl");
        const bool each_address = per_address_fits(pairs);
        columns.add({"volume or target", "required", "has", "paths", address_head(each_address)});
        for (std::size_t i = 0; i < pairs.size() && i < MOST_TARGET_LINES; ++i) {
            const TargetPair& pair = pairs[i];
            columns.add({names_of(pair), of_both(pair, required_text),
                         of_both(pair, [](const PlanTarget& target) { return fmt::format("{}", target.sessions); }),
                         of_both(pair, [](const PlanTarget& target) { return fmt::format("{}", target.active_paths); }),
                         of_both(pair, [&](const PlanTarget& target) { return address_text(target, each_address); })});
        }
        text_ += columns.text();
        if (pairs.size() > MOST_TARGET_LINES) {
            line(fmt::format("  ... and {} lines more (--json has all)", pairs.size() - MOST_TARGET_LINES));
        }
        if (each_address) {
            address_legend();
        }
        line("");
    }

    static std::string names_of(const TargetPair& pair) {
        std::string names = shared::name_list(pair.names, 2);
        if (width_of(names) > MOST_NAMES_WIDTH) {
            names = shared::name_list(pair.names, 1);
        }
        if (pair.any().group_scoped) {
            names += fmt::format(" [{}]", count_of(static_cast<std::size_t>(pair.any().volumes), "volume", "volumes"));
        }
        return fit(names, MOST_NAMES_WIDTH + 12);
    }

    template <class Text>
    static std::string of_both(const TargetPair& pair, Text text) {
        return change(pair.a != nullptr ? text(*pair.a) : "none", pair.b != nullptr ? text(*pair.b) : "none");
    }

    static std::string required_text(const PlanTarget& target) {
        return target.mode == "static" ? "static"
               : !target.supported     ? "unsupported"
                                       : fmt::format("{}", target.required);
    }

    std::string address_text(const PlanTarget& target, bool each_address) const {
        if (!each_address) {
            const auto [least, most] =
                std::minmax_element(target.by_address.begin(), target.by_address.end(),
                                    [](const auto& x, const auto& y) { return x.second < y.second; });
            return target.by_address.empty()       ? "none"
                   : least->second == most->second ? fmt::format("{} each", least->second)
                                                   : fmt::format("{} to {}", least->second, most->second);
        }
        std::string text;
        for (const std::string& ip : addresses_) {
            const auto count = target.by_address.find(ip);
            text += (text.empty() ? "" : " ") +
                    (count == target.by_address.end() ? " ." : fmt::format("{:2}", count->second));
        }
        return text;
    }

    bool per_address_fits(const std::vector<TargetPair>& pairs) const {
        const bool some_change = std::any_of(pairs.begin(), pairs.end(), [](const TargetPair& pair) {
            return pair.a != nullptr && pair.b != nullptr && pair.a->by_address != pair.b->by_address;
        });
        const std::size_t one = addresses_.size() * 3;
        return (some_change ? 2 * one + 4 : one) <= (some_change ? 34U : 42U);
    }

    std::string address_head(bool each_address) const {
        if (!each_address) {
            return "on each local address";
        }
        std::string head;
        for (std::size_t i = 0; i < addresses_.size(); ++i) {
            head += fmt::format("{}{:2}", i == 0 ? "" : " ", i + 1);
        }
        return head + (addresses_.size() <= 4 ? "  (local address)" : "");
    }

    void address_legend() {
        std::string legend;
        for (std::size_t i = 0; i < addresses_.size(); ++i) {
            legend += fmt::format("{}{}={}", i == 0 ? "" : " ", i + 1, addresses_[i]);
        }
        wrapped("  local addresses: ", legend);
    }

    void phases() {
        line("Until it is settled: passes, and the time since the start or the event");
        const auto pairs = phase_pairs(a_, b_);
        Columns columns("llll");
        if (two_) {
            columns.add({"", "", "A", "B"});
        }
        std::size_t of_a = 0, of_b = 0;
        for (const PhasePair& pair : pairs) {
            of_a = std::max(of_a, width_of(end_text(pair.a, a_)));
            of_b = two_ ? std::max(of_b, width_of(end_text(pair.b, b_)) + 2) : 0;
        }
        constexpr std::size_t indent_time_and_gaps = 14;
        for (const PhasePair& pair : pairs) {
            std::vector<std::string> cells = {
                shared::clock_text(pair.any().began),
                fit(events_text(pair.any()), LINE_WIDTH - indent_time_and_gaps - of_a - of_b), end_text(pair.a, a_)};
            if (two_) {
                cells.push_back(end_text(pair.b, b_));
            }
            columns.add(std::move(cells));
        }
        text_ += columns.text();
        line("");
    }

    static std::string events_text(const PlanPhase& phase) {
        if (phase.events.empty()) {
            return "the start";
        }
        std::string text = phase.events.front();
        if (const std::size_t note = text.find("  ("); note != std::string::npos) {
            text.erase(note, 1);
        }
        if (phase.events.size() > 1) {
            text = count_of(phase.events.size(), "event", "events") + ": " + text + ", ...";
        }
        return (phase.began == 0 ? "the start, " : "") + text;
    }

    static std::string work_text(const PlanPhase& phase) {
        return phase.passes == 0
                   ? "nothing to do"
                   : fmt::format("{}, {}", count_of(static_cast<std::size_t>(phase.passes), "pass", "passes"),
                                 shared::duration_text(phase.seconds));
    }

    static std::string end_text(const PlanPhase* phase, const Plan& plan) {
        if (phase == nullptr) {
            return "-";
        }
        const bool last = phase == &plan.phases.back();
        switch (phase->end) {
            case PlanPhase::End::settled:
                return work_text(*phase);
            case PlanPhase::End::unsettled:
                return (phase->passes == 0 ? std::string("nothing done") : work_text(*phase)) + ", see above";
            case PlanPhase::End::changing:
                return last ? "not settled" : "not before next event";
            case PlanPhase::End::skipped:
                return "passes are skipped";
            case PlanPhase::End::no_pass:
                return last ? "no pass" : "no pass before next event";
        }
        return "";
    }

    void limits() {
        line("Limits of the host");
        Columns columns("lrrrr");
        columns.add({"", "at the end", "at worst", "limit", "room at worst"});
        columns.add({"sessions", change(a_.sessions, b_.sessions), change(a_.most_sessions, b_.most_sessions),
                     fmt::format("{}", a_.session_limit),
                     change(a_.session_limit - a_.most_sessions, b_.session_limit - b_.most_sessions)});
        columns.add({"paths", change(a_.paths, b_.paths), change(a_.most_paths, b_.most_paths),
                     fmt::format("{}", a_.path_limit),
                     change(a_.path_limit - a_.most_paths, b_.path_limit - b_.most_paths)});
        text_ += columns.text();
    }

    const std::vector<PlanSubject>& subjects_;
    const Plan& a_;
    const Plan& b_;
    const bool two_;
    std::vector<std::string> addresses_;
    std::string text_;
};

}  // namespace

std::string plan_text(const std::vector<PlanSubject>& subjects) {
    return Teller(subjects).tell();
}

}  // namespace oxrctl
