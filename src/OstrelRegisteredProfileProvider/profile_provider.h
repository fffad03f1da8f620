// The registered-profile provider: loading it starts the service; its operations have nothing to return.
#pragma once

#include "cmpi/cmpi.h"

// The factory. Makes its interface a user of the library and starts the service; the interface lives for ever.
// No argument is used.
extern "C" __attribute__((visibility("default"))) CMPIInstanceMI* OstrelProfileProvider_Create_InstanceMI(
    const CMPIBroker* broker, const CMPIContext* context, CMPIStatus* status);
