// One run of a scenario: host, connection manager, clock, views, verdict.
#pragma once

#include <optional>
#include <string>

#include "scenario.h"
#include "shared/terminal.h"
#include "simhost/host.h"

namespace ostrel_simhost {

struct RunOptions {
    std::string scenario_file;          // as named in the output
    std::optional<double> for_seconds;  // instead of the scenario's own time
    simhost::ClockMode clock = simhost::ClockMode::instant;
    double factor = 1;    // of a scaled clock
    std::string root;     // empty: a new folder under the temporary one
    std::string library;  // empty: by the loader's rules
    int log_level = 0;
    bool json = false;
    shared::ColourWish colour = shared::ColourWish::automatic;
    std::string plot;                // file for a picture; empty: none
    bool events = false;             // from standard input too
    std::optional<std::string> cim;  // "ADDRESS:PORT" to serve CIM at; empty: the usual one
};

enum ExitCode { EXIT_FINE = 0, EXIT_BROKEN = 1, EXIT_BAD_INPUT = 2, EXIT_NOT_RUN = 3 };

// Returns the program's exit code. SIGINT, SIGHUP and SIGTERM end the run early and in order. A root folder of our own
// making is kept, but not after SIGTERM or when nobody reads any more where it is.
int run_scenario(const Scenario& scenario, const RunOptions& options);

}  // namespace ostrel_simhost
