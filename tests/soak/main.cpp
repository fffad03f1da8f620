// Months of a host's life, simulated: seed after seed, each in a process of its own, from the seed alone. Prints
// what was broken and how to see it again; the exit status tells whether anything was.
#include <malloc.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "soak/season.h"

namespace {

using soak::Tally;

struct Options {
    std::uint64_t first = 1;
    std::uint64_t last = 240;
    int jobs = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
    int every = 40;  // seeds that a line of progress is about
    soak::SeasonOptions season;
};

constexpr char usage[] =
    "usage: oxr_soak [--seeds FIRST-LAST] [--seed N] [--passes N] [--jobs N] [--trace]\n"
    "  --seeds FIRST-LAST  the seeds to go through (1-240)\n"
    "  --seed N            only this one\n"
    "  --passes N          polling passes of each seed (600)\n"
    "  --jobs N            seeds at a time (one for each processor)\n"
    "  --trace             print the events of the host and the log\n";

[[noreturn]] void refuse(const char* argument) {
    std::fprintf(stderr, "oxr_soak: %s\n%s", argument, usage);
    std::exit(2);
}

std::uint64_t number(const char* text, const char** end) {
    char* after = nullptr;
    const unsigned long long value = std::strtoull(text, &after, 10);
    if (after == text || (end == nullptr && *after != '\0')) {
        refuse(text);
    }
    if (end != nullptr) {
        *end = after;
    }
    return value;
}

Options read_arguments(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view name = argv[i];
        if (name == "--help") {
            std::fputs(usage, stdout);
            std::exit(0);
        }
        if (name == "--trace") {
            options.season.trace = true;
            continue;
        }
        if (i + 1 == argc) {
            refuse(argv[i]);
        }
        const char* const value = argv[++i];
        if (name == "--seeds") {
            const char* rest = nullptr;
            options.first = options.last = number(value, &rest);
            if (*rest == '-') {
                options.last = number(rest + 1, nullptr);
            }
        } else if (name == "--seed") {
            options.first = options.last = number(value, nullptr);
        } else if (name == "--passes") {
            options.season.passes = static_cast<int>(number(value, nullptr));
        } else if (name == "--jobs") {
            options.jobs = static_cast<int>(number(value, nullptr));
        } else {
            refuse(argv[i - 1]);
        }
    }
    return options;
}

void print_replay(std::uint64_t seed, const Options& options) {
    std::printf("  replay: oxr_soak --seed %llu --passes %d --trace\n", static_cast<unsigned long long>(seed),
                options.season.passes);
    std::fflush(stdout);
}

// A pass's large buffers come from memory that stays: mapping it anew in each pass takes most of the time.
void keep_memory() {
    constexpr int keep = 64 << 20;
    (void)mallopt(M_MMAP_THRESHOLD, keep);
    (void)mallopt(M_TRIM_THRESHOLD, keep);
}

// In a process of its own. Its tally is left in the slot.
[[noreturn]] void run_seed(std::uint64_t seed, const Options& options, Tally& slot) {
    keep_memory();
    // The library's own words there are many; what a sanitizer has to say goes to the descriptor itself.
    if (std::FILE* const nowhere = std::fopen("/dev/null", "w"); nowhere != nullptr && !options.season.trace) {
        stderr = nowhere;
    }
    const std::string broken = soak::live_through(seed, options.season, slot);
    if (!broken.empty()) {
        std::printf("seed %llu, %s\n", static_cast<unsigned long long>(seed), broken.c_str());
        print_replay(seed, options);
    }
    std::fflush(stdout);
    std::exit(broken.empty() ? 0 : 1);
}

class Run {
public:
    explicit Run(const Options& options) : options_(options) {
        const std::size_t size = sizeof(Tally) * static_cast<std::size_t>(options.jobs);
        void* const shared = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (shared == MAP_FAILED) {
            std::perror("oxr_soak: mmap");
            std::exit(2);
        }
        slots_ = static_cast<Tally*>(shared);
        for (int slot = 0; slot < options.jobs; ++slot) {
            free_.push_back(slot);
        }
    }

    // Whether all seeds went well.
    bool all() {
        for (std::uint64_t seed = options_.first; seed <= options_.last; ++seed) {
            if (free_.empty()) {
                reap();
            }
            begin(seed);
        }
        while (!running_.empty()) {
            reap();
        }
        total_.print();
        return failed_ == 0;
    }

private:
    struct Running {
        std::uint64_t seed;
        int slot;
    };
    const Options& options_;
    Tally* slots_;
    std::vector<int> free_;
    std::map<pid_t, Running> running_;
    Tally total_;
    int failed_ = 0;

    void begin(std::uint64_t seed) {
        const int slot = free_.back();
        free_.pop_back();
        Tally& tally = *new (slots_ + slot) Tally;
        std::fflush(stdout);
        const pid_t child = fork();
        if (child < 0) {
            std::perror("oxr_soak: fork");
            std::exit(2);
        }
        if (child == 0) {
            run_seed(seed, options_, tally);
        }
        running_[child] = {seed, slot};
    }

    void reap() {
        int status = 0;
        const pid_t child = wait(&status);
        const Running ended = running_.at(child);
        running_.erase(child);
        total_.add(slots_[ended.slot]);
        free_.push_back(ended.slot);
        if (!WIFEXITED(status) || WEXITSTATUS(status) > 1) {
            std::printf("seed %llu, pass %llu: the process ended with status 0x%x\n",
                        static_cast<unsigned long long>(ended.seed),
                        static_cast<unsigned long long>(slots_[ended.slot].passes), static_cast<unsigned>(status));
            print_replay(ended.seed, options_);
        }
        failed_ += status == 0 ? 0 : 1;
        if (total_.seeds % static_cast<std::uint64_t>(options_.every) == 0) {
            std::printf("%llu seeds: %llu passes, %.0f simulated hours, %d seeds failed\n",
                        static_cast<unsigned long long>(total_.seeds), static_cast<unsigned long long>(total_.passes),
                        total_.seconds / 3600, failed_);
            std::fflush(stdout);
        }
    }
};

}  // namespace

int main(int argc, char** argv) {
    const Options options = read_arguments(argc, argv);
    return Run(options).all() ? 0 : 1;
}
