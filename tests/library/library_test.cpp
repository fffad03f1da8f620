// The shared library as a CIM server finds it.
#include <dlfcn.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iterator>
#include <random>
#include <set>
#include <sstream>

#include "cimserver/server.h"
#include "cmpi/cmpi.h"
#include "support/cim.h"
#include "support/engine.h"
#include "support/host_test.h"
#include "support/site.h"

namespace {

using namespace testing_support;
using cimserver::Broker;

constexpr const char* INSTANCE_FACTORIES[] = {
    "OstrelProvider_Create_InstanceMI", "OstrelProviderSetting_Create_InstanceMI",
    "OstrelProfileProvider_Create_InstanceMI", "OstrelAssocProvider_Create_InstanceMI"};
constexpr const char* METHOD_FACTORIES[] = {"OstrelProvider_Create_MethodMI", "OstrelProviderSetting_Create_MethodMI"};
constexpr char ASSOCIATION_FACTORY[] = "OstrelAssocProvider_Create_AssociationMI";

std::string output_of(const std::string& command) {
    std::string text;
    FILE* const pipe = popen(command.c_str(), "r");
    for (int c; (c = getc(pipe)) != EOF;) {
        text += static_cast<char>(c);
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return text;
}

TEST(Library, ExportsItsFactoriesAndTheLogCallOnly) {
    std::set<std::string> expected(std::begin(INSTANCE_FACTORIES), std::end(INSTANCE_FACTORIES));
    expected.insert(std::begin(METHOD_FACTORIES), std::end(METHOD_FACTORIES));
    expected.insert({ASSOCIATION_FACTORY, "oxr_log"});
    std::istringstream exported(output_of("nm -D --defined-only " OXR_LIBRARY " | cut -d ' ' -f 3"));
    EXPECT_EQ(std::set<std::string>(std::istream_iterator<std::string>(exported), {}), expected);
}

TEST(Library, NamesItselfAndTheHostLibrariesItNeeds) {
    const std::string dynamic = output_of("LC_ALL=C readelf -W -d " OXR_LIBRARY);
    for (const char* const text : {"Library soname: [libostrelprovider.so.1]", "Shared library: [libvmkima.so]",
                                   "Shared library: [libpthread.so.0]"}) {
        EXPECT_NE(dynamic.find(text), std::string::npos) << dynamic;
    }
    for (const char* const text : {"RPATH", "RUNPATH", "TEXTREL"}) {
        EXPECT_EQ(dynamic.find(text), std::string::npos) << dynamic;
    }
}

#if !defined(OXR_COVERAGE) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(Library, NeedsNoNewerSymbolThanAnOldHostHas) {
    const std::string versions = "nm -D --undefined-only " OXR_LIBRARY " | grep -o '@.*' | tr -d @";
    EXPECT_EQ(output_of(versions + " | cut -d _ -f 1 | sort -u"), "CXXABI\nGCC\nGLIBC\nGLIBCXX\n");
    for (const std::string newest : {"CXXABI_1.3.9", "GCC_3.0", "GLIBC_2.17", "GLIBCXX_3.4.20"}) {
        const std::string family = newest.substr(0, newest.find('_') + 1);
        EXPECT_EQ(
            output_of("{ " + versions + "; echo " + newest + "; } | grep '^" + family + "' | sort -V | tail -n 1"),
            newest + "\n");
    }
}
#endif

using Cleanup = std::function<CMPIStatus()>;

// Calls a factory twice; the cleanup of what it gave.
template <typename Mi>
Cleanup cleanup_of(void* library, const char* factory, const CMPIBroker* broker) {
    (void)create<Mi>(library, factory, broker);
    Mi* const made = create<Mi>(library, factory, broker);
    EXPECT_NE(made, nullptr) << factory;
    return [made] { return made->ft->cleanup(made, nullptr, 1); };
}

std::vector<Cleanup> create_all(void* library, const CMPIBroker* broker) {
    std::vector<Cleanup> cleanups = {cleanup_of<CMPIAssociationMI>(library, ASSOCIATION_FACTORY, broker)};
    for (const char* const factory : INSTANCE_FACTORIES) {
        cleanups.push_back(cleanup_of<CMPIInstanceMI>(library, factory, broker));
    }
    for (const char* const factory : METHOD_FACTORIES) {
        cleanups.push_back(cleanup_of<CMPIMethodMI>(library, factory, broker));
    }
    return cleanups;
}

std::ptrdiff_t count_entries(const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

std::atomic<int> host_signals{0};

class LoadRounds : public HostTest {
protected:
    const std::vector<std::string> iqns = add_volumes(*host, 1, 4);
    const std::ptrdiff_t threads = count_entries("/proc/self/task");

    // The kernel lists a thread for a moment after it was joined.
    static bool has_threads(std::ptrdiff_t number) {
        return wait_until([number] { return count_entries("/proc/self/task") == number; });
    }
    std::mt19937 random{2040};

    LoadRounds() : HostTest(make_site()) {
        host->set_horizon(0);
        host->write_file("/etc/ostrel/oxr.conf",
                         "# as it is\nuse_ostrel_timeouts=1\nostrel_logs_path=/var/log/ostrel\n");
        (void)signal(SIGUSR1, [](int) { ++host_signals; });
    }
    // The worker makes a pass and sleeps.
    void let_worker_pass() {
        host->set_horizon(host->now() + 10);
        ASSERT_TRUE(host->wait_for_horizon(10));
    }
    // A signal to the process is the host's.
    static void expect_signal_reaches_host() {
        const int before = host_signals;
        kill(getpid(), SIGUSR1);
        EXPECT_TRUE(wait_until([&] { return host_signals == before + 1; }));
    }
    // One request to each kind of interface; the service stops and starts.
    void request_all(const Broker& broker) {
        EXPECT_EQ(broker.enumerate_instances(path_of("CIM_ManagedElement"), {}).instances.size(), 3U);
        EXPECT_EQ(broker.references(service(), {}, {}).instances.size(), 2U);
        EXPECT_EQ(told(set_value(broker, "interval", 300)), "0 Succeeded!");
        EXPECT_EQ(renew(broker, iqns), "0");
        EXPECT_EQ(told(broker.invoke_method(service(), "stopservice", {})), "0 ");
        expect_signal_reaches_host();
        EXPECT_EQ(told(broker.invoke_method(service(), "startservice", {})), "0 ");
    }

    // With `broker_last` the broker's own cleanups find what others left; else there is nothing left for them.
    void run_round(bool broker_last) {
        void* const library = dlopen(OXR_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        auto broker = load_providers(library);
        std::vector<Cleanup> cleanups = create_all(library, broker->handle());
        let_worker_pass();
        expect_signal_reaches_host();
        EXPECT_TRUE(has_threads(threads + 1));
        request_all(*broker);
        let_worker_pass();
        // Each once and some again, in any order; or only some.
        for (std::size_t i = cleanups.size(); i-- > 0;) {
            cleanups.push_back(cleanups[random() % cleanups.size()]);
        }
        std::shuffle(cleanups.begin(), cleanups.end(), random);
        cleanups.resize(broker_last ? cleanups.size() / 3 : cleanups.size());
        for (const Cleanup& clean_up : cleanups) {
            EXPECT_EQ(clean_up().rc, CMPI_RC_OK);
        }
        if (!broker_last) {
            EXPECT_TRUE(has_threads(threads));
        }
        broker.reset();
        EXPECT_TRUE(has_threads(threads));
        EXPECT_EQ(dlclose(library), 0);
        EXPECT_EQ(dlopen(OXR_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr);
        expect_signal_reaches_host();
    }
};

TEST_F(LoadRounds, EachStarterOfTheWorkerAloneStopsIt) {
    void* const library = dlopen(OXR_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    for (const char* const factory : {"OstrelProvider_Create_InstanceMI", "OstrelProfileProvider_Create_InstanceMI"}) {
        const Cleanup clean_up = cleanup_of<CMPIInstanceMI>(library, factory, nullptr);
        EXPECT_TRUE(has_threads(threads + 1)) << factory;
        EXPECT_EQ(clean_up().rc, CMPI_RC_OK);
        EXPECT_TRUE(has_threads(threads)) << factory;
    }
    EXPECT_EQ(dlclose(library), 0);
}

TEST_F(LoadRounds, AHundredOfThemLeaveNothing) {
    const std::ptrdiff_t descriptors = count_entries("/proc/self/fd");
    [[maybe_unused]] long resident = 0;
    for (int round = 0; round < 100; ++round) {
        SCOPED_TRACE(round);
        host->count_allocations(true);
        run_round(round % 2 == 0);
        EXPECT_EQ(host->blocks_held(), 0);
        host->count_allocations(false);
        EXPECT_EQ(host->calls("pthread_mutex_init"), host->calls("pthread_mutex_destroy"));
        EXPECT_EQ(count_entries("/proc/self/fd"), descriptors);
        EXPECT_EQ(said("ERROR"), Lines());
        if (round == 20) {
            resident = resident_kib();
        }
    }
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LE(resident_kib() - resident, 256);
#endif
}

}  // namespace
