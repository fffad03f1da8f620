#include "runner.h"

#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "cimserver/server.h"
#include "input_lines.h"
#include "plot_view.h"
#include "provider.h"
#include "recorder.h"
#include "shared/duration.h"
#include "site.h"
#include "verdict.h"
#include "view.h"

namespace ostrel_simhost {

namespace {

std::atomic<int> interrupted{0};  // the signal that did it

void on_interrupt(int signal) {
    interrupted = signal;
}

// Interrupts reach the thread that constructs this and no thread started while `blocked` stands: the
// connection manager's threads must not be woken by them.
class Interrupts {
public:
    Interrupts() {
        struct sigaction action {};
        action.sa_handler = on_interrupt;
        sigemptyset(&set_);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
            struct sigaction before {};
            sigaction(signal, &action, &before);
            if (signal == SIGHUP && before.sa_handler == SIG_IGN) {
                sigaction(signal, &before, nullptr);  // as nohup wants it
            }
            sigaddset(&set_, signal);
        }
    }
    void block() const { pthread_sigmask(SIG_BLOCK, &set_, nullptr); }
    void unblock() const { pthread_sigmask(SIG_UNBLOCK, &set_, nullptr); }

private:
    sigset_t set_{};
};

// With log level 2 the file has to ask for it; else the scenario's own level stands.
void ask_for_debug_log(Scenario& scenario) {
    scenario.config_text = scenario.config_text ? with_config_value(*scenario.config_text, "log_level", "2")
                                                : config_file_text({{"log_level", "2"}});
}

void show(View& view, Recorder& recorder, PassRecord& last_pass) {
    for (RecordItem& item : recorder.take()) {
        if (auto* happening = std::get_if<Happening>(&item)) {
            view.happening(*happening);
        } else if (const auto* state = std::get_if<StateRecord>(&item)) {
            view.state(*state);
        } else {
            last_pass = std::get<PassRecord>(std::move(item));
            view.pass(last_pass);
        }
    }
}

// What the lines of an input make happen; a negative `input`: none do.
class LiveEvents {
public:
    LiveEvents(int input, simhost::Host& host, const Scenario& scenario, Site& site, Recorder& recorder,
               ActionDone done)
        : lines_(input), host_(host), scenario_(scenario), site_(site), recorder_(recorder), done_(std::move(done)) {}

    // Waits this long, or until there is a line. Not a sleep: the host's clock would take it for one of the
    // connection manager's.
    void wait(int milliseconds) {
        for (const std::string& line : lines_.wait(milliseconds)) {
            happen(line);
        }
    }

private:
    void happen(const std::string& line) {
        std::vector<Problem> problems;
        if (auto event = read_event(line, scenario_, problems)) {
            event->at_seconds = host_.now();
            site_.schedule(host_, *event, done_);
            (void)host_.totals();  // whoever looks at the host makes happen what is due
        }
        for (const Problem& problem : problems) {
            recorder_.event_refused(host_.now(), problem);
        }
    }

