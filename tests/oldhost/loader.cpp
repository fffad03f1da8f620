// Takes the library through its life on the host that this runs on: load, a first cycle of the worker, stop, unload.
// Compiled on that host, by ./dev oldhost. Stands in for the PSP: without a volume.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "cmpi/cmpi.h"

// Found ahead of the C library's: every request is answered with what came in, a record of zeros.
extern "C" int ioctl(int, unsigned long, ...) {
    return 0;
}

namespace {

constexpr char LIBRARY[] = "libostrelprovider.so.1";
constexpr int longest_wait_seconds = 20;

void require(bool holds, const std::string& what) {
    if (!holds) {
        std::printf("failed: %s\n", what.c_str());
        std::exit(1);
    }
}

std::string log_text() {
    std::ifstream log("/var/log/ostrel/oxr.log");
    return {std::istreambuf_iterator<char>(log), {}};
}

bool is_logged(const std::string& text) {
    return log_text().find(text) != std::string::npos;
}

using Cleanup = std::function<CMPIStatus()>;

template <typename Mi>
Cleanup create(void* library, const char* factory) {
    static const CMPIBroker broker{};
    using Factory = Mi* (*)(const CMPIBroker*, const CMPIContext*, CMPIStatus*);
    const auto make = reinterpret_cast<Factory>(dlsym(library, factory));
    require(make != nullptr, std::string("no ") + factory);
    CMPIStatus status{CMPI_RC_OK, nullptr};
    Mi* const mi = make(&broker, nullptr, &status);
    require(mi != nullptr && status.rc == CMPI_RC_OK, factory);
    return [mi] { return mi->ft->cleanup(mi, nullptr, 1); };
}

}  // namespace

int main() {
    void* const library = dlopen(LIBRARY, RTLD_NOW | RTLD_LOCAL);
    require(library != nullptr, library == nullptr ? dlerror() : "");
    const std::vector<Cleanup> cleanups = {
        create<CMPIInstanceMI>(library, "OstrelProvider_Create_InstanceMI"),
        create<CMPIMethodMI>(library, "OstrelProvider_Create_MethodMI"),
        create<CMPIInstanceMI>(library, "OstrelProviderSetting_Create_InstanceMI"),
        create<CMPIMethodMI>(library, "OstrelProviderSetting_Create_MethodMI"),
        create<CMPIInstanceMI>(library, "OstrelProfileProvider_Create_InstanceMI"),
        create<CMPIInstanceMI>(library, "OstrelAssocProvider_Create_InstanceMI"),
        create<CMPIAssociationMI>(library, "OstrelAssocProvider_Create_AssociationMI"),
    };
    for (int waited = 0; waited < longest_wait_seconds && !is_logged("About to sleep for interval"); ++waited) {
        sleep(1);
    }
    for (const Cleanup& clean_up : cleanups) {
        require(clean_up().rc == CMPI_RC_OK, "a cleanup");
    }
    require(dlclose(library) == 0, "dlclose");
    require(dlopen(LIBRARY, RTLD_NOW | RTLD_NOLOAD) == nullptr, "the library stays loaded");
    std::printf("%s", log_text().c_str());
    for (const char* const text : {"found 0 Ostrel volumes", "About to sleep for interval = 120 seconds",
                                   "do_work thread killed. pthread_join returned 0"}) {
        require(is_logged(text), std::string("the log lacks \"") + text + '"');
    }
    require(!is_logged(": ERROR: "), "the log has errors");
    return 0;
}
