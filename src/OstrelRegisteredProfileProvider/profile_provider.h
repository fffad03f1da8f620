// The registered-profile provider: loading it starts the service; its operations return nothing.
#pragma once

#include "cmpi/cmpi.h"

// The factory. Registers its interface as a user of the library and starts the service; the interface is static. No
// argument is used.
extern "C" __attribute__((visibility("default"))) CMPIInstanceMI* OstrelProfileProvider_Create_InstanceMI(
    const CMPIBroker* broker, const CMPIContext* context, CMPIStatus* status);
