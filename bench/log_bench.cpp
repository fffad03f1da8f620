// A log message: against its file calls alone, on a real file without a simulated host, and when its level is off.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "OstrelProvider/log.h"
#include "OstrelProvider/log_level.h"
#include "bench/measure.h"

namespace {

// A folder for the log, and the log there.
class LogFolder {
public:
    LogFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "oxr-bench-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            std::abort();
        }
        folder_ = name;
        path_ = name + "/oxr.log";
        set_log_filename(path_.c_str());
    }
    ~LogFolder() { std::filesystem::remove_all(folder_); }
    LogFolder(const LogFolder&) = delete;
    LogFolder& operator=(const LogFolder&) = delete;

    const char* path() const { return path_.c_str(); }
    void empty() const {
        if (::truncate(path(), 0) != 0) {
            std::abort();
        }
    }

private:
    std::string folder_;
    std::string path_;
};

// The line that a pass writes for each volume.
void log_volume(int i) {
    OXR_INFO(
        "vol-%d: device_eui=%s target_iqn=%s num_nic=%d num_memberArray=%d group_mode=%d mode_changed=%d "
        "isVvolPE=%d total_current_paths=%d total_required_paths=%d",
        i, "eui.000102030405060708090a0b0c0d", "iqn.2012-07.com.ostrel:a-volume-with-a-name-of-the-usual-length", 4, 2,
        2, 0, 0, 8, 8);
}

void written_message(benchmark::State& state) {
    const LogFolder folder;
    log_volume(100);
    std::string line(std::filesystem::file_size(folder.path()), 'x');
    line.back() = '\n';
    std::vector<double> whole;
    std::vector<double> bare;
    constexpr int messages = 200;
    for (auto unused : state) {
        (void)unused;
        folder.empty();
        const double begun = bench::processor_time();
        for (int i = 0; i < messages; ++i) {
            log_volume(100 + i);
        }
        const double written = bench::processor_time();
        folder.empty();
        const double bare_begun = bench::processor_time();
        for (int i = 0; i < messages; ++i) {
            bench::write_bare(folder.path(), line);
        }
        bare.push_back(bench::processor_time() - bare_begun);
        whole.push_back(written - begun);
        state.SetIterationTime((written - begun) / messages);
    }
    state.counters["to_bare"] = bench::median(whole) / bench::median(bare);  // at most 1.2
}

void message_below_the_level(benchmark::State& state) {
    log_level = LOG_LEVEL_INFO;
    int i = 0;
    for (auto unused : state) {
        (void)unused;
        OXR_DEBUG("session-%d : isid=%s", i, "00:02:3d:01:00:1f");
        benchmark::DoNotOptimize(++i);
    }
}

void message_allocations(benchmark::State& state) {
    const auto host = bench::make_settled_site(0);
    for (auto unused : state) {
        (void)unused;
        const std::uint64_t before = host->allocations();
        host->count_allocations(true);
        for (int i = 0; i < 100; ++i) {
            log_volume(i);
        }
        host->count_allocations(false);
        state.counters["allocations"] = static_cast<double>(host->allocations() - before);  // 0
    }
}

}  // namespace

BENCHMARK(written_message)->UseManualTime()->Unit(benchmark::kMicrosecond)->MinTime(1.0 / 64);
BENCHMARK(message_below_the_level);
BENCHMARK(message_allocations)->Iterations(1);
