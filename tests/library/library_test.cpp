// The shared library as a CIM server finds it.
#include <dlfcn.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <random>
#include <regex>
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
using cimserver::make_broker;

constexpr const char* INSTANCE_FACTORIES[] = {
    "OstrelProvider_Create_InstanceMI", "OstrelProviderSetting_Create_InstanceMI",
    "OstrelProfileProvider_Create_InstanceMI", "OstrelAssocProvider_Create_InstanceMI"};
constexpr const char* METHOD_FACTORIES[] = {"OstrelProvider_Create_MethodMI", "OstrelProviderSetting_Create_MethodMI"};
constexpr char ASSOCIATION_FACTORY[] = "OstrelAssocProvider_Create_AssociationMI";

std::string output_of(const std::string& command) {
    std::string text;
    FILE* const pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return text;
    }
    char buffer[4096];
    for (std::size_t got; (got = fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        text.append(buffer, got);
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return text;
}

TEST(Library, ExportsItsFactoriesAndTheLogCallOnly) {
    std::istringstream lines(output_of("LC_ALL=C readelf -W --dyn-syms " OXR_LIBRARY));
    std::set<std::string> exported;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string number, value, size, type, binding, visibility, section, name;
        if (fields >> number >> value >> size >> type >> binding >> visibility >> section >> name && number != "Num:" &&
            number.back() == ':' && section != "UND") {
            exported.insert(name);
        }
    }
    std::set<std::string> expected(std::begin(INSTANCE_FACTORIES), std::end(INSTANCE_FACTORIES));
    expected.insert(std::begin(METHOD_FACTORIES), std::end(METHOD_FACTORIES));
    expected.insert({ASSOCIATION_FACTORY, "oxr_log"});
    EXPECT_EQ(exported, expected);
}

TEST(Library, NamesItselfAndTheHostLibrariesItNeeds) {
    const std::string dynamic = output_of("LC_ALL=C readelf -W -d " OXR_LIBRARY);
    EXPECT_NE(dynamic.find("Library soname: [libostrelprovider.so.1]"), std::string::npos) << dynamic;
    EXPECT_NE(dynamic.find("Shared library: [libvmkima.so]"), std::string::npos) << dynamic;
    EXPECT_NE(dynamic.find("Shared library: [libpthread.so.0]"), std::string::npos) << dynamic;
    EXPECT_EQ(dynamic.find("RPATH"), std::string::npos) << dynamic;
    EXPECT_EQ(dynamic.find("RUNPATH"), std::string::npos) << dynamic;
    EXPECT_EQ(dynamic.find("TEXTREL"), std::string::npos) << dynamic;
}

#if !defined(OXR_COVERAGE) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(Library, NeedsNoNewerSymbolThanAnOldHostHas) {
    const struct {
        const char* family;
        std::vector<int> newest;
    } known[] = {{"GLIBC", {2, 17}}, {"GLIBCXX", {3, 4, 20}}, {"CXXABI", {1, 3, 9}}, {"GCC", {3, 0}}};
    std::istringstream symbols(output_of("nm -D --undefined-only " OXR_LIBRARY));
    const std::regex versioned(R"(.* (\w+)@(\w+?)_([0-9.]+))");
    std::set<std::string> families;
    for (std::string line; std::getline(symbols, line);) {
        std::smatch found;
        if (!std::regex_match(line, found, versioned)) {
            EXPECT_EQ(line.find('@'), std::string::npos) << line;
            continue;
        }
        std::vector<int> version;
        std::istringstream numbers(found[3]);
        for (std::string number; std::getline(numbers, number, '.');) {
            version.push_back(std::stoi(number));
        }
        const auto* const family =
            std::find_if(std::begin(known), std::end(known), [&](const auto& each) { return each.family == found[2]; });
        EXPECT_TRUE(family != std::end(known) && version <= family->newest) << line;
        families.insert(found[2]);
    }
    EXPECT_EQ(families.size(), std::size(known));
}
#endif

