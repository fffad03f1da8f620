// Months of a host's life, simulated: seed after seed, each in a process of its own, from the seed alone. Prints
// what was broken and how to see it again; the exit status tells whether anything was.
#include <fmt/format.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include "soak/season.h"

namespace {

using soak::Tally;

struct Options {
    std::uint64_t first = 1;
    std::uint64_t last = 240;
    unsigned jobs = std::max(1U, std::thread::hardware_concurrency());
    bool write = false;
    soak::SeasonOptions season;
};

Options read_arguments(int argc, char** argv) {
    Options options;
    CLI::App app("Months of a host's life, simulated from seeds", "oxr_soak");
    std::string seeds = "1-240";
    app.add_option("--seeds,--seed", seeds, "Seeds to go through: FIRST-LAST, or one [1-240]");
    app.add_option("--passes", options.season.passes, "Polling passes of each seed [600]");
    app.add_option("--jobs", options.jobs, "Seeds at a time [one for each processor]")->check(CLI::PositiveNumber);
    app.add_flag("--trace", options.season.trace, "Print the events of the host and the log");
    app.add_flag("--write", options.write, "Write down the scenario of every seed, not only of those that fail");
    try {
        app.parse(argc, argv);
        char rest = 0;
        const int read = std::sscanf(seeds.c_str(), "%" SCNu64 "-%" SCNu64 "%c", &options.first, &options.last, &rest);
        if (read < 1 || read > 2) {
            throw CLI::ValidationError("--seeds", "expected FIRST-LAST, found " + seeds);
        }
        options.last = read == 1 ? options.first : options.last;
    } catch (const CLI::ParseError& error) {
        std::exit(app.exit(error) == 0 ? 0 : 2);
    }
    return options;
}

void print_replay(std::uint64_t seed, const Options& options) {
    fmt::print("  replay: oxr_soak --seed {} --passes {} --trace\n", seed, options.season.passes);
    std::fflush(stdout);
}

// A pass's large buffers come from memory that stays: mapping it anew in each pass takes most of the time.
void keep_memory() {
    constexpr int keep = 64 << 20;
    (void)mallopt(M_MMAP_THRESHOLD, keep);
    (void)mallopt(M_TRIM_THRESHOLD, keep);
}

// In a process of its own.
[[noreturn]] void run_seed(std::uint64_t seed, const Options& options, Tally& tally) {
    keep_memory();
    // The library's own words there are many; what a sanitizer has to say goes to the descriptor itself.
    if (std::FILE* const nowhere = std::fopen("/dev/null", "w"); nowhere != nullptr && !options.season.trace) {
        stderr = nowhere;
    }
    const auto [broken, scenario] = soak::live_through(seed, options.season, tally);
    if (!broken.empty()) {
        fmt::print("seed {}, {}\n", seed, broken);
        print_replay(seed, options);
    }
    if (!broken.empty() || options.write) {
        const auto file = std::filesystem::temp_directory_path() / fmt::format("oxr-soak-{}.toml", seed);
        std::ofstream(file) << scenario;
        fmt::print("  what happened to the host: ostrel-simhost {}\n", file.string());
    }
    std::fflush(stdout);
    std::exit(broken.empty() ? 0 : 1);
}

[[noreturn]] void give_up(const char* call) {
    std::perror(call);
    std::exit(2);
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = read_arguments(argc, argv);
    // Shared with the seeds' processes, each of which fills its own.
    const std::size_t size = sizeof(Tally) * (options.last - options.first + 1);
    void* const shared = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (shared == MAP_FAILED) {
        give_up("oxr_soak: mmap");
    }
    auto* const tallies = static_cast<Tally*>(shared);
    std::map<pid_t, std::uint64_t> running;
    Tally total;
    int ended = 0;
    int failed = 0;
    for (std::uint64_t next = options.first; next <= options.last || !running.empty();) {
        if (next <= options.last && running.size() < options.jobs) {
            std::fflush(stdout);
            const pid_t child = fork();
            if (child < 0) {
                give_up("oxr_soak: fork");
            }
            if (child == 0) {
                run_seed(next, options, tallies[next - options.first]);
            }
            running[child] = next++;
            continue;
        }
        int status = 0;
        const auto found = running.find(wait(&status));
        const std::uint64_t seed = found->second;
        const Tally& tally = tallies[seed - options.first];
        running.erase(found);
        total.add(tally);
        if (!WIFEXITED(status) || WEXITSTATUS(status) > 1) {
            fmt::print("seed {}, pass {}: the process ended with status {:#x}\n", seed, tally.passes, status);
            print_replay(seed, options);
        }
        failed += status == 0 ? 0 : 1;
        if (++ended % 40 == 0) {
            fmt::print("{} seeds: {} passes, {:.0f} simulated hours, {} seeds failed\n", ended, total.passes,
                       total.seconds / 3600, failed);
            std::fflush(stdout);
        }
    }
    total.print();
    return failed == 0 ? 0 : 1;
}
