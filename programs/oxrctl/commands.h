// The commands of oxrctl. Each gives what it prints, or throws a Refusal.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "oxrctl/command.h"
#include "oxrctl/status/target_filter.h"

namespace oxrctl {

struct CheckOptions {
    std::string file = "/etc/ostrel/oxr.conf";
    bool json = false;
};
// EXIT_FINE: the service takes the file as it stands. EXIT_FOUND: it corrects, ignores or rewrites something.
// EXIT_UNUSABLE: the file can't be read.
Answer check(const CheckOptions& options);

struct StatusOptions {
    std::vector<std::string> logs{};  // logs, HOST=LOG, folders, "-"; none: the log of this host
    bool json = false;
    TargetFilter targets{};
    bool no_group = false;                  // a row for each target
    bool check = false;                     // one line for a monitoring plug-in
    std::optional<std::string> metrics{};   // a file for Prometheus, "-": standard output
    bool per_volume = false;                // in the metrics
    std::optional<std::int64_t> max_age{};  // seconds that the last message may be old
};
// EXIT_FINE: all is well. EXIT_FOUND: something isn't, and is told. EXIT_UNUSABLE: a log can't be read. With `check`,
// the exit code of a plug-in instead: 0 well, 1 warning, 2 critical, 3 unknown. With `metrics`, EXIT_FINE.
Answer status(const StatusOptions& options);

// Shows `status` on the terminal, anew after so many seconds, until a signal ends it. Throws a Refusal when standard
// output is no terminal. The answer has no text, and the exit code of what was shown last.
Answer watch_status(const StatusOptions& options, std::int64_t seconds, bool with_colours);

struct ExplainOptions {
    std::vector<std::string> words;  // of a message or a code, as given on the command line
    bool all = false;                // the whole catalogue, as the pages of the documentation have it
    bool json = false;
};
// EXIT_FOUND: the catalogue has nothing of this kind.
Answer explain(const ExplainOptions& options);

struct PlanOptions {
    std::vector<std::string> scenarios;  // one, or two to compare; none: one is made from a log
    std::string from_log;
    std::string config;                // the configuration file for it; empty: what the log tells
    std::string write;                 // the file that it is written to, which must not be there; empty: none
    std::vector<std::string> what_if;  // KEY=VALUE
    std::string run_for;               // empty: the scenario's own time
    bool as_written = false;           // also values in `what_if` that the service corrects
    bool json = false;
};
// EXIT_FOUND: the host doesn't settle, or a limit cuts something short. EXIT_UNUSABLE: also a value that the service
// doesn't take. EXIT_NOT_RUN: ostrel-simhost can't be run.
Answer plan(const PlanOptions& options);

}  // namespace oxrctl