// The last of `times` calls of a factory.
template <typename Mi>
Mi* create(void* library, const char* factory, const CMPIBroker* broker, std::uint_fast32_t times) {
    using Factory = Mi* (*)(const CMPIBroker*, const CMPIContext*, CMPIStatus*);
    const auto make = reinterpret_cast<Factory>(dlsym(library, factory));
    Mi* made = nullptr;
    CMPIStatus status{CMPI_RC_OK, nullptr};
    for (std::uint_fast32_t i = 0; make != nullptr && i < times; ++i) {
        made = make(broker, nullptr, &status);
    }
    return made;
}

using Cleanup = std::function<CMPIStatus()>;

template <typename Mi>
Cleanup cleanup_of(Mi* mi) {
    return [mi] { return mi->ft->cleanup(mi, nullptr, 1); };
}

// Calls each of the seven factories some times more; the cleanups of what they gave.
std::vector<Cleanup> create_all(void* library, const CMPIBroker* broker, std::mt19937& random) {
    std::vector<Cleanup> cleanups;
    const auto add = [&](auto* mi, const char* factory) {
        EXPECT_NE(mi, nullptr) << factory;
        if (mi != nullptr) {
            cleanups.push_back(cleanup_of(mi));
        }
    };
    for (const char* const factory : INSTANCE_FACTORIES) {
        add(create<CMPIInstanceMI>(library, factory, broker, 1 + random() % 3), factory);
    }
    for (const char* const factory : METHOD_FACTORIES) {
        add(create<CMPIMethodMI>(library, factory, broker, 1 + random() % 3), factory);
    }
    add(create<CMPIAssociationMI>(library, ASSOCIATION_FACTORY, broker, 1 + random() % 3), ASSOCIATION_FACTORY);
    return cleanups;
}

template <typename Entries>
std::ptrdiff_t count_entries(Entries entries) {
    return std::distance(begin(entries), end(entries));
}

std::ptrdiff_t thread_count() {
    return count_entries(std::filesystem::directory_iterator("/proc/self/task"));
}

std::ptrdiff_t descriptor_count() {
    return count_entries(std::filesystem::directory_iterator("/proc/self/fd"));
}

