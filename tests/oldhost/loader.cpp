// Takes the library through its life on the host that this runs on: load, a first cycle of the worker, stop, unload.
// Compiled on that host, by ./dev oldhost. Stands in for the PSP: without a volume.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "cmpi/cmpi.h"

// Found ahead of the C library's: every request is answered with what came in, a record of zeros.
extern "C" int ioctl(int, unsigned long, ...) {
    return 0;
}

static void require(bool holds, const char* what) {
    if (!holds) {
        std::printf("failed: %s\n", what);
        std::exit(1);
    }
}

template <typename Mi>
static Mi* create(void* library, const char* factory) {
    static const CMPIBroker broker{};
    using Factory = Mi* (*)(const CMPIBroker*, const CMPIContext*, CMPIStatus*);
    const auto make = reinterpret_cast<Factory>(dlsym(library, factory));
    require(make != nullptr, factory);
    CMPIStatus status{CMPI_RC_OK, nullptr};
    Mi* const mi = make(&broker, nullptr, &status);
    require(mi != nullptr && status.rc == CMPI_RC_OK, factory);
    return mi;
}

int main() {
    void* const library = dlopen("libostrelprovider.so.1", RTLD_NOW | RTLD_LOCAL);
    require(library != nullptr, library == nullptr ? dlerror() : "");
    auto* const service = create<CMPIInstanceMI>(library, "OstrelProvider_Create_InstanceMI");
    auto* const association = create<CMPIAssociationMI>(library, "OstrelAssocProvider_Create_AssociationMI");
    sleep(5);
    require(association->ft->cleanup(association, nullptr, 1).rc == CMPI_RC_OK, "a cleanup");
    require(service->ft->cleanup(service, nullptr, 1).rc == CMPI_RC_OK, "the last cleanup");
    require(dlclose(library) == 0, "dlclose");
    require(dlopen("libostrelprovider.so.1", RTLD_NOW | RTLD_NOLOAD) == nullptr, "the library stays loaded");
    return 0;
}
