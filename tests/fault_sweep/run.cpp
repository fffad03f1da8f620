#include "fault_sweep/run.h"

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "OstrelConnections/renewal/renewal_state.h"
#include "OstrelProvider/config.h"
#include "OstrelProvider/provider_users.h"
#include "OstrelProvider/service.h"
#include "fault_sweep/faults.h"
#include "support/engine.h"
#include "support/log_lines.h"

#ifdef OXR_COVERAGE
extern "C" void __gcov_dump(void);
#endif

using simhost::Event;
using simhost::Fault;
using simhost::Host;

namespace fault_sweep {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Report, hit, result, host_after, config_before, config_after, counts, complaints,
                                   broken, log)

namespace {

constexpr unsigned longest_run_seconds = 60;  // of real time, under a sanitizer on a busy machine
constexpr char CONFIG[] = "/etc/ostrel/oxr.conf";
constexpr char LOG[] = "/var/log/ostrel/oxr.log";
constexpr int passes_to_settle = 3;
constexpr double no_horizon = 1e9;

// --- looking at the host ------------------------------------------------------------------------------------------

std::string describe(const Host& host, bool totals_only) {
    if (!totals_only) {
        return testing_support::describe(host);
    }
    const simhost::Totals totals = host.totals();
    return std::to_string(totals.sessions) + " sessions, " + std::to_string(totals.active_paths) + " paths\n";
}

std::vector<std::string> calls_made(const Host& host) {
    std::vector<std::string> made;
    for (const std::string& operation : host.operations_called()) {
        made.push_back(operation + " " + std::to_string(host.calls(operation)));
    }
    return made;
}

// Warnings and errors, without the source lines in them.
std::vector<std::string> complaints(const Host& host) {
    std::vector<std::string> found = testing_support::short_lines(host.log());
    std::erase_if(found, [](const auto& line) { return !line.starts_with("ERROR") && !line.starts_with("WARN"); });
    return found;
}

// --- what must hold -----------------------------------------------------------------------------------------------

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += "\n  " + line;
    }
    return text;
}

class Checks {
public:
    Checks(const Situation& situation, Host& host, const Fault& fault, const Report& undisturbed, Report& report)
        : situation_(situation), host_(host), fault_(fault), undisturbed_(undisturbed), report_(report) {}

    void after_work(const std::string& met) {
        expect(is_told(fault_, met.empty() ? fault_.operation : met, report_.complaints),
               "nothing in the log tells of it: " + joined(report_.complaints));
        expect(may_come_of(fault_, undisturbed_.result, report_.result), "result " + report_.result);
        // Where no write is whole any more, the old text can't be put back either.
        expect(report_.config_after == report_.config_before || report_.config_after == undisturbed_.config_after ||
                   (fault_.persistent && fault_.short_by > 0 && met.ends_with(CONFIG)),
               "the configuration file is neither as before nor as it should be:\n" + report_.config_after);
    }

    void at_rest() {
        for (int waited = 0; conn_renew_thread.load() != 0 && waited < 10'000'000; ++waited) {
            sched_yield();  // one that could not be joined takes itself off
        }
        expect(conn_renew_thread.load() == 0, "a renewal thread is left");
        expect(renew_connections_running.load() == 0, "a renewal counts as running");
        hand_out(ProviderMi::service_instance);  // the mutexes are there again
        expect(StopService() == 0, "the service can't be stopped");
        expect(oxr_thread.load() == 0, "a worker is left");
        for (const std::string& mutex : testing_support::shared_mutexes_held()) {
            expect(false, mutex + " is held");
        }
        const bool frees_fail = fault_.operation == "IMA_FreeMemory";
        expect(frees_fail || host_.lists_held() == 0, std::to_string(host_.lists_held()) + " IMA lists held");
        expect(host_.descriptors_held() == 0, std::to_string(host_.descriptors_held()) + " descriptors held");
        expect(host_.blocks_held() == 0, std::to_string(host_.blocks_held()) + " heap blocks held");
    }

    void settles() {
        if (situation_.is_start) {
            (void)situation_.act(host_);  // what an operator does about a start that failed
        }
        host_.set_horizon(no_horizon);
        for (int pass = 0; pass < passes_to_settle && report_.host_after != undisturbed_.host_after; ++pass) {
            run_cycle(host_);
            report_.host_after = describe(host_, situation_.compare_totals_only);
        }
        const bool settled = report_.host_after == undisturbed_.host_after ||
                             (situation_.excused != nullptr && situation_.excused(host_));
        expect(settled, "not settled after three passes:\n" + report_.host_after);
        const std::string config = host_.read_file(CONFIG);
        run_cycle(host_);
        expect(host_.read_file(CONFIG) == config && is_whole(config),
               "the configuration file is not whole:\n" + config);
        for (const std::string& violation : host_.violations()) {
            expect(false, violation);
        }
    }

private:
    const Situation& situation_;
    Host& host_;
    const Fault& fault_;
    const Report& undisturbed_;
    Report& report_;

