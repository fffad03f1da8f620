// Every platform call of every situation fails once: in passing, and from then on.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <regex>
#include <set>
#include <string_view>

#include "fault_sweep/faults.h"
#include "fault_sweep/run.h"
#include "fault_sweep/situation.h"
#include "simhost/operations.h"

using simhost::Fault;

namespace fault_sweep {

namespace {

constexpr std::uint64_t many_log_calls = 200;

// OXR_SWEEP=full: every call; of the thousands of calls for the log of a large host the first ones, and then with
// growing steps. Otherwise a sample, but every call for the configuration file.
std::uint64_t call_after(const Fault& fault) {
    const std::uint64_t nth = fault.nth;
    const char* const wanted = std::getenv("OXR_SWEEP");
    if (wanted != nullptr && std::string_view(wanted) == "full") {
        return fault.path_contains == "oxr.log" && nth >= many_log_calls ? nth + nth / 4 : nth + 1;
    }
    return fault.path_contains == "oxr.conf" ? nth + 1 : nth * 4;
}

std::string describe(const Fault& fault) {
    return fault.operation + " on '" + fault.path_contains + "' with status " + std::to_string(fault.status) +
           " or errno " + std::to_string(fault.error) + ", call " + std::to_string(fault.nth) +
           (fault.persistent ? " and all later ones" : "");
}

class FaultSweep : public ::testing::TestWithParam<Situation> {};

TEST_P(FaultSweep, NothingIsLostWhicheverCallFails) {
    const auto host = GetParam().make();
    const Report undisturbed = run(GetParam(), *host);
    ASSERT_EQ(undisturbed.broken, std::vector<std::string>());
    // A fault behind the last call is not met. A run makes most calls when it logs all and does its work repeatedly.
    Fault none;
    none.nth = 2;
    none.persistent = true;
    int injected = 0;
    for (const auto& [operation, calls] : run(GetParam(), *host, none).calls) {
        for (Fault fault : faults_of(operation)) {
            for (bool hit = true; hit && fault.nth <= calls.at(fault.path_contains); fault.nth = call_after(fault)) {
                const Report report = run(GetParam(), *host, fault, undisturbed);
                hit = report.hit;
                injected += hit ? 1 : 0;
                for (const std::string& broken : report.broken) {
                    ADD_FAILURE() << describe(fault) << ": " << broken;
                }
            }
        }
    }
    std::cout << GetParam().name << ": " << injected << " faults\n";
    EXPECT_GT(injected, 0);
}

// What the library imports: operations of the host, and what has no failure that a platform could answer with.
const std::regex known_imports(
    "IMA_.*|ioctl|v?dprintf|p?(read|write)|open|close|access|mkdir|unlink|ftruncate|sigaction|"
    "pthread_(create|join|kill|mutex_(init|destroy))|"
    "_.*|"                             // the language's runtime, memory, start and end of a library
    "(mem|str|wcs|wmem|mbs).*|"        // text in memory
    "v?snprintf|inet_ntop|asctime_r|"  // idem, into buffers that are large enough
    "f?puts|fprintf|perror|stderr|"    // for a person at the standard error output
    "time|clock_gettime|localtime_r|getenv|getp?pid|kill|raise|sig(add|empty)set|pthread_(self|exit|sigmask)|"
    "nanosleep|poll|sigtimedwait|"         // ended early they are begun anew for the rest
    "lseek|pthread_mutex_(un|try)?lock");  // of what was opened or initialised
const std::regex never_called("psp\\.4|fopen|rename|opendir");

TEST(FaultSweepOperations, AreAllThatTheLibraryCalls) {
#ifdef OXR_COVERAGE
    GTEST_SKIP() << "the library imports what counts its lines, too";
#endif
    FILE* const imports = popen("nm -D -u -j --without-symbol-versions " OXR_LIBRARY, "r");
    for (char symbol[512]; fscanf(imports, "%511s", symbol) == 1;) {
        EXPECT_TRUE(std::regex_match(symbol, known_imports)) << symbol;
    }
    EXPECT_EQ(pclose(imports), 0);
    std::set<std::string, std::less<>> called;
    for (const Situation& situation : situations()) {
        const auto host = situation.make();
        const Report undisturbed = run(situation, *host);
        for (const auto& [operation, calls] : undisturbed.calls) {
            called.insert(operation);
        }
    }
    for (const auto& [name, answer] : simhost::OPERATIONS) {
        EXPECT_NE(called.contains(name), std::regex_match(std::string(name), never_called)) << name;
    }
}

INSTANTIATE_TEST_SUITE_P(Every, FaultSweep, ::testing::ValuesIn(situations()),
                         [](const auto& each) { return each.param.name; });

}  // namespace

}  // namespace fault_sweep