class LoadTest : public HostTest {
protected:
    LoadTest() : HostTest(make_site()) {
        host->set_horizon(0);
        host->write_file("/etc/ostrel/oxr.conf",
                         "# as it is\nuse_ostrel_timeouts=1\nostrel_logs_path=/var/log/ostrel\n");
    }
    void* load() {
        void* const library = dlopen(OXR_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        EXPECT_NE(library, nullptr) << dlerror();
        return library;
    }
    static void unload(void* library) {
        EXPECT_EQ(dlclose(library), 0);
        EXPECT_EQ(dlopen(OXR_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr);
    }
    // The worker makes a pass and sleeps.
    void let_worker_pass() {
        host->set_horizon(host->now() + 10);
        ASSERT_TRUE(host->wait_for_horizon(10));
    }
    // One request to each kind of interface; the service stops and starts.
    void request_all(const Broker& broker, const std::vector<std::string>& iqns) {
        EXPECT_EQ(broker.enumerate_instances(path_of("CIM_ManagedElement"), {}).instances.size(), 3U);
        EXPECT_EQ(broker.references(service(), {}, {}).instances.size(), 2U);
        EXPECT_EQ(told(set_value(broker, "interval", 300)), "0 Succeeded!");
        EXPECT_EQ(renew(broker, iqns), "0");
        EXPECT_EQ(told(broker.invoke_method(service(), "stopservice", {})), "0 ");
        EXPECT_EQ(told(broker.invoke_method(service(), "startservice", {})), "0 ");
    }
};

class LoadRounds : public LoadTest {
protected:
    const std::vector<std::string> iqns = add_volumes(*host, 1, 4);
    const std::ptrdiff_t threads = thread_count();
    std::mt19937 random{2040};

    // Each cleanup up to `most` times and not less than `least`, in any order.
    std::vector<Cleanup> shuffled(const std::vector<Cleanup>& all, std::uint_fast32_t least, std::uint_fast32_t most) {
        std::vector<Cleanup> chosen;
        for (const Cleanup& each : all) {
            chosen.insert(chosen.end(), least + random() % (most - least + 1), each);
        }
        std::shuffle(chosen.begin(), chosen.end(), random);
        return chosen;
    }

    // With `broker_last` the broker's own cleanups find what others left; else there is nothing left for them.
    void run_round(bool broker_last) {
        void* const library = load();
        std::string error;
        auto broker = make_broker(library, OXR_SOURCE_DIR "/cim", error);
        ASSERT_NE(broker, nullptr) << error;
        const std::vector<Cleanup> cleanups = create_all(library, broker->handle(), random);
        let_worker_pass();
        EXPECT_EQ(thread_count(), threads + 1);
        request_all(*broker, iqns);
        let_worker_pass();
        for (const Cleanup& clean_up : shuffled(cleanups, broker_last ? 0 : 1, 2)) {
            EXPECT_EQ(clean_up().rc, CMPI_RC_OK);
        }
        if (!broker_last) {
            EXPECT_EQ(thread_count(), threads);
        }
        broker.reset();
        EXPECT_EQ(thread_count(), threads);
        unload(library);
    }
};

TEST_F(LoadRounds, AHundredOfThemLeaveNothing) {
    const std::ptrdiff_t descriptors = descriptor_count();
    [[maybe_unused]] long resident = 0;
    for (int round = 0; round < 100; ++round) {
        SCOPED_TRACE(round);
        host->count_allocations(true);
        run_round(round % 2 == 0);
        EXPECT_EQ(host->blocks_held(), 0);
        host->count_allocations(false);
        EXPECT_EQ(host->calls("pthread_mutex_init"), host->calls("pthread_mutex_destroy"));
        EXPECT_EQ(host->lists_held() + host->descriptors_held(), 0U);
        EXPECT_EQ(descriptor_count(), descriptors);
        EXPECT_EQ(said("ERROR"), Lines());
        if (round == 20) {
            resident = resident_kib();
        }
    }
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LE(resident_kib() - resident, 256);
#endif
}

std::atomic<int> host_signals{0};

// How often the host's handler ran, when it has had its time.
int signals_after(int expected) {
    for (int waits = 0; host_signals < expected && waits < 5000; ++waits) {
        poll(nullptr, 0, 1);
    }
    return host_signals;
}

TEST_F(LoadTest, ASignalToTheHostReachesItsOwnHandlerBeforeAndAfterTheUnload) {
    struct sigaction own {};
    own.sa_handler = [](int signal) { host_signals += signal == SIGUSR1 ? 1 : 1000; };
    sigaction(SIGUSR1, &own, nullptr);
    for (int round = 0; round < 2; ++round) {
        const int before = host_signals;
        void* const library = load();
        std::string error;
        auto broker = make_broker(library, OXR_SOURCE_DIR "/cim", error);
        ASSERT_NE(broker, nullptr) << error;
        let_worker_pass();
        const std::ptrdiff_t running = thread_count();
        kill(getpid(), SIGUSR1);
        EXPECT_EQ(signals_after(before + 1), before + 1) << "while the worker runs";
        EXPECT_EQ(thread_count(), running);

        (void)broker->invoke_method(service(), "stopservice", {});
        EXPECT_EQ(thread_count(), running - 1);
        kill(getpid(), SIGUSR1);
        EXPECT_EQ(signals_after(before + 2), before + 2) << "with the service stopped";

        broker.reset();
        unload(library);
        kill(getpid(), SIGUSR1);
        EXPECT_EQ(signals_after(before + 3), before + 3) << "with the library unloaded";
    }
    EXPECT_EQ(said("ERROR"), Lines());
}

TEST_F(LoadTest, AnotherComponentLogsThroughIt) {
    void* const library = dlopen(OXR_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto log = reinterpret_cast<void (*)(int, const char*, ...)>(dlsym(library, "oxr_log"));
    ASSERT_NE(log, nullptr);
    log(2, "from %s", "outside");
    EXPECT_TRUE(host->log().ends_with(": WARNING: from outside\n"));
    EXPECT_EQ(dlclose(library), 0);
}

}  // namespace
