// oxrctl: what the connection manager of a host did, does and will do.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <sstream>

#include "oxrctl/commands.h"
#include "oxrctl/text.h"

namespace {

using namespace oxrctl;

constexpr char DESCRIPTION[] = "Shows what the Ostrel connection manager of this host did, does and will do.";

constexpr char FOOTER[] = R"(
Examples:
  oxrctl check                            what the service makes of /etc/ostrel/oxr.conf
  oxrctl status                           what it did lately, from its log
  oxrctl status --log copy/oxr.log        the same for a log from elsewhere
  oxrctl explain "No sessions."           what a message means and what to do
  oxrctl explain 8                        the same for a code
  oxrctl plan my-site.toml                what it will do on a host as described
  oxrctl plan my-site.toml --what-if max_vol_sessions=16

Exit code: 0 fine; 1 something to look at, which was printed; 2 what was given can't be used or the output can't be
written, which one line on standard error tells; 3 ostrel-simhost, which `plan` needs, can't be run.)";

using Run = std::function<Answer()>;

void add_json(CLI::App& command, bool& json) {
    command.add_flag("--json", json, "For programs: one JSON object");
}

void add_check(CLI::App& app, Run& run) {
    static CheckOptions options;
    CLI::App& command = *app.add_subcommand("check", "Tell what the service makes of a configuration file");
    command.footer(
        "\nReads the file as the service does, and changes nothing: the value of each key in the file and in\n"
        "force, lines that are ignored, and what the service would write back.\n"
        "Exit code: 0 it is taken as it stands; 1 something is corrected or ignored; 2 it can't be read.");
    command.add_option("FILE", options.file, "Configuration file [/etc/ostrel/oxr.conf]");
    add_json(command, options.json);
    command.callback([&run] { run = [] { return check(options); }; });
}

void add_status(CLI::App& app, Run& run) {
    static StatusOptions options;
    CLI::App& command = *app.add_subcommand("status", "Tell what the service did lately, from its log");
    command.footer(
        "\nReads the log and its older files (.1 to .6), without --log the configuration and the version files too.\n"
        "Exit code: 0 the last pass ended well; 1 there are warnings or errors since the last good pass, the\n"
        "worker is stopped or held off, or there is no pass in the log; 2 the log can't be read.");
    command.add_option("--log", options.log, "Log file [oxr.log where /etc/ostrel/oxr.conf says]")->type_name("FILE");
    add_json(command, options.json);
    command.callback([&run] { run = [] { return status(options); }; });
}

void add_explain(CLI::App& app, Run& run) {
    static ExplainOptions options;
    CLI::App& command = *app.add_subcommand("explain", "Tell what a log message or a code means and what to do");
    command.footer(
        "\nMESSAGE is a line of the log or a part of one; CODE is a name or a number, such as 8. Of one kind only:\n"
        "OXD 8 (a renewal), PSP 8 (the path-selection plug-in).\n"
        "Exit code: 0 it was found; 1 there is nothing of this kind.");
    command.add_option("MESSAGE|CODE", options.words, "What to explain");
    command.add_flag("--all", options.all, "The whole catalogue, in Markdown");
    add_json(command, options.json);
    command.callback([&run] { run = [] { return explain(options); }; });
}

void add_plan(CLI::App& app, Run& run) {
    static PlanOptions options;
    CLI::App& command = *app.add_subcommand("plan", "Tell what the service will do on a host as described");
    command.footer(
        "\nSCENARIO is a file, or the name of a shipped scenario, as ostrel-simhost takes it. With two of them, or\n"
        "with --what-if, the differences are shown. KEY is a configuration key, a number of volumes (db-##=48),\n"
        "first connections (NAME.sessions=2), or login_seconds, claim_seconds or discovery_seconds.\n"
        "Exit code: 0 the host settles within its limits; 1 it doesn't, or a volume is cut short; 2 a\n"
        "scenario has a mistake; 3 ostrel-simhost can't be run.");
    command.add_option("SCENARIO", options.scenarios, "One scenario, or two to compare")->required()->expected(1, 2);
    command
        .add_option("--what-if", options.what_if,
                    "Compare with the scenario where this is different; may be given several times")
        ->type_name("KEY=VALUE")
        ->expected(1)
        ->take_all();
    command.add_option("--for", options.run_for, "Simulated time to look ahead, such as 45m [the scenario's own]")
        ->type_name("DURATION");
    add_json(command, options.json);
    command.callback([&run] { run = [] { return plan(options); }; });
}

// A reader that went away is told like any other failure.
bool print(const std::string& text) {
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
}

int refuse(const std::string& what, ExitCode code) {
    fmt::print(stderr, "oxrctl: {}\n", without_control_characters(what));
    return code;
}

int show(const std::string& text, ExitCode code) {
    return print(text) ? code : refuse(std::string("standard output: ") + std::strerror(errno), EXIT_UNUSABLE);
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
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        std::ostringstream help;
        std::ostringstream mistake;
        return app.exit(error, help, mistake) == 0
                   ? show(help.str(), EXIT_FINE)
                   : refuse(std::string(error.what()) + " (see oxrctl --help)", EXIT_UNUSABLE);
    }
    try {
        const Answer answer = run();
        return show(answer.text, answer.exit_code);
    } catch (const Refusal& refusal) {
        return refuse(refusal.what(), refusal.exit_code);
    } catch (const std::exception& exception) {
        return refuse(exception.what(), EXIT_UNUSABLE);
    }
}
