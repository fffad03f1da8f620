// oxrctl: what the connection manager of a host did, does and will do.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <sstream>

#include "oxrctl/commands.h"
#include "oxrctl/paint.h"
#include "oxrctl/text.h"
#include "shared/duration.h"
#include "shared/nearest.h"
#include "shared/terminal.h"

namespace {

using namespace oxrctl;

constexpr char DESCRIPTION[] = "Shows what the Ostrel connection manager of this host did, does and will do.";

constexpr char FOOTER[] = R"(
Examples:
  oxrctl check                            how the service reads /etc/ostrel/oxr.conf
  oxrctl status                           what it did recently, from its log
  oxrctl status copy/oxr.log              the same for a log from another host
  oxrctl status /vmfs/volumes/logs        the same for all hosts whose logs are there, the worst first
  oxrctl explain "No sessions."           what a message means and what to do
  oxrctl explain 8                        the same for a code
  oxrctl plan my-site.toml                what it will do on the described host
  oxrctl plan my-site.toml --what-if max_vol_sessions=16
  oxrctl plan --from-log copy/oxr.log --write my-site.toml

Exit code: 0 everything is fine; 1 something needs attention and was printed; 2 the input cannot be used or the output
cannot be written, and one line on standard error says why; 3 ostrel-simhost, which `plan` needs, cannot be run.)";

using Run = std::function<Answer()>;

std::string colour_word = "auto";

// What every command can be told about its output.
void add_output(CLI::App& command, bool& json) {
    command.add_flag("--json", json, "Print one JSON object, for use by programs");
    command.add_option("--color", colour_word, "Colours: auto (on a terminal), always or never [auto]")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""));
}

void add_check(CLI::App& app, Run& run) {
    static CheckOptions options;
    CLI::App& command = *app.add_subcommand("check", "Show how the service reads a configuration file");
    command.footer(
        "\nReads the file as the service does, and changes nothing. Shows the value of each key in the file and in\n"
        "force, the lines that are ignored, and what the service would write back; the values of a service that runs "
        "and\n"
        "of one that starts where they differ; and characters that an editor does not show.\n"
        "Exit code: 0 the file is used unchanged; 1 something is corrected, ignored or noted; 2 the file cannot be "
        "read.");
    command.add_option("FILE", options.file, "Configuration file [/etc/ostrel/oxr.conf]");
    add_output(command, options.json);
    command.callback([&run] { run = [] { return check(options); }; });
}

std::int64_t seconds_of(const std::string& option, const std::string& text) {
    const auto seconds = shared::parse_duration(text);
    if (!seconds) {
        throw CLI::ValidationError(option, fmt::format("'{}' is no duration such as 10m", printable(text)));
    }
    return static_cast<std::int64_t>(*seconds);
}