    InputLines lines_;
    simhost::Host& host_;
    const Scenario& scenario_;
    Site& site_;
    Recorder& recorder_;
    const ActionDone done_;
};

// Lets the connection manager work until the clock shows `end`. False: it made no progress for a minute.
bool wait_for_end(simhost::Host& host, const RunOptions& options, double end, View& view, Recorder& recorder,
                  LiveEvents& events, PassRecord& last_pass) {
    using Clock = std::chrono::steady_clock;
    constexpr auto patience = std::chrono::seconds(60);
    constexpr double instant_wait_seconds = 0.1;
    constexpr int real_wait_milliseconds = 50;
    double last_now = host.now();
    std::uint64_t last_sleeps = host.sleeps();
    auto progress = Clock::now();
    bool done = false;
    while (!done && interrupted == 0 && std::ferror(stdout) == 0) {
        if (options.clock == simhost::ClockMode::instant) {
            done = host.wait_for_horizon(instant_wait_seconds);
            if (host.now() != last_now || host.sleeps() != last_sleeps) {
                last_now = host.now();
                last_sleeps = host.sleeps();
                progress = Clock::now();
            } else if (!done && Clock::now() - progress > patience) {
                return false;
            }
        } else {
            events.wait(real_wait_milliseconds);
            done = host.now() >= end;
        }
        show(view, recorder, last_pass);
    }
    return true;
}

void add_leftovers(const simhost::Host& host, std::vector<std::string>& violations) {
    const auto note = [&](std::uint64_t count, const char* what) {
        if (count > 0) {
            violations.push_back(fmt::format("after the end: {} {}", count, what));
        }
    };
    note(host.lists_held(), "IMA lists not freed");
    note(host.descriptors_held(), "descriptors not closed");
}

std::string speed_text(const RunOptions& options) {
    switch (options.clock) {
        case simhost::ClockMode::instant:
            return "instant";
        case simhost::ClockMode::real:
            return "real";
        case simhost::ClockMode::scaled:
            break;
    }
    return fmt::format("{}-fold", options.factor);
}

double next_action_after(const Scenario& scenario, double time) {
    for (const TimedAction& action : scenario.actions) {
        if (action.at_seconds > time) {
            return action.at_seconds;
        }
    }
    return -1;
}

using Actions = std::vector<TimedAction>;

// The first of these that sets `state` to another value; end(): none does.
Actions::const_iterator next_that_sets(const std::pair<std::string, std::string>& state, Actions::const_iterator from,
                                       Actions::const_iterator end) {
    return std::find_if(from, end, [&](const TimedAction& each) {
        return std::any_of(each.action.sets.begin(), each.action.sets.end(),
                           [&](const auto& set) { return set.first == state.first && set.second != state.second; });
    });
}

// What an option set or made happen lasts until an event of the scenario sets the same state again.
std::vector<std::string> undone_by_scenario(const Scenario& scenario, double end) {
    const Actions& actions = scenario.actions;
    std::vector<std::string> notes;
    const auto note = [&](const std::string& what, const auto& state, Actions::const_iterator from) {
        const auto undoing = next_that_sets(state, from, actions.end());
        if (undoing != actions.end() && !undoing->by_option && undoing->at_seconds <= end) {
            notes.push_back(fmt::format("\"{}\" lasts until {} only, when the scenario has \"{}\"", what,
                                        shared::clock_text(undoing->at_seconds), undoing->action.text));
        }
    };
    for (const auto& state : scenario.set_by_options) {
        note(state.first + "=" + state.second, state, actions.begin());
    }
    for (auto asked = actions.begin(); asked != actions.end(); ++asked) {
        if (!asked->by_option) {
            continue;
        }
        for (const auto& state : asked->action.sets) {
            const bool is_all = asked->action.sets.size() == 1;
            note(is_all ? asked->action.text : state.first + "=" + state.second, state, asked);
        }
    }
    return notes;
}

std::unique_ptr<View> make_view(const RunOptions& options, std::string& plot_failure) {
    auto view = options.json ? make_json_view()
                             : make_text_view(shared::wants_colours(options.colour),
                                              options.clock != simhost::ClockMode::instant);
    return options.plot.empty() ? std::move(view) : make_plot_view(std::move(view), options.plot, plot_failure);
}

bool start_connection_manager(Provider& provider, const RunOptions& options, View& view, std::string& error) {
    if (!provider.load(options.library, error)) {
        return false;
    }
    if (!options.cim) {
        return provider.start(error);
    }
    if (!provider.serve(*options.cim, error)) {
        return false;
    }
    view.serving(provider.server()->url(), provider.server()->example_commands());
    return true;
}

// Why nothing can be written below the host's root, or nothing: the log and the configuration may have lost lines.
std::string write_failure(const std::filesystem::path& root) {
    constexpr std::size_t room = 16384;  // more than what is left over in the last block of a file
    const std::filesystem::path probe = root / "var/log/ostrel/.room";
    errno = 0;
    std::FILE* const file = std::fopen(probe.c_str(), "w");
    const std::string blanks(room, ' ');
    const bool written = file != nullptr && std::fwrite(blanks.data(), 1, room, file) == room;
    const int error = errno;
    const bool closed = file != nullptr && std::fclose(file) == 0;
    std::error_code ignored;
    std::filesystem::remove(probe, ignored);
    return written && closed ? "" : std::strerror(written ? errno : error);
}

// Its files are of use as they are, so that the run goes on with them.
void tell_of_earlier_run(const std::filesystem::path& root) {
    std::error_code ignored;
    if (!root.empty() && std::filesystem::exists(root / "var/log/ostrel/oxr.log", ignored)) {
        fmt::print(stderr,
                   "ostrel-simhost: --root {}: the log of an earlier run is there, and this run's messages go behind "
                   "it; for a log of this run alone, name a new folder\n",
                   root.string());
    }
}

bool leaves_root(const RunOptions& options) {
    return !options.root.empty() || (interrupted != SIGTERM && !(interrupted == 0 && shared::output_is_abandoned()));
}

void remove_unless_left(const std::filesystem::path& root, const RunOptions& options) {
    std::error_code ignored;
    if (!leaves_root(options)) {
        std::filesystem::remove_all(root, ignored);
    }
}

int run_on(simhost::Host& host, const Scenario& scenario, const RunOptions& options, const Interrupts& interrupts) {
    // Who serves CIM goes on until interrupted.
    constexpr double a_year = 365.0 * 24 * 3600;
    const double end = options.for_seconds.value_or(options.cim ? a_year : scenario.run_for_seconds);
    Site site(scenario);
    site.build(host);
    Recorder recorder(site, options.log_level, !options.plot.empty());
    recorder.watch(host);
    const ActionDone done = [&](const TimedAction& action, const std::string& refusal) {
        recorder.action_done(host, action, refusal);
    };
    site.schedule(host, done);
    if (!options.plot.empty()) {
        constexpr double samples = 500;  // about a pixel and a half apart
        recorder.sample_every(host, std::max(1.0, end / samples));
    }

    std::string plot_failure;
    const auto view = make_view(options, plot_failure);
    const ConfigValues config = config_at_start(host);
    view->begin({options.scenario_file, scenario.title, host.root(), options.library, end, speed_text(options),
                 values_not_taken_at_start(host)},
                site.rows(host, config), host.nics(), host.totals(), balanced_paths(host));

    interrupts.block();
    Provider provider;
    std::string error;
    if (options.clock == simhost::ClockMode::instant) {
        host.set_horizon(end);
    }
    if (!start_connection_manager(provider, options, *view, error)) {
        fmt::print(stderr, "ostrel-simhost: the connection manager can't be started: {}\n", error);
        return EXIT_NOT_RUN;
    }
    interrupts.unblock();
    LiveEvents events(options.events ? STDIN_FILENO : -1, host, scenario, site, recorder, done);

    RunOutcome outcome;
    PassRecord& last_pass = outcome.last_pass;
    outcome.stalled = !wait_for_end(host, options, end, *view, recorder, events, last_pass);
    outcome.ended_at = host.now();
    outcome.totals = host.totals();
    outcome.paths = balanced_paths(host);
    outcome.rows = site.rows(host, last_pass.number > 0 ? last_pass.config : config);
    outcome.addresses = host.nics();
    if (!outcome.stalled) {  // a worker that doesn't come to a stop point can't be waited for
        provider.stop();
    }
    recorder.finish();
    show(*view, recorder, last_pass);
    outcome.interrupted = interrupted != 0;
    outcome.passes_after_last_action = recorder.passes_after_last_happening();
    outcome.last_action_at = recorder.last_action_at();
    outcome.next_action_at = next_action_after(scenario, outcome.ended_at);
    outcome.undone = undone_by_scenario(scenario, outcome.ended_at);
    outcome.most_sessions = std::max(recorder.most_sessions(), outcome.totals.sessions);
    outcome.most_paths = std::max(recorder.most_paths(), outcome.paths);
    outcome.violations = host.violations();
    outcome.root = leaves_root(options) ? host.root() : "";
    outcome.let_pass = host.let_pass();
    if (!outcome.stalled) {
        add_leftovers(host, outcome.violations);
    }
    const Verdict verdict = judge(outcome);
    view->end(outcome, verdict);
    int exit_code = verdict.exit_code;
    if (!plot_failure.empty()) {
        fmt::print(stderr, "ostrel-simhost: --plot: {}\n", plot_failure);
        exit_code = EXIT_NOT_RUN;
    }
    if (const std::string failure = write_failure(host.root()); !failure.empty()) {
        fmt::print(stderr, "ostrel-simhost: {}: {}: its log and configuration may be incomplete\n", host.root(),
                   failure);
        exit_code = EXIT_BAD_INPUT;
    }
    if (outcome.stalled) {
        std::fflush(nullptr);
        remove_unless_left(host.root(), options);
        _exit(exit_code);
    }
    return exit_code;
}

}  // namespace

