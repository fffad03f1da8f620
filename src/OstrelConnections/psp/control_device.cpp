#include "OstrelConnections/psp/control_device.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdio>

#include "OstrelConnections/psp/psp_client.h"
#include "OstrelProvider/log.h"

ControlDevice::ControlDevice(const char* operation, bool plain_message)
    : descriptor_(::open(OSTREL_PSP_CONTROL_DEVICE, O_RDONLY)) {
    if (descriptor_.valid()) {
        return;
    }
    const int error = errno;
    if (plain_message) {
        OXR_ERROR_IN(operation, "open control device failed.");
    } else {
        OXR_ERROR_IN(operation, "open control device failed. ErrorNo=0x%x", static_cast<unsigned>(error));
    }
}

int ControlDevice::request(OstrelPspIoctlRequest code, void* buffer) const {
    return ::ioctl(descriptor_.get(), code, buffer);
}

void log_psp_status(const char* operation, int status) {
    OXR_ERROR_IN(operation, "ioctl command executed successfully , but returned status = %s",
                 ioctl_status_to_string(status));
}

void print_ioctl_error() {
    const int error = errno;
    std::perror("ioctl");
    errno = error;
}