void add_status(CLI::App& app, Run& run) {
    static StatusOptions options;
    static std::vector<std::string> logs;
    static std::string max_age;
    static std::string watch;
    CLI::App& command = *app.add_subcommand("status", "Show what the service did recently and whether all is well");
    command.footer(
        "\nWithout LOG, it reads the log of this host where /etc/ostrel/oxr.conf names it, and the version files. LOG "
        "is\n"
        "a log, with its older files (.1 to .6); HOST=LOG; a folder with oxr.log or with one such folder for each\n"
        "host; or - for standard input. Several logs are shown in one row each, the worst first.\n"
        "The age of the last message is judged for the log of this host, and for others with --max-age.\n"
        "Exit code: 0 all is well; 1 something is not; 2 a log cannot be read. With --check: 0 well, 1 warning,\n"
        "2 critical, 3 unknown.");
    command.add_option("LOG", options.logs, "Logs, HOST=LOG, folders [the log of this host]");
    command.add_option("--log", logs, "The same as LOG")->type_name("LOG")->expected(1)->take_all();
    command.add_option("--max-age", max_age, "How old the last message may be, such as 10m")->type_name("DURATION");
    command.add_option("--volume", options.targets.volume, "Show all that is known of these volumes or IQNs")
        ->type_name("PATTERN");
    command.add_option("--adapter", options.targets.adapter, "Only targets at this adapter (needs log_level=2)")
        ->type_name("NAME");
    command.add_flag("--problems", options.targets.problems, "Only targets with a problem");
    command.add_flag("--no-group", options.no_group, "A row for each target");
    add_output(command, options.json);
    command.add_option("--watch", watch, "Show it anew every so often, such as 5, until Ctrl-C")
        ->type_name("DURATION")
        ->excludes(command.get_option("--json"));
    CLI::Option* const check =
        command.add_flag("--check", options.check, "Print one line and exit as a monitoring plug-in does");
    CLI::Option* const metrics =
        command.add_option("--metrics", options.metrics, "Write metrics for Prometheus; - for standard output")
            ->type_name("FILE");
    command.add_flag("--per-volume", options.per_volume, "With --metrics, also metrics of each volume")->needs(metrics);
    for (const char* const other : {"--json", "--volume", "--adapter", "--problems", "--no-group", "--watch"}) {
        check->excludes(command.get_option(other));
        metrics->excludes(command.get_option(other));
    }
    check->excludes(metrics);
    command.callback([&run] {
        options.logs.insert(options.logs.end(), logs.begin(), logs.end());
        if (!max_age.empty()) {
            options.max_age = seconds_of("--max-age", max_age);
        }
        run = [] { return status(options); };
        if (!watch.empty()) {
            run = [seconds = seconds_of("--watch", watch)] {
                return watch_status(options, seconds, shared::wants_colours(*shared::colour_wish(colour_word)));
            };
        }
    });
}

void add_explain(CLI::App& app, Run& run) {
    static ExplainOptions options;
    CLI::App& command = *app.add_subcommand("explain", "Explain a log message or a code, and what to do");
    command.footer(
        "\nMESSAGE is a log line or a part of one, also as `oxrctl status` or ostrel-simhost prints it, or what\n"
        "`oxrctl status` says of a host's health. CODE is a name or a number, such as 8. To choose the kind:\n"
        "OXD 8 (a renewal), PSP 8 (the path-selection plug-in).\n"
        "Exit code: 0 it was found; 1 nothing matches.");
    command.add_option("MESSAGE|CODE", options.words, "What to explain");
    command.add_flag("--all", options.all, "Print the whole catalogue as Markdown");
    add_output(command, options.json);
    command.callback([&run] { run = [] { return explain(options); }; });
}

void add_plan(CLI::App& app, Run& run) {
    static PlanOptions options;
    CLI::App& command = *app.add_subcommand("plan", "Show what the service will do on a described host");
    command.footer(
        "\nSCENARIO is a scenario file or the name of an installed scenario, as for ostrel-simhost. With two of them,\n"
        "or with --what-if, the differences are shown. KEY is a configuration key, the number of volumes\n"
        "(db-##=48), the number of initial connections (NAME.sessions=2), login_seconds, claim_seconds or\n"
        "discovery_seconds, or an event of a scenario, which happens at the start: nic_down=10.1.1.12,\n"
        "'add_array={ group = \"prod\", name = \"p4\", data_ips = [\"10.1.1.104\"] }'. `ostrel-simhost --keys "
        "SCENARIO`\n"
        "lists all keys. A configuration value that the service would correct is refused, unless --as-written is "
        "given.\n"
        "The LOG of --from-log is that of one host, given as for `oxrctl status`.\n"
        "Exit code: 0 the host settles within its limits; 1 it does not, or a volume gets fewer sessions than\n"
        "required; 2 a scenario has an error, or the service would correct a value; 3 ostrel-simhost cannot be run.");
    CLI::Option* const scenario = command.add_option("SCENARIO", options.scenarios, "One scenario, or two to compare");
    CLI::Option* const from_log = command
                                      .add_option("--from-log", options.from_log,
                                                  "Make the scenario of what this log tells, and say what it doesn't")
                                      ->type_name("LOG")
                                      ->excludes(scenario);
    command
        .add_option("--config", options.config, "With --from-log, the configuration file [what the log tells of it]")
        ->type_name("FILE")
        ->needs(from_log);
    command.add_option("--write", options.write, "With --from-log, also write the scenario to this new file")
        ->type_name("FILE")
        ->needs(from_log);
    command.add_option("--what-if", options.what_if, "Compare with the scenario after this change; can be repeated")
        ->type_name("KEY=VALUE")
        ->expected(1)
        ->take_all();
    command.add_flag("--as-written", options.as_written,
                     "Plan with what the service makes of a value that it corrects, instead of refusing it");
    command.add_option("--for", options.run_for, "How much time to simulate, such as 45m [as in the scenario]")
        ->type_name("DURATION");
    add_output(command, options.json);
    command.callback([&run] {
        if (options.scenarios.empty() && options.from_log.empty()) {
            throw CLI::RequiredError("SCENARIO or --from-log");
        }
        if (options.scenarios.size() > 2) {
            throw CLI::ArgumentMismatch::AtMost("SCENARIO", 2, options.scenarios.size());
        }
        run = [] { return plan(options); };
    });
}

