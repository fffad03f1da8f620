// ostrel-simhost: runs the connection manager on a host that a text file describes.
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "overrides.h"
#include "plot_view.h"
#include "runner.h"
#include "scenario.h"
#include "shared/duration.h"
#include "shared/terminal.h"

namespace {

constexpr std::uintmax_t LARGEST_SCENARIO_BYTES = 4U << 20;

constexpr char DESCRIPTION[] =
    "Simulates a host with iSCSI adapters, NICs, array groups and volumes, runs the Ostrel connection manager\n"
    "on it and shows what each pass does.";

constexpr char EXAMPLES[] = R"(
SCENARIO is a TOML file or the name of an installed scenario: demo (the default), cim, full, paths-limit,
upgrade, hazards/NAME. {}
describes all keys and events.

Examples:
  ostrel-simhost                         the demo: one host, a few events
  ostrel-simhost full                    256 volumes that need more sessions than the host allows
  ostrel-simhost my-site.toml --for 4h   four hours of your own site
  ostrel-simhost --set interval=300 --set 'db-##=48'
                                         the demo with a longer interval and 48 volumes db-01 to db-48
  ostrel-simhost demo --speed 60         one minute per second; --speed real: in real time
  ostrel-simhost --speed 60 --cim        serve the host to WBEM clients; prints example commands
  ostrel-simhost --speed 10 --events     type events while it runs: array_down = "prod/p1"
  ostrel-simhost demo --plot demo.svg    also draw a diagram
  ostrel-simhost demo --json | jq 'select(.type == "verdict")'

The table has one line per volume or group-scoped target (identical ones share a line):
  mode                    discovery mode of the array group; * while it changes
  NICs                    NICs that are up and carry paths
  arrays                  member arrays that are up, of all
  need                    required sessions with the current configuration
  dyn, sta, pend          sessions: dynamic, static, still logging in
  paths, dead             active paths, dead paths
  sessions per address    one column per NIC; x: the NIC is down; .: not an adapter of this target

Exit code: 0 the run is complete; 1 an invariant of the host was broken or the connection manager hung;
2 the scenario or the command line is wrong, or the output cannot be written; 3 the connection manager could
not be loaded, or the diagram could not be drawn.
The root folder of the simulated host, with its log and configuration, is kept and printed at the end. Only SIGTERM,
and an end because nobody reads the output, remove one that --root does not name.)";

std::filesystem::path own_folder() {
    std::error_code ignored;
    return std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
}

// The folder of the scenarios lies where it does from this program's on, also in the build tree, which has a link
// there.
std::filesystem::path shipped_scenarios() {
    std::error_code ignored;
    return std::filesystem::weakly_canonical(own_folder() / OXR_SCENARIOS_FROM_PROGRAM, ignored);
}

// The given file, or the installed scenario of that name; empty if there is neither.
std::filesystem::path find_scenario(const std::string& name) {
    const auto folder = shipped_scenarios();
    for (const auto& candidate : {std::filesystem::path(name), folder / (name + ".toml"), folder / name}) {
        std::error_code ignored;
        if (std::filesystem::is_regular_file(candidate, ignored)) {
            return candidate.lexically_normal();
        }
    }
    return {};
}

bool read_text(const std::filesystem::path& file, std::string& text, std::string& error) {
    std::error_code code;
    if (const auto size = std::filesystem::file_size(file, code); !code && size > LARGEST_SCENARIO_BYTES) {
        error = fmt::format("larger than {} MiB", LARGEST_SCENARIO_BYTES >> 20);
        return false;
    }
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream all;
    all << stream.rdbuf();
    if (!stream || !all) {
        // An empty file sets the fail bit of `all` and is no error.
        if (!stream.is_open()) {
            error = "cannot be read";
            return false;
        }
    }
    text = all.str();
    return true;
}

bool read_speed(const std::string& word, program::RunOptions& options) {
    if (word == "instant") {
        options.clock = simhost::ClockMode::instant;
        return true;
    }
    if (word == "real") {
        options.clock = simhost::ClockMode::real;
        return true;
    }
    constexpr double fastest = 100000;
    double factor = 0;
    char rest = 0;
    if (std::sscanf(word.c_str(), "%lf%c", &factor, &rest) != 1 || !(factor > 0) || factor > fastest) {
        return false;
    }
    options.clock = factor == 1 ? simhost::ClockMode::real : simhost::ClockMode::scaled;
    options.factor = factor;
    return true;
}

// With a reader that is gone it ends quietly.
int refuse_lost_output() {
    if (shared::output_is_abandoned()) {
        shared::end_by_signal(SIGPIPE);
    }
    fmt::print(stderr, "ostrel-simhost: standard output: {}\n", std::strerror(errno));
    return program::EXIT_BAD_INPUT;
}

// Of a scenario's text; empty: those of every scenario.
int print_keys(const std::string& text) {
    fmt::print("{}\n", fmt::join(program::override_keys(text), "\n"));
    return std::fflush(stdout) == 0 ? program::EXIT_FINE : refuse_lost_output();
}

int refuse(const std::string& what) {
    fmt::print(stderr, "ostrel-simhost: {}\n", what);
    return program::EXIT_BAD_INPUT;
}

}  // namespace

