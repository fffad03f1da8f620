// The PSP control device: one descriptor per operation, and the failures common to all requests.
#pragma once

#include "OstrelConnections/psp/psp_records.h"
#include "common/descriptor.h"

class ControlDevice {
public:
    // Opens the device read-only. Logs a failure at ERROR for `operation`, with errno unless `plain_message` is set.
    explicit ControlDevice(const char* operation, bool plain_message = false);

    bool opened() const { return descriptor_.valid(); }

    // Sends the buffer; the reply replaces its content. 0: done; -1: see errno; positive: a PSP status.
    int request(OstrelPspIoctlRequest code, void* buffer) const;

private:
    oxr::Descriptor descriptor_;
};

// Logs at ERROR that the PSP answered a request with this status.
void log_psp_status(const char* operation, int status);

// Prints the system's text for errno to standard error; keeps errno.
void print_ioctl_error();