bool print(const std::string& text) {
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
}

int refuse(const std::string& what, ExitCode code) {
    fmt::print(stderr, "oxrctl: {}\n", without_control_characters(what));
    return code;
}

int show(const std::string& text, ExitCode code) {
    if (print(text)) {
        return code;
    }
    const int error = errno;
    if (error == EPIPE || shared::output_is_abandoned()) {
        shared::end_by_signal(SIGPIPE);
    }
    return refuse(std::string("standard output: ") + std::strerror(error), EXIT_UNUSABLE);
}

// The first word that isn't an option; empty, or one of the commands: there is nothing to say against it.
void refuse_unknown_command(const CLI::App& app, int argc, char** argv) {
    const std::string_view word = argc > 1 ? argv[1] : "";
    std::vector<std::string> names;
    for (const CLI::App* const command : app.get_subcommands({})) {
        names.push_back(command->get_name());
    }
    if (word.empty() || word.starts_with('-') || std::find(names.begin(), names.end(), word) != names.end()) {
        return;
    }
    const std::vector<std::string_view> views(names.begin(), names.end());
    const std::string near = shared::nearest(word, views);
    throw Refusal(fmt::format(
        "no command '{}'; {}", printable(word),
        near.empty() ? fmt::format("there are {}", fmt::join(names, ", ")) : fmt::format("did you mean {}?", near)));
}

// " status"; empty: none was.
std::string command_given(const CLI::App& app) {
    const auto given = app.get_subcommands();
    return given.empty() ? "" : " " + given.front()->get_name();
}

int run_command(CLI::App& app, const Run& run) {
    set_line_width(shared::terminal_width().value_or(LINE_WIDTH));
    const Answer answer = run();
    if (!answer.complaint.empty()) {
        refuse(answer.complaint, answer.exit_code);
    }
    const bool is_json = app.get_subcommands().front()->count("--json") > 0;
    const bool with_colours = !is_json && shared::wants_colours(*shared::colour_wish(colour_word));
    return show(with_colours ? painted(answer.text) : answer.text, answer.exit_code);
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    CLI::App app(DESCRIPTION, "oxrctl");
    app.footer(FOOTER);
    app.require_subcommand(1);
    app.set_version_flag("--version", OXR_VERSION, "Print the version");
    Run run;
    add_check(app, run);
    add_status(app, run);
    add_explain(app, run);
    add_plan(app, run);
    try {
        refuse_unknown_command(app, argc, argv);
        app.parse(argc, argv);
        return run_command(app, run);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0 && std::find(argv, argv + argc, std::string_view("--check")) != argv + argc) {
            return show(fmt::format("OSTREL UNKNOWN - {}\n", printable(error.what())), EXIT_NOT_RUN);
        }
        std::ostringstream help;
        std::ostringstream mistake;
        return app.exit(error, help, mistake) == 0
                   ? show(help.str(), EXIT_FINE)
                   : refuse(fmt::format("{} (see oxrctl{} --help)", error.what(), command_given(app)), EXIT_UNUSABLE);
    } catch (const Refusal& refusal) {
        return refuse(refusal.what(), refusal.exit_code);
    } catch (const std::exception& exception) {
        return refuse(exception.what(), EXIT_UNUSABLE);
    }
}