int main(int argc, char** argv) {
    std::string scenario_name = "demo";
    std::string for_text;
    std::string speed;
    std::string cim_address;
    std::string colour = "auto";
    std::vector<std::string> overrides;
    bool check_only = false;
    bool list_keys = false;
    program::RunOptions options;

    std::signal(SIGPIPE, SIG_IGN);
    CLI::App app(DESCRIPTION, "ostrel-simhost");
    app.set_version_flag("--version", OXR_VERSION, "Print the version");
    app.footer(fmt::format(EXAMPLES, (shipped_scenarios() / "README.md").string()));
    auto* const scenario =
        app.add_option("SCENARIO", scenario_name, "Scenario file or the name of an installed scenario [demo]");
    app.add_option("--for", for_text, "How much simulated time to run, such as 90s, 45m or 2h30m [as in the scenario]")
        ->type_name("DURATION");
    app.add_option("--set", overrides,
                   "Change the scenario: a configuration key, the number of volumes of a [[volumes]] entry "
                   "(db-##=48), its number of initial connections (NAME.sessions=2), login_seconds, claim_seconds or "
                   "discovery_seconds, or an event, which happens at the start (nic_down=10.1.1.12); can be repeated")
        ->type_name("KEY=VALUE")
        ->expected(1)
        ->take_all();
    app.add_flag("--keys", list_keys,
                 "List the keys that --set takes, one a line; with SCENARIO, those of its volumes and targets, too");
    app.add_option("--speed", speed,
                   "Simulated seconds per second: a number, real, or instant [instant; with --cim or --events real]")
        ->type_name("N|real|instant");
    app.add_option("--root", options.root, "Root folder of the simulated host [a new folder in the temporary folder]")
        ->type_name("DIR");
    app.add_option("--log-level", options.log_level,
                   "Lines of the connection manager's log to show: 0 errors and warnings, 1 also information, "
                   "2 all [0]")
        ->type_name("0..2")
        ->check(CLI::Range(0, 2).description(""));
    app.add_option("--library", options.library,
                   "Connection manager to load [the libostrelprovider.so.1 of this program]")
        ->type_name("FILE");
    auto* const cim = app.add_option("--cim", cim_address,
                                     "Serve the connection manager over CIM until interrupted or until the time of "
                                     "--for is over [127.0.0.1:5988]")
                          ->type_name("ADDRESS:PORT")
                          ->expected(0, 1);
    app.add_flag("--events", options.events,
                 "Also read events from standard input, one per line; they happen at once. An event has the keys of "
                 "an [[event]] without `at`, such as nic_down = \"10.1.1.12\"");
    app.add_option("--color", colour, "Colours: auto (on a terminal), always or never [auto]")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""));
    auto* const plot =
        app.add_option("--plot", options.plot,
                       "Draw a diagram of sessions and active paths over time; a .svg or .png file (needs gnuplot)")
            ->type_name("FILE");
    app.add_flag("--json", options.json, "Print one JSON object per line: begin, serving, events, passes, verdict");
    app.add_flag("--check", check_only, "Only check the scenario and report its errors");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) {
            return refuse(std::string(error.what()) + " (see ostrel-simhost --help)");
        }
        (void)app.exit(error);
        return std::fflush(stdout) == 0 && std::cout.flush() ? 0 : refuse_lost_output();
    }

    if (!for_text.empty()) {
        options.for_seconds = shared::parse_duration(for_text);
        if (!options.for_seconds || *options.for_seconds < 1) {
            return refuse(fmt::format("--for: expected a time such as 90s, 45m or 2h30m, found \"{}\"", for_text));
        }
    }
    if (plot->count() > 0 && !program::plot_format_of(options.plot)) {
        return refuse(fmt::format("--plot: expected a file named .svg or .png, found \"{}\"", options.plot));
    }
    if (cim->count() > 0) {
        options.cim = cim_address;
    }
    if (speed.empty()) {
        speed = options.cim || options.events ? "real" : "instant";
    }
    if (options.cim && speed == "instant") {
        return refuse("--speed instant: a host that is served over CIM needs a clock that a client can keep up with");
    }
    if (options.events && speed == "instant") {
        return refuse("--speed instant: events from standard input need a clock that a person can keep up with");
    }
    if (!read_speed(speed, options)) {
        return refuse(fmt::format("--speed: expected a number up to 100000, real or instant, found \"{}\"", speed));
    }
    if (list_keys && scenario->count() == 0) {
        return print_keys("");
    }
    const auto file = find_scenario(scenario_name);
    if (file.empty()) {
        return refuse(fmt::format("{}: expected a scenario file or the name of a shipped scenario", scenario_name));
    }
    std::string text;
    std::string error;
    if (!read_text(file, text, error)) {
        return refuse(fmt::format("{}: {}", file.string(), error));
    }
    if (list_keys) {
        return print_keys(text);
    }
    const program::ScenarioOrProblems result = program::read_scenario(text, overrides);
    if (!result.problems.empty()) {
        fmt::print(stderr, "{}", program::problems_text(result.problems, file.string()));
        return program::EXIT_BAD_INPUT;
    }
    if (check_only) {
        fmt::print("{}: fine\n", file.string());
        return 0;
    }
    options.colour = *shared::colour_wish(colour);
    options.scenario_file = std::filesystem::exists(scenario_name) ? scenario_name : file.filename().string();
    const int exit_code = program::run_scenario(result.scenario, options);
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? exit_code : refuse_lost_output();
}
