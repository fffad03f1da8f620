#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

#include "shared/duration.h"
#include "shared/terminal.h"
#include "table.h"
#include "view.h"

namespace ostrel_simhost {

namespace {

void print(const std::string& line) {
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

std::string did(const PassRecord& pass) {
    std::vector<std::string> pieces;
    const auto count = [&](int number, std::string_view what) {
        if (number > 0) {
            pieces.push_back(fmt::format("{} {}", what, number));
        }
    };
    const auto adapters = [&](const std::vector<std::string>& names, std::string_view what) {
        if (!names.empty()) {
            pieces.push_back(fmt::format("{} {}", what, fmt::join(names, " ")));
        }
    };
    count(pass.added, "sessions added");
    count(pass.removed, "sessions removed");
    count(pass.static_targets_removed, "static targets removed");
    count(pass.lost, "sessions ended");
    adapters(pass.rediscovered, "rediscovered");
    adapters(pass.rescanned, "rescanned");
    count(pass.paths_claimed, "paths claimed");
    adapters(pass.dead_paths_requested, "cleaned up");
    count(pass.dead_paths_deleted, "dead paths deleted");
    return fmt::format("{}", fmt::join(pieces, ", "));
}

class TextView final : public View {
public:
    TextView(bool colours, bool live)
        : pen_(colours), live_(live), width_(shared::terminal_width().value_or(UNLIMITED_WIDTH)) {}

    void begin(const RunHead& head, const std::vector<TargetRow>& rows, const std::vector<Address>& addresses,
               const simhost::Totals& totals, int paths) override {
        print(pen_(Ink::head, head.title.empty() ? head.scenario_file : head.title));
        print(fmt::format("{} for {} at {} speed; {} volumes, {} targets, {} sessions, {} paths", head.scenario_file,
                          shared::duration_text(head.for_seconds), head.speed, totals.volumes, totals.targets,
                          totals.sessions, paths));
        for (const shared::ValueNotTaken& value : head.not_taken) {
            print(pen_(Ink::poor, not_taken_text(value)));
        }
        print(
            "need: sessions required; dyn, sta, pend: dynamic, static, pending sessions; * mode switch under way; x "
            "NIC lost");
        std::string legend = "addresses";
        for (const std::string& line : address_legend(addresses)) {
            legend += "  " + line;
        }
        print(legend);
        print("");
        print(fmt::format("[{}] before the first pass", shared::clock_text(0)));
        show_table(rows, addresses);
    }

    void serving(const std::string&, const std::vector<std::string>& commands) override {
        print("\nServing CIM until interrupted. Commands to try from another terminal:");
        for (const std::string& command : commands) {
            print("  " + command);
        }
    }

    void happening(const Happening& happening) override {
        flush_quiet();
        using Kind = Happening::Kind;
        const Ink ink = happening.kind == Kind::violation || happening.kind == Kind::failure ? Ink::bad : Ink::event;
        const std::string_view mark = happening.kind == Kind::violation ? "INVARIANT BROKEN: " : "";
        print(fmt::format("[{}] {}", shared::clock_text(happening.time),
                          pen_(ink, fmt::format("* {}{}", mark, happening.text))));
    }

    void pass(const PassRecord& pass) override {
        const bool same_table = same_rows(pass.rows) && same_addresses(pass.addresses);
        if (same_table && !pass.changed_something() && same_log(pass.log)) {
            const std::string what = pass.skipped ? "skipped, worker_stop is set" : "nothing to do";
            if (live_) {
                print(fmt::format("[{}] pass {}: {}", shared::clock_text(pass.ended), pass.number, what));
            } else {
                if (quiet_count_ > 0 && quiet_what_ != what) {
                    flush_quiet();
                }
                quiet_what_ = what;
                quiet_last_ = pass.number;
                quiet_first_ = quiet_count_++ == 0 ? pass.number : quiet_first_;
                quiet_ended_ = quiet_count_ == 1 ? pass.ended : quiet_ended_;
                quiet_last_ended_ = pass.ended;
            }
            return;
        }
        flush_quiet();
        std::string what = did(pass);
        if (what.empty()) {
            what = pass.skipped ? "skipped, worker_stop is set" : "nothing to do";
        }
        print(fmt::format("[{}] {}", shared::clock_text(pass.ended),
                          pen_(Ink::head, fmt::format("pass {} ({}): {}", pass.number,
                                                      shared::duration_text(pass.ended - pass.began), what))));
        show_log(pass.log);
        if (!same_table) {
            show_table(pass.rows, pass.addresses);
        }
    }

    void end(const RunOutcome& outcome, const Verdict& verdict) override {
        flush_quiet();
        print("");
        print(fmt::format("[{}] {}", shared::clock_text(outcome.ended_at), pen_(Ink::head, "the end")));
        if (!same_rows(outcome.rows) || !same_addresses(outcome.addresses)) {
            show_table(outcome.rows, outcome.addresses);
        }
        print(fmt::format("verdict     {}", pen_(verdict.settled ? Ink::good : Ink::poor, verdict.headline)));
        for (const std::string& reason : verdict.reasons) {
            print(fmt::format("            - {}", reason));
        }
        print(fmt::format("sessions    {} of {} (most seen {})", outcome.totals.sessions, simhost::MAX_SESSIONS,
                          outcome.most_sessions));
        print(fmt::format("paths       {} of {}, {} dead (most seen {})", outcome.paths, simhost::MAX_PATHS,
                          outcome.totals.dead_paths, outcome.most_paths));
        print(verdict.worst_spread_target.empty() ? "spread      no balanced target has sessions"
                                                  : fmt::format("spread      worst over local addresses {} ({})",
                                                                verdict.worst_spread, verdict.worst_spread_target));
        std::string let_pass;
        for (const auto& [hazard, times] : outcome.let_pass) {
            let_pass += fmt::format("{}{}, {}x", let_pass.empty() ? " (let pass: " : "; ", hazard, times);
        }
        let_pass += let_pass.empty() ? "" : ")";
        print(fmt::format("invariants  {}{}",
                          outcome.violations.empty()
                              ? pen_(Ink::good, "none broken")
                              : pen_(Ink::bad, fmt::format("{} broken", outcome.violations.size())),
                          let_pass));
        constexpr std::size_t most_violations = 10;
        for (std::size_t i = 0; i < outcome.violations.size() && i < most_violations; ++i) {
            print(fmt::format("            - {}", outcome.violations[i]));
        }
        if (outcome.violations.size() > most_violations) {
            print(fmt::format("            - and {} more", outcome.violations.size() - most_violations));
        }
        for (const std::string& note : verdict.notes) {
            print(fmt::format("note        {}", note));
        }
        print(outcome.root.empty()
                  ? "files       removed"
                  : fmt::format("files       {} (var/log/ostrel/oxr.log, etc/ostrel/oxr.conf)", outcome.root));
        print("over CIM    with --speed 60 --cim this host is served to WBEM clients (cim.md)");
    }

private:
    void flush_quiet() {
        if (quiet_count_ == 1) {
            print(fmt::format("[{}] pass {}: {}", shared::clock_text(quiet_ended_), quiet_first_, quiet_what_));
        } else if (quiet_count_ > 1) {
            print(fmt::format("[{}] passes {} to {}, the last at {}: {}", shared::clock_text(quiet_ended_),
                              quiet_first_, quiet_last_, shared::clock_text(quiet_last_ended_), quiet_what_));
        }
        quiet_count_ = 0;
    }

    // The lines of the table that differ from those last shown.
    void show_table(const std::vector<TargetRow>& rows, const std::vector<Address>& addresses) {
        const std::vector<std::string> lines = table_lines(rows, addresses, pen_, width_);
        std::size_t unchanged = 0;
        for (std::size_t i = 0; i < lines.size(); ++i) {
            const bool known = i > 0 && std::find(lines_.begin(), lines_.end(), lines[i]) != lines_.end();
            unchanged += known;
            if (!known) {
                print(lines[i]);
            }
        }
        if (unchanged > 0) {
            print(fmt::format("  ({} as before)", unchanged == 1 ? "one line" : fmt::format("{} lines", unchanged)));
        }
        lines_ = lines;
        rows_ = rows;
        addresses_ = addresses;
    }

    void show_log(const std::vector<FoldedLogLine>& log) {
        if (!log.empty() && same_log(log)) {
            print("    log as before");
            return;
        }
        last_log_.clear();
        for (const FoldedLogLine& line : log) {
            const Ink ink = line.level == "ERROR" || line.level == "WARN" ? Ink::poor : Ink::plain;
            print("    " +
                  pen_(ink, fmt::format("log {} {}: {}{}", line.level, line.function, line.text,
                                        line.times > 1 ? fmt::format(" (and {} alike)", line.times - 1) : "")));
            last_log_.push_back(line.key);
        }
    }

    bool same_log(const std::vector<FoldedLogLine>& log) const {
        return log.empty() ||
               std::equal(log.begin(), log.end(), last_log_.begin(), last_log_.end(),
                          [](const FoldedLogLine& line, const std::string& key) { return line.key == key; });
    }

    bool same_rows(const std::vector<TargetRow>& rows) const {
        return std::equal(rows.begin(), rows.end(), rows_.begin(), rows_.end(),
                          [](const auto& a, const auto& b) { return a.name == b.name && a.same_state(b); });
    }

    bool same_addresses(const std::vector<Address>& addresses) const {
        return std::equal(addresses.begin(), addresses.end(), addresses_.begin(), addresses_.end(),
                          [](const auto& a, const auto& b) { return a.up == b.up; });
    }

    Pen pen_;
    bool live_;
    std::size_t width_;
    std::vector<TargetRow> rows_;  // as last shown
    std::vector<std::string> lines_;
    std::vector<Address> addresses_;
    std::vector<std::string> last_log_;
    int quiet_count_ = 0;
    int quiet_first_ = 0;
    int quiet_last_ = 0;
    double quiet_ended_ = 0;
    double quiet_last_ended_ = 0;
    std::string quiet_what_;
};

}  // namespace

std::unique_ptr<View> make_text_view(bool colours, bool live) {
    return std::make_unique<TextView>(colours, live);
}

}  // namespace ostrel_simhost