    void expect(bool holds, const std::string& what) {
        if (!holds) {
            report_.broken.push_back(what);
        }
    }

    // Comments and values, each key once.
    static bool is_whole(const std::string& config) {
        std::istringstream lines(config);
        std::multiset<std::string> keys;
        for (std::string line; std::getline(lines, line);) {
            if (!line.empty() && line[0] != '#') {
                keys.insert(line.substr(0, line.find('=')));
            }
        }
        return keys.size() == 11 && std::set<std::string>(keys.begin(), keys.end()).size() == 11;
    }
};

// --- the run ------------------------------------------------------------------------------------------------------

Report work(const Situation& situation, Host& host, const std::optional<Fault>& fault, const Report& undisturbed) {
    Report report;
    std::string met;
    host.observe([&met](const Event& event) {
        if (event.kind == Event::Kind::fault_injected && met.empty()) {
            met = event.text;
        }
    });
    report.config_before = host.read_file(CONFIG);
    report.result.reserve(256);  // before the blocks are counted
    if (fault) {
        log_level = fault->nth % 2 == 0 ? 2 : 1;
        host.fail(*fault);
    }
    host.count_allocations(true);
    for (int i = 0; i < (fault && fault->persistent ? situation.repetitions : 1); ++i) {
        const std::string result = situation.act(host);
        if (i == 0) {
            report.result.append(result);
        }
    }
    host.count_allocations(false);
    report.hit = host.faults_injected() > 0;
    report.counts = calls_made(host);
    report.config_after = host.read_file(CONFIG);
    if (met.find(LOG) == std::string::npos) {
        report.complaints = complaints(host);
    }
    host.clear_faults();
    if (!fault) {
        host.set_horizon(no_horizon);
        for (int pass = 0; pass < passes_to_settle; ++pass) {
            run_cycle(host);
        }
        report.host_after = describe(host, situation.compare_totals_only);
    } else if (report.hit) {
        Checks checks(situation, host, *fault, undisturbed, report);
        checks.after_work(met);
        checks.at_rest();
        checks.settles();
        if (!report.broken.empty()) {
            report.log = host.log();
        }
    }
    return report;
}

// The files below the host's root, kept aside to be put back after a run in another process.
class Files {
public:
    explicit Files(const std::string& root) : root_(root), kept_(root + ".kept") {
        std::filesystem::remove_all(kept_);
        std::filesystem::copy(root_, kept_, std::filesystem::copy_options::recursive);
    }
    ~Files() {
        for (const auto& each : std::filesystem::directory_iterator(root_)) {
            std::filesystem::remove_all(each.path());
        }
        std::filesystem::copy(kept_, root_, std::filesystem::copy_options::recursive);
        std::filesystem::remove_all(kept_);
    }
    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;

private:
    const std::filesystem::path root_;
    const std::filesystem::path kept_;
};

[[noreturn]] void leave() {
#ifdef OXR_COVERAGE
    __gcov_dump();
#endif
    _exit(0);
}

void write_all(int fd, const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const ssize_t written = ::write(fd, text.data() + at, text.size() - at);
        if (written <= 0) {
            _exit(1);
        }
        at += static_cast<std::size_t>(written);
    }
}

std::string read_all(int fd) {
    std::string text;
    char buffer[4096];
    for (ssize_t got; (got = ::read(fd, buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<std::size_t>(got));
    }
    return text;
}

// A run that could not tell of itself.
Report fallen(const std::string& why) {
    Report report;
    report.hit = true;
    report.broken = {why};
    return report;
}

}  // namespace

Report run(const Situation& situation, Host& host, const std::optional<Fault>& fault, const Report& undisturbed) {
    const Files files(host.root());
    int ends[2];
    if (::pipe(ends) != 0) {
        return fallen("no pipe");
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(ends[0]);
        ::alarm(longest_run_seconds);
        write_all(ends[1], nlohmann::json(work(situation, host, fault, undisturbed)).dump());
        leave();
    }
    ::close(ends[1]);
    const std::string text = read_all(ends[0]);
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        const std::string how = !WIFSIGNALED(status)          ? "a sanitizer's finding"
                                : WTERMSIG(status) == SIGALRM ? "a hang"
                                                              : strsignal(WTERMSIG(status));
        return fallen("ended by " + how);
    }
    return nlohmann::json::parse(text).get<Report>();
}

}  // namespace fault_sweep