int run_scenario(const Scenario& given, const RunOptions& options) {
    Scenario scenario = given;
    if (options.log_level == 2) {
        ask_for_debug_log(scenario);
    }
    simhost::HostOptions on = host_options(scenario);
    on.root = options.root;
    on.clock = options.clock;
    on.factor = options.factor;
    on.remove_root = false;
    cimserver::ServerOptions ignored;
    if (options.cim && !cimserver::parse_address(*options.cim, ignored)) {
        fmt::print(stderr, "ostrel-simhost: --cim: expected ADDRESS:PORT, found \"{}\"\n", *options.cim);
        return EXIT_BAD_INPUT;
    }
    const Interrupts interrupts;
    if (const std::string failure = options.plot.empty() ? "" : plot_obstacle(options.plot); !failure.empty()) {
        fmt::print(stderr, "ostrel-simhost: --plot: {}\n", failure);
        return EXIT_NOT_RUN;
    }
    tell_of_earlier_run(options.root);
    std::optional<simhost::Host> host;
    try {
        host.emplace(on);
    } catch (const std::exception& exception) {
        fmt::print(stderr, "ostrel-simhost: {}: {}\n",
                   options.root.empty() ? "the temporary folder" : "--root " + options.root, exception.what());
        return EXIT_BAD_INPUT;
    }
    int exit_code = EXIT_BAD_INPUT;
    try {
        exit_code = run_on(*host, scenario, options, interrupts);
    } catch (const std::exception& exception) {
        fmt::print(stderr, "ostrel-simhost: {}: the host refuses the scenario: {}\n", options.scenario_file,
                   exception.what());
    }
    const std::string root = host->root();
    host.reset();
    remove_unless_left(root, options);
    return exit_code;
}

}  // namespace ostrel_simhost
