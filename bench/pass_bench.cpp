// A settled pass: its time by the number of volumes, the library's own share of it and its memory. The simulated
// host answers at once, so what is not the library's own is the same calls made bare.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "OstrelConnections/psp/psp_records.h"
#include "bench/measure.h"
#include "ima/ima.h"

namespace {

// What one pass asked of the platform.
struct Calls {
    std::uint64_t session_lists;
    std::vector<std::string> log_lines;
};

// Counts the calls of one settled pass and refuses one that makes others than are replayed.
Calls calls_of_a_pass(simhost::Host& host) {
    static const char* const replayed[] = {"IMA_GetLhbaOidList",
                                           "IMA_GetSessionOidList",
                                           "IMA_FreeMemory",
                                           "psp.0",
                                           "psp.3",
                                           "psp.7",
                                           "psp.open",
                                           "psp.close",
                                           "open",
                                           "stat",
                                           "write",
                                           "close"};
    std::vector<std::pair<std::string, std::uint64_t>> before;
    for (const std::string& operation : host.operations_called()) {
        before.emplace_back(operation, host.calls(operation));
    }
    const std::uint64_t session_lists = host.calls("IMA_GetSessionOidList");
    host.write_file(bench::log_file, "");
    bench::run_pass();
    for (const auto& [operation, calls] : before) {
        bool known = operation == "new";
        for (const char* const each : replayed) {
            known = known || operation == each;
        }
        if (!known && host.calls(operation) != calls) {
            std::fprintf(stderr, "the pass is not settled: it calls %s\n", operation.c_str());
            std::abort();
        }
    }
    return {host.calls("IMA_GetSessionOidList") - session_lists, bench::lines_of(host.log())};
}

template <typename Reply>
void request_bare(unsigned long code) {
    const int fd = ::open(OSTREL_PSP_CONTROL_DEVICE, O_RDONLY);
    const std::unique_ptr<Reply> reply(new (std::nothrow) Reply());
    benchmark::DoNotOptimize(::ioctl(fd, code, reply.get()));
    ::close(fd);
}

void make_bare(const Calls& calls) {
    request_bare<OstrelPspIoctlGetAllDeviceInfoData>(OSTREL_PSP_IOCTL_GET_ALL_DEVICE_INFO);
    IMA_OID_LIST* adapters = nullptr;
    (void)IMA_GetLhbaOidList(&adapters);
    for (std::uint64_t n = 0; n < calls.session_lists; ++n) {
        IMA_OID_LIST* sessions = nullptr;
        (void)IMA_GetSessionOidList(adapters->oids[n], &sessions);
        (void)IMA_FreeMemory(sessions);
    }
    (void)IMA_FreeMemory(adapters);
    request_bare<OstrelPspIoctlGetTransportAddrsData>(OSTREL_PSP_IOCTL_GET_TRANSPORT_ADDRS);
    request_bare<OstrelPspIoctlGetAllGroupScopedTargetsData>(OSTREL_PSP_IOCTL_GET_ALL_GROUP_SCOPED_TARGETS);
    for (const std::string& line : calls.log_lines) {
        bench::write_bare(bench::log_file, line);
    }
}

void settled_pass(benchmark::State& state) {
    const auto host = bench::make_settled_site(static_cast<int>(state.range(0)));
    bench::run_pass();
    const Calls calls = calls_of_a_pass(*host);
    std::vector<double> whole;
    std::vector<double> bare;
    for (auto unused : state) {
        (void)unused;
        host->write_file(bench::log_file, "");  // far from its rotation
        const double begun = bench::processor_time();
        bench::run_pass();
        const double passed = bench::processor_time();
        host->write_file(bench::log_file, "");
        const double bare_begun = bench::processor_time();
        make_bare(calls);
        bare.push_back(bench::processor_time() - bare_begun);
        whole.push_back(passed - begun);
        state.SetIterationTime(passed - begun);
    }
    state.SetComplexityN(state.range(0));
    state.counters["own_share"] = 1 - bench::median(bare) / bench::median(whole);  // at most 0.25
    state.counters["sessions"] = host->totals().sessions;
    state.counters["log_lines"] = static_cast<double>(calls.log_lines.size());

    const std::uint64_t allocations = host->allocations();
    const std::uint64_t bytes = host->allocated_bytes();
    host->count_allocations(true);
    bench::run_pass();
    host->count_allocations(false);
    state.counters["allocations"] = static_cast<double>(host->allocations() - allocations);  // the six large buffers
    state.counters["allocated"] = static_cast<double>(host->allocated_bytes() - bytes);
}

void memory_over_passes(benchmark::State& state) {
    const auto host = bench::make_settled_site(16);
    const auto run = [&](int passes) {
        for (int i = 0; i < passes; ++i) {
            if (i % 100 == 0) {
                host->write_file(bench::log_file, "");
            }
            bench::run_pass();
        }
    };
    for (auto unused : state) {
        (void)unused;
        (void)bench::resident_kib();  // its own first use takes memory
        run(1000);
        const long before = bench::resident_kib();
        run(static_cast<int>(state.range(0)));
        const long after = bench::resident_kib();
        state.counters["resident_kib"] = static_cast<double>(after);
        state.counters["growth_kib"] = static_cast<double>(after - before);  // 0
    }
}

}  // namespace

BENCHMARK(settled_pass)
    ->RangeMultiplier(2)
    ->Range(16, 256)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);
BENCHMARK(memory_over_passes)->Arg(10000)->Iterations(1)->Unit(benchmark::kSecond);
