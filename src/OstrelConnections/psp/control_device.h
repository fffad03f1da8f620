// The PSP control device: one descriptor an operation, the failures that every request has in common.
#pragma once

#include "OstrelConnections/psp/psp_records.h"
#include "common/descriptor.h"

class ControlDevice {
public:
    // Opens the device read-only; a failure is logged at ERROR for `operation`, with errno unless
    // `plain_message` is set.
    explicit ControlDevice(const char* operation, bool plain_message = false);

    bool opened() const { return descriptor_.valid(); }

    // Exchanges the buffer in place. 0: done; -1: errno tells; positive: a PSP status.
    int request(OstrelPspIoctlRequest code, void* buffer) const;

private:
    oxr::Descriptor descriptor_;
};

// Logs at ERROR that a request reached the PSP and was answered with this status.
void log_psp_status(const char* operation, int status);

// Prints the system error text of the present errno to standard error; errno is kept.
void print_ioctl_error();
