#include "fault_sweep/run.h"

#include <malloc.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "OstrelConnections/renewal/renewal_state.h"
#include "OstrelProvider/config.h"
#include "OstrelProvider/log_level.h"
#include "OstrelProvider/provider_users.h"
#include "OstrelProvider/service.h"
#include "OstrelProvider/worker.h"
#include "configuration/config_keys.h"
#include "fault_sweep/faults.h"
#include "support/engine.h"
#include "support/log_lines.h"

#ifdef OXR_COVERAGE
extern "C" void __gcov_dump(void);
#endif

using namespace testing_support;
using simhost::Event;
using simhost::Fault;
using simhost::Host;

namespace fault_sweep {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Report, hit, result, host_after, config_after, calls, broken)

namespace {

constexpr unsigned longest_run_seconds = 60;  // of real time, under a sanitizer on a busy machine
constexpr int passes_to_settle = 3;
constexpr double no_horizon = 1e9;

// Each key has one line, below a comment.
bool is_whole(const std::string& config) {
    return std::all_of(std::begin(config_keys), std::end(config_keys), [&](const ConfigKey& key) {
        const std::string line = "\n" + std::string(key.name) + "=";
        return config.find(line) != std::string::npos && config.find(line) == config.rfind(line);
    });
}

class Run {
public:
    Run(const Situation& situation, Host& host, const Fault& fault, const Report& undisturbed)
        : situation_(situation), host_(host), fault_(fault), undisturbed_(undisturbed) {}

    Report go() {
        work();
        if (report_.hit) {
            look_at_the_result();
            look_at_what_is_left();
        }
        if (fault_.operation.empty()) {
            count_calls();
        }
        if (report_.hit || fault_.operation.empty()) {
            settle();
        }
        return report_;
    }

private:
    const Situation& situation_;
    Host& host_;
    const Fault& fault_;
    const Report& undisturbed_;
    Report report_;
    std::string met_;  // the first call that failed; empty for "new"
    std::string config_before_;

    void expect(bool holds, const std::string& what) {
        if (!holds) {
            report_.broken.push_back(what);
        }
    }

    void work() {
        host_.observe([this](const Event& event) {
            if (event.kind == Event::Kind::fault_injected && met_.empty()) {
                met_ = event.text;
            }
        });
        config_before_ = host_.read_file(OSTREL_CONFIG_FILE);
        report_.result.reserve(256);  // before the blocks are counted
        log_level = fault_.nth % 2 == 0 ? 2 : 1;
        host_.fail(fault_);
        host_.count_allocations(true);
        report_.result.append(situation_.act(host_));
        for (int again = 1; fault_.persistent && again < situation_.repetitions; ++again) {
            (void)situation_.act(host_);
        }
        host_.count_allocations(false);
        report_.hit = host_.faults_injected() > 0;
        report_.config_after = host_.read_file(OSTREL_CONFIG_FILE);
        host_.clear_faults();
    }

    void count_calls() {
        for (const std::string& operation : host_.operations_called()) {
            for (const Fault& each : faults_of(operation)) {
                report_.calls[operation][each.path_contains] = host_.calls(operation, each.path_contains);
            }
        }
    }

    void look_at_the_result() {
        std::vector<std::string> complaints = short_lines(host_.log());
        std::erase_if(complaints,
                      [](const auto& line) { return !line.starts_with("ERROR") && !line.starts_with("WARN"); });
        std::string told;
        for (const std::string& line : complaints) {
            told += "\n  " + line;
        }
        expect(is_told(fault_, met_.empty() ? fault_.operation : met_, complaints),
               "nothing in the log tells of it: " + told);
        expect(may_come_of(fault_, undisturbed_.result, report_.result), "result " + report_.result);
        // Where no write is whole any more, the old text can't be put back either.
        expect(report_.config_after == config_before_ || report_.config_after == undisturbed_.config_after ||
                   (fault_.persistent && fault_.short_by > 0 && met_.ends_with(OSTREL_CONFIG_FILE)),
               "the configuration file is neither as before nor as it should be:\n" + report_.config_after);
    }

    void look_at_what_is_left() {
        for (int waited = 0; conn_renew_thread.load() != 0 && waited < 10'000'000; ++waited) {
            sched_yield();  // one that could not be joined takes itself off
        }
        expect(conn_renew_thread.load() == 0, "a renewal thread is left");
        expect(renew_connections_running.load() == 0, "a renewal counts as running");
        hand_out(ProviderMi::service_instance);  // the mutexes are there again
        expect(StopService() == 0, "the service can't be stopped");
        expect(oxr_thread.load() == 0, "a worker is left");
        for (const std::string& each : what_is_held(host_)) {
            expect(each.ends_with("IMA lists") && fault_.operation == "IMA_FreeMemory", "held: " + each);
        }
    }

    void settle() {
        if (situation_.is_start && report_.hit) {
            (void)situation_.act(host_);  // what an operator does about a start that failed
        }
        host_.set_horizon(no_horizon);
        for (int pass = 0; pass < passes_to_settle; ++pass) {
            run_cycle(host_);
            const simhost::Totals totals = host_.totals();
            report_.host_after = situation_.compare_totals_only ? std::to_string(totals.sessions) + " sessions, " +
                                                                      std::to_string(totals.active_paths) + " paths"
                                                                : testing_support::describe(host_);
            if (report_.host_after == undisturbed_.host_after) {
                break;
            }
        }
        expect(!report_.hit || report_.host_after == undisturbed_.host_after ||
                   (situation_.excused != nullptr && situation_.excused(host_)),
               "not settled after three passes:\n" + report_.host_after);
        const std::string config = host_.read_file(OSTREL_CONFIG_FILE);
        run_cycle(host_);
        expect(host_.read_file(OSTREL_CONFIG_FILE) == config && is_whole(config),
               "the configuration file is not whole:\n" + config);
        const auto violations = host_.violations();
        report_.broken.insert(report_.broken.end(), violations.begin(), violations.end());
    }
};

[[noreturn]] void leave() {
#ifdef OXR_COVERAGE
    __gcov_dump();
#endif
    _exit(0);
}

}  // namespace

Report run(const Situation& situation, Host& host, const Fault& fault, const Report& undisturbed) {
    const std::filesystem::path root = host.root();
    const std::string kept = host.root() + ".kept";
    const std::string told = host.root() + ".told";
    std::filesystem::copy(root, kept, std::filesystem::copy_options::recursive);
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(longest_run_seconds);
        // The memory of a pass's large buffers is kept for the next; new pages for each took a third of a run.
        mallopt(M_MMAP_MAX, 0);
        mallopt(M_TRIM_THRESHOLD, INT_MAX);
        std::ofstream(told) << nlohmann::json(Run(situation, host, fault, undisturbed).go());
        leave();
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    std::filesystem::remove_all(root);
    std::filesystem::rename(kept, root);
    Report report;
    if (status != 0) {
        report.hit = true;
        report.broken = {"ended by " + std::string(!WIFSIGNALED(status)          ? "a sanitizer's finding"
                                                   : WTERMSIG(status) == SIGALRM ? "a hang"
                                                                                 : strsignal(WTERMSIG(status)))};
    } else {
        nlohmann::json::parse(std::ifstream(told)).get_to(report);
    }
    std::filesystem::remove(told);
    return report;
}

}  // namespace fault_sweep
