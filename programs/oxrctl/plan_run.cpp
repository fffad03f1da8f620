#include "oxrctl/plan_run.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>

#include "shared/child_process.h"
#include "shared/terminal.h"

namespace oxrctl {

namespace {

namespace fs = std::filesystem;

constexpr char SIMHOST[] = "ostrel-simhost";

// Beside this program, where the build leaves it, or by PATH.
std::string simhost_program() {
    std::error_code ignored;
    const fs::path own_folder = fs::read_symlink("/proc/self/exe", ignored).parent_path();
    for (const fs::path& folder : {own_folder, own_folder / "../ostrel-simhost"}) {
        const fs::path candidate = folder / SIMHOST;
        if (fs::is_regular_file(candidate, ignored) && access(candidate.c_str(), X_OK) == 0) {
            return candidate.lexically_normal().string();
        }
    }
    return SIMHOST;
}

class TemporaryFolder {
public:
    TemporaryFolder() {
        std::error_code code;
        path_ = (fs::temp_directory_path(code) / "oxrctl-XXXXXX").string();
        if (code || mkdtemp(path_.data()) == nullptr) {
            throw Refusal(fmt::format("no temporary folder can be made: {}", std::strerror(errno)), EXIT_NOT_RUN);
        }
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

std::atomic<int> ended_by{0};

void on_end(int signal) {
    ended_by = signal;
    shared::send_to_children(SIGTERM);
}

// An interrupt ends the children, which tell how far they came; this program stays to clean up. So it does at the
// signals that are to end it, too, and then it ends by them.
class InterruptsForChildren {
public:
    InterruptsForChildren() {
        std::signal(SIGINT, SIG_IGN);
        for (const int signal : {SIGTERM, SIGHUP}) {
            if (std::signal(signal, on_end) == SIG_IGN) {
                std::signal(signal, SIG_IGN);  // as nohup wants it
            }
        }
    }
    InterruptsForChildren(const InterruptsForChildren&) = delete;
    InterruptsForChildren& operator=(const InterruptsForChildren&) = delete;
    ~InterruptsForChildren() {
        std::signal(SIGINT, SIG_DFL);
        if (ended_by != 0) {
            shared::end_by_signal(ended_by);
        }
    }
};

std::string scenario_beside(const std::string& root) {
    return root + "/scenario.toml";
}

std::vector<std::string> command_of(const PlanRun& run, const std::string& root) {
    std::vector<std::string> command = {simhost_program(), "--json", "--root", root};
    for (const std::string& override_text : run.overrides) {
        command.insert(command.end(), {"--set", override_text});
    }
    if (!run.run_for.empty()) {
        command.insert(command.end(), {"--for", run.run_for});
    }
    command.insert(command.end(), {"--", run.text.empty() ? run.scenario : scenario_beside(root)});
    return command;
}

// What the other program says of what it was given, in the words of this one's command line.
std::string in_own_words(std::string text) {
    constexpr std::pair<std::string_view, std::string_view> words[] = {{"ostrel-simhost: --set ", "--what-if "},
                                                                       {"ostrel-simhost: ", ""}};
    for (const auto& [theirs, ours] : words) {
        for (std::size_t at; (at = text.find(theirs)) != std::string::npos;) {
            text.replace(at, theirs.size(), ours);
        }
    }
    while (text.ends_with('\n')) {
        text.pop_back();
    }
    return text;
}

Plan run_plan(const PlanRun& run) {
    const TemporaryFolder root;
    if (!run.text.empty()) {
        write_file(scenario_beside(root.path()), run.text);
    }
    PlanReader reader;
    shared::ChildProcess child;
    child.command = command_of(run, root.path());
    child.on_output = [&](std::string_view piece) { reader.take(piece); };
    shared::ChildEnd end;
    try {
        end = shared::run_child(child);
    } catch (const Json::exception&) {
        throw Refusal(fmt::format("{} says what oxrctl doesn't understand: are they of one version?", SIMHOST),
                      EXIT_NOT_RUN);
    }
    if (!end.started) {
        throw Refusal(fmt::format("{} can't be run (looked for it beside oxrctl and in PATH): {}", SIMHOST,
                                  std::strerror(end.error_number)),
                      EXIT_NOT_RUN);
    }
    if (end.exit_code == EXIT_UNUSABLE) {
        std::string why = in_own_words(end.error_output);
        if (const std::string made = scenario_beside(root.path()); why.starts_with(made)) {
            why.replace(0, made.size(), "the scenario made of " + run.scenario);
        }
        throw Refusal(why);
    }
    Plan plan = reader.finish();
    if (!plan.complete) {
        const std::string why = in_own_words(end.error_output);
        throw Refusal(fmt::format("{} ended too early: {}", SIMHOST, why.empty() ? "it doesn't say why" : why),
                      EXIT_NOT_RUN);
    }
    if (!run.text.empty()) {
        plan.scenario = run.scenario;
    }
    return plan;
}

}  // namespace

void write_file(const std::string& file, std::string_view text) {
    const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    const ssize_t written = descriptor < 0 ? -1 : write(descriptor, text.data(), text.size());
    const int error = written < 0 ? errno : ENOSPC;
    if (descriptor >= 0) {
        close(descriptor);
    }
    if (written != static_cast<ssize_t>(text.size())) {
        if (descriptor >= 0) {
            unlink(file.c_str());
        }
        throw Refusal(fmt::format("{}: {}", file, std::strerror(error)));
    }
}

std::vector<Plan> run_plans(const std::vector<PlanRun>& runs) {
    const InterruptsForChildren interrupts;
    std::vector<std::future<Plan>> running;
    for (const PlanRun& run : runs) {
        running.push_back(std::async(std::launch::async, run_plan, run));
    }
    std::vector<Plan> plans;
    for (auto& each : running) {
        plans.push_back(each.get());
    }
    return plans;
}

}  // namespace oxrctl
