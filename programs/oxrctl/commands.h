// The commands of oxrctl. Each gives what it prints, or throws a Refusal.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "oxrctl/command.h"

namespace oxrctl {

struct CheckOptions {
    std::string file = "/etc/ostrel/oxr.conf";
    bool json = false;
};
// EXIT_FINE: the service takes the file as it stands. EXIT_FOUND: it corrects, ignores or rewrites something.
// EXIT_UNUSABLE: the file can't be read.
Answer check(const CheckOptions& options);

struct StatusOptions {
    std::optional<std::string> log;  // none: where the configuration file on this host says
    bool json = false;
};
// EXIT_FINE: the last pass ended well. EXIT_FOUND: errors or warnings since the last good pass, a worker that is
// stopped or held off, or no pass at all.
Answer status(const StatusOptions& options);

struct ExplainOptions {
    std::vector<std::string> words;  // of a message or a code, as given on the command line
    bool all = false;                // the whole catalogue, as the pages of the documentation have it
    bool json = false;
};
// EXIT_FOUND: the catalogue has nothing of this kind.
Answer explain(const ExplainOptions& options);

struct PlanOptions {
    std::vector<std::string> scenarios;  // one, or two to compare
    std::vector<std::string> what_if;    // KEY=VALUE
    std::string run_for;                 // empty: the scenario's own time
    bool json = false;
};
// EXIT_FOUND: the host doesn't settle, or a limit cuts something short. EXIT_NOT_RUN: ostrel-simhost can't be run.
Answer plan(const PlanOptions& options);

}  // namespace oxrctl
