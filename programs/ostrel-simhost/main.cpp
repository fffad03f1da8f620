// ostrel-simhost: shows what the connection manager does on a host that is described as text.
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

#include "plot_view.h"
#include "runner.h"
#include "scenario.h"
#include "shared/duration.h"

namespace {

constexpr std::uintmax_t LARGEST_SCENARIO_BYTES = 4U << 20;

constexpr char DESCRIPTION[] =
    "Simulates a host with iSCSI adapters, NICs, array groups and volumes, runs the Ostrel connection manager\n"
    "on it and shows, pass by pass, what it does there.";

constexpr char EXAMPLES[] = R"(
SCENARIO is a file in TOML, or the name of a shipped one: demo (the default), cim, full, paths-limit,
upgrade, hazards/NAME. {}
lists all keys and events.

Examples:
  ostrel-simhost                         a host, a few events, the whole story
  ostrel-simhost full                    256 volumes that want more than the host allows
  ostrel-simhost my-site.toml --for 4h   four hours of a site of your own
  ostrel-simhost --set interval=300 --set 'db-##=48'
                                         the demo with a longer interval and 48 volumes db-01 to db-48
  ostrel-simhost demo --speed 60         a minute of the host in a second; --speed real: as slow as life
  ostrel-simhost --speed 60 --cim        serves it to WBEM clients, and says what to type
  ostrel-simhost --speed 10 --events     what you type happens: array_down = "prod/p1"
  ostrel-simhost demo --plot demo.svg    and a picture of it
  ostrel-simhost demo --json | jq 'select(.type == "verdict")'

The table, one line per volume or group-scoped target (alike ones share a line):
  mode                    discovery mode of the array group; * while a switch is under way
  NICs                    host addresses that carry paths, of those that are up
  arrays                  member arrays that are up, of all
  need                    sessions required by the configuration in force
  dyn, sta, pend          sessions: dynamic, static, still logging in
  paths, dead             paths, active and dead
  sessions per address    one column per NIC; x: the NIC is lost; .: not an adapter of this target

Exit code: 0 the run is complete; 1 an invariant of the host was broken or the connection manager came to a
halt; 2 the scenario or the command line has a mistake, or the output can't be written; 3 the connection
manager could not be loaded, or the picture could not be drawn.
A folder that stands for the host's root is kept and named at the end: look there for its log and
configuration.)";

std::filesystem::path own_folder() {
    std::error_code ignored;
    return std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
}

// The folder of the shipped scenarios: that of the installation, or of the source tree.
std::filesystem::path shipped_scenarios() {
    std::error_code ignored;
    auto installed = (own_folder() / "../share/ostrel/scenarios").lexically_normal();
    return std::filesystem::is_directory(installed, ignored) ? installed : std::filesystem::path(OXR_SCENARIOS_FOLDER);
}

// The scenario as given, or of that name among the shipped ones; empty when there is none.
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
            error = "it can't be read";
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

// A reader of the output that went away ends the run, and is told.
int refuse_lost_output() {
    fmt::print(stderr, "ostrel-simhost: standard output: {}\n", std::strerror(errno));
    return program::EXIT_BAD_INPUT;
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
    std::vector<std::string> overrides;
    bool check_only = false;
    program::RunOptions options;

    std::signal(SIGPIPE, SIG_IGN);
    CLI::App app(DESCRIPTION, "ostrel-simhost");
    app.set_version_flag("--version", OXR_VERSION, "Print the version");
    app.footer(fmt::format(EXAMPLES, (shipped_scenarios() / "README.md").string()));
    app.add_option("SCENARIO", scenario_name, "Scenario file or the name of a shipped one [demo]");
    app.add_option("--for", for_text, "Simulated time to run, such as 90s, 45m, 2h30m [the scenario's own]")
        ->type_name("DURATION");
    app.add_option("--set", overrides,
                   "Override something of the scenario: a configuration key, the number of volumes of a [[volumes]] "
                   "entry (db-##=48), its first connections (NAME.sessions=2), login_seconds, claim_seconds or "
                   "discovery_seconds; may be given several times")
        ->type_name("KEY=VALUE")
        ->expected(1)
        ->take_all();
    app.add_option("--speed", speed,
                   "Simulated seconds per second: a number, real, or instant [instant; with --cim or --events real]")
        ->type_name("N|real|instant");
    app.add_option("--root", options.root,
                   "Folder that stands for the host's root [a new one under the temporary folder]")
        ->type_name("DIR");
    app.add_option("--log-level", options.log_level,
                   "Lines of the connection manager's log to show: 0 errors and warnings, 1 information too, "
                   "2 everything [0]")
        ->type_name("0..2")
        ->check(CLI::Range(0, 2).description(""));
    app.add_option("--library", options.library,
                   "Connection manager to load [libostrelprovider.so.1 beside this program]")
        ->type_name("FILE");
    auto* const cim = app.add_option("--cim", cim_address,
                                     "Serve the connection manager over CIM, until interrupted or for the time of "
                                     "--for [127.0.0.1:5988]")
                          ->type_name("ADDRESS:PORT")
                          ->expected(0, 1);
    app.add_flag("--events", options.events,
                 "Read events from standard input too, one a line, which happen at once: the keys of an [[event]] "
                 "without `at`, such as nic_down = \"10.1.1.12\"");
    auto* const plot =
        app.add_option("--plot", options.plot,
                       "Draw sessions and active paths over time into this file, a .svg or .png (needs gnuplot)")
            ->type_name("FILE");
    app.add_flag("--json", options.json, "One JSON object per line: begin, serving, events, passes, verdict");
    app.add_flag("--check", check_only, "Only read the scenario and tell its mistakes");
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
    const auto file = find_scenario(scenario_name);
    if (file.empty()) {
        return refuse(fmt::format("{}: expected a scenario file or the name of a shipped scenario", scenario_name));
    }
    std::string text;
    std::string error;
    if (!read_text(file, text, error)) {
        return refuse(fmt::format("{}: {}", file.string(), error));
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
    options.scenario_file = std::filesystem::exists(scenario_name) ? scenario_name : file.filename().string();
    const int exit_code = program::run_scenario(result.scenario, options);
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? exit_code : refuse_lost_output();
}
