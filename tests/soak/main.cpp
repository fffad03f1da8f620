// Months of a host's life, simulated: seed after seed, each in a process of its own, from the seed alone. Prints
// what was broken and how to see it again; the exit status tells whether anything was.
#include <fmt/format.h>
#include <malloc.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "programs/shared/child_process.h"
#include "soak/season.h"

namespace {

using soak::Tally;

struct Options {
    std::pair<std::uint64_t, std::uint64_t> seeds{1, 240};
    std::uint64_t seed = 0;
    std::uint64_t passes = 600;
    unsigned jobs = std::max(1U, std::thread::hardware_concurrency());
    bool trace = false;
};

void print(const Tally& counts) {
    for (const auto& [name, count] : counts) {
        fmt::print("{:9} {}\n", count, name);
    }
}

int run_seed(const Options& options) {
    // A pass's large buffers come from memory that stays: mapping it anew in each pass takes most of the time.
    (void)mallopt(M_MMAP_THRESHOLD, 64 << 20);
    (void)mallopt(M_TRIM_THRESHOLD, 64 << 20);
    // The library's own words there are many; what a sanitizer has to say goes to the descriptor itself.
    if (std::FILE* const nowhere = std::fopen("/dev/null", "w"); nowhere != nullptr && !options.trace) {
        stderr = nowhere;
    }
    const soak::Ended ended = soak::live_through(options.seed, options.passes, options.trace);
    if (!ended.broken.empty()) {
        fmt::print("seed {}, {}\n", options.seed, ended.broken);
        const auto file = std::filesystem::temp_directory_path() / fmt::format("oxr-soak-{}.toml", options.seed);
        std::ofstream(file) << ended.scenario;
        fmt::print("  what happened to the host: ostrel-simhost {}\n", file.string());
    }
    print(ended.counts);
    return ended.broken.empty() ? 0 : 1;
}

// In a process of its own; its counts are added to those of all.
void run_apart(std::uint64_t seed, std::uint64_t passes, Tally& total) {
    static std::mutex mutex;
    std::string output;
    const shared::ChildEnd end = shared::run_child(
        {.command = {"/proc/self/exe", fmt::format("--seed={}", seed), fmt::format("--passes={}", passes)},
         .input = {},
         .on_output = [&](std::string_view piece) { output += piece; }});
    const std::lock_guard lock(mutex);
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        std::uint64_t count = 0;
        char name[80];
        if (std::sscanf(line.c_str(), "%" SCNu64 " %79[^\n]", &count, name) == 2) {
            total[name] += count;
        } else {
            fmt::print("{}\n", line);
        }
    }
    ++total["seeds"];
    if (end.exit_code != 0) {
        ++total["seeds that failed"];
        fmt::print("{}seed {} ended with {}; replay: oxr_soak --seed {} --passes {} --trace\n", end.error_output, seed,
                   end.exit_code, seed, passes);
    }
    std::fflush(stdout);
}

int run_seeds(const Options& options) {
    std::atomic<std::uint64_t> next = options.seeds.first;
    Tally total;
    std::vector<std::jthread> workers(options.jobs);
    for (std::jthread& each : workers) {
        each = std::jthread([&] {
            for (std::uint64_t seed; (seed = next++) <= options.seeds.second;) {
                run_apart(seed, options.passes, total);
            }
        });
    }
    workers.clear();  // when all is done
    print(total);
    return total.contains("seeds that failed") ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app("Months of a host's life, simulated from seeds", "oxr_soak");
    app.add_option("--seeds", options.seeds, "Seeds to go through: FIRST-LAST [1-240]")->delimiter('-');
    auto* const seed =
        app.add_option("--seed", options.seed, "One seed instead, in this process")->check(CLI::PositiveNumber);
    app.add_option("--passes", options.passes, "Polling passes of each seed [600]");
    app.add_option("--jobs", options.jobs, "Seeds at a time [one for each processor]")->check(CLI::PositiveNumber);
    app.add_flag("--trace", options.trace,
                 "Print what happens to the one seed's host, what is asked of it, and the log")
        ->needs(seed);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    return options.seed != 0 ? run_seed(options) : run_seeds(options);
}
