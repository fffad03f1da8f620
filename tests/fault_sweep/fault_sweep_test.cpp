// Every platform call of every situation fails once: in passing, and from then on.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <string_view>

#include "fault_sweep/faults.h"
#include "fault_sweep/run.h"
#include "fault_sweep/situation.h"

using simhost::Fault;

namespace fault_sweep {

namespace {

constexpr std::uint64_t many_log_calls = 200;

// OXR_SWEEP=full: every call; of the thousands of calls for the log of a large host the first ones, and then with
// growing steps. Otherwise a sample.
std::uint64_t call_after(const Fault& fault) {
    const std::uint64_t nth = fault.nth;
    const char* const wanted = std::getenv("OXR_SWEEP");
    if (wanted != nullptr && std::string_view(wanted) == "full") {
        return fault.path_contains == "oxr.log" && nth >= many_log_calls ? nth + nth / 4 : nth + 1;
    }
    return nth * 4;
}

std::string describe(const Fault& fault) {
    std::string text = fault.operation;
    if (!fault.path_contains.empty()) {
        text += " on " + fault.path_contains;
    }
    if (fault.operation.starts_with("psp.") && fault.error == 0) {
        text += " with status " + std::to_string(fault.status);
    }
    return text + ", call " + std::to_string(fault.nth) + (fault.persistent ? " and all later ones" : "");
}

// Names of what the shipped library takes from elsewhere, without their versions.
std::vector<std::string> imported_symbols() {
    std::vector<std::string> symbols;
    FILE* const pipe = popen("LC_ALL=C nm -D --undefined-only " OXR_LIBRARY, "r");
    char line[512];
    while (pipe != nullptr && fgets(line, sizeof line, pipe) != nullptr) {
        std::istringstream words(line);
        std::string kind;
        std::string symbol;
        words >> kind >> symbol;
        symbols.push_back(symbol.substr(0, symbol.find('@')));
    }
    EXPECT_TRUE(pipe != nullptr && pclose(pipe) == 0);
    return symbols;
}

class FaultSweep : public ::testing::TestWithParam<Situation> {};

TEST_P(FaultSweep, NothingIsLostWhicheverCallFails) {
    const auto host = GetParam().make();
    const Report undisturbed = run(GetParam(), *host, {}, {});
    ASSERT_EQ(undisturbed.broken, std::vector<std::string>());
    std::map<std::string, int> injected;
    for (const std::string& count : undisturbed.counts) {
        const std::string operation = count.substr(0, count.find(' '));
        for (const bool stays : {false, true}) {
            for (Fault fault : faults_of(operation)) {
                fault.persistent = stays;
                for (fault.nth = 1;; fault.nth = call_after(fault)) {
                    const Report report = run(GetParam(), *host, fault, undisturbed);
                    for (const std::string& broken : report.broken) {
                        ADD_FAILURE() << describe(fault) << ": " << broken;
                    }
                    if (std::getenv("OXR_SWEEP_LOG") != nullptr) {
                        std::cout << report.log;
                    }
                    if (!report.hit) {
                        break;
                    }
                    ++injected[operation];
                }
            }
        }
    }
    int total = 0;
    for (const auto& [operation, count] : injected) {
        std::cout << GetParam().name << " " << operation << " " << count << '\n';
        total += count;
    }
    std::cout << GetParam().name << ": " << total << " faults\n";
    EXPECT_GT(total, 0);
}

// Undisturbed, the situations together use everything that the library imports and that can fail.
TEST(FaultSweepOperations, CoverWhatTheLibraryImports) {
#ifdef OXR_COVERAGE
    GTEST_SKIP() << "the library imports what counts its lines, too";
#endif
    std::set<std::string> used;
    for (const Situation& situation : situations()) {
        const auto host = situation.make();
        for (const std::string& count : run(situation, *host, {}, {}).counts) {
            used.insert(count.substr(0, count.find(' ')));
        }
    }
    const std::vector<std::string> symbols = imported_symbols();
    EXPECT_GT(symbols.size(), 50U);
    for (const std::string& symbol : symbols) {
        const std::string operation = operation_of(symbol);
        EXPECT_TRUE(operation.empty() ? is_without_failure(symbol) : used.contains(operation)) << symbol;
    }
    for (const char* const request : {"psp.0", "psp.1", "psp.3", "psp.5", "psp.6", "psp.7", "psp.open", "psp.close"}) {
        EXPECT_TRUE(used.contains(request)) << request;
    }
}

INSTANTIATE_TEST_SUITE_P(Every, FaultSweep, ::testing::ValuesIn(situations()),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace

}  // namespace fault_sweep
