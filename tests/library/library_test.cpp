// The shared library as a CIM server finds it.
#include <dlfcn.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <sstream>

#include "cmpi/cmpi.h"
#include "support/host_test.h"

namespace {

using testing_support::Lines;

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

TEST(Library, NamesItselfAndTheHostLibraryItNeeds) {
    const std::string dynamic = output_of("LC_ALL=C readelf -W -d " OXR_LIBRARY);
    EXPECT_NE(dynamic.find("Library soname: [libostrelprovider.so.1]"), std::string::npos) << dynamic;
    EXPECT_NE(dynamic.find("Shared library: [libvmkima.so]"), std::string::npos) << dynamic;
    EXPECT_EQ(dynamic.find("RPATH"), std::string::npos) << dynamic;
    EXPECT_EQ(dynamic.find("RUNPATH"), std::string::npos) << dynamic;
    EXPECT_EQ(dynamic.find("TEXTREL"), std::string::npos) << dynamic;
}

template <typename Mi>
Mi* create(void* library, const char* factory) {
    using Factory = Mi* (*)(const CMPIBroker*, const CMPIContext*, CMPIStatus*);
    const auto make = reinterpret_cast<Factory>(dlsym(library, factory));
    CMPIStatus status{CMPI_RC_OK, nullptr};
    return make != nullptr ? make(nullptr, nullptr, &status) : nullptr;
}

std::ptrdiff_t thread_count() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

class LoadTest : public testing_support::HostTest {
protected:
    LoadTest() { host->set_horizon(0); }
};

TEST_F(LoadTest, LoadedAndUnloadedTwentyTimesLeavesNothing) {
    host->write_file("/etc/ostrel/oxr.conf", "# as it is\nuse_ostrel_timeouts=1\nostrel_logs_path=/var/log/ostrel\n");
    const std::ptrdiff_t threads = thread_count();
    for (int round = 0; round < 20; ++round) {
        SCOPED_TRACE(round);
        void* const library = dlopen(OXR_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        std::vector<CMPIInstanceMI*> instances;
        std::vector<CMPIMethodMI*> methods;
        for (const char* const factory : INSTANCE_FACTORIES) {
            instances.push_back(create<CMPIInstanceMI>(library, factory));
            ASSERT_NE(instances.back(), nullptr) << factory;
            EXPECT_NE(instances.back()->ft, nullptr);
        }
        for (const char* const factory : METHOD_FACTORIES) {
            methods.push_back(create<CMPIMethodMI>(library, factory));
            ASSERT_NE(methods.back(), nullptr) << factory;
        }
        auto* const association = create<CMPIAssociationMI>(library, ASSOCIATION_FACTORY);
        ASSERT_NE(association, nullptr);
        ASSERT_TRUE(host->wait_for_horizon(10));
        EXPECT_EQ(thread_count(), threads + 1);

        // The service provider goes first in one round and last in the next.
        const auto clean_up_instances = [&] {
            for (CMPIInstanceMI* const mi : instances) {
                EXPECT_EQ(mi->ft->cleanup(mi, nullptr, 1).rc, CMPI_RC_OK);
            }
        };
        if (round % 2 == 0) {
            clean_up_instances();
        }
        for (CMPIMethodMI* const mi : methods) {
            EXPECT_EQ(mi->ft->cleanup(mi, nullptr, 1).rc, CMPI_RC_OK);
        }
        EXPECT_EQ(association->ft->cleanup(association, nullptr, 1).rc, CMPI_RC_OK);
        if (round % 2 == 1) {
            clean_up_instances();
        }
        EXPECT_EQ(thread_count(), threads);
        EXPECT_EQ(dlclose(library), 0);
        EXPECT_EQ(dlopen(OXR_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr);
        EXPECT_EQ(host->calls("pthread_mutex_init"), host->calls("pthread_mutex_destroy"));
        EXPECT_EQ(host->lists_held() + host->descriptors_held(), 0U);
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
