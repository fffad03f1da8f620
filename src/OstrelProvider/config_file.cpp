#include "OstrelProvider/config_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "common/descriptor.h"
#include "common/regular_file.h"

ConfigWrite write_config_file(const char* text, std::size_t length) {
    oxr::Descriptor file(oxr::open_regular_file(OSTREL_CONFIG_FILE, O_WRONLY | O_CREAT | O_TRUNC));
    if (!file.valid()) {
        return ConfigWrite::not_opened;
    }
    ssize_t written;
    do {
        written = ::write(file.get(), text, length);
    } while (written < 0 && errno == EINTR);
    if (written < 0) {
        return ConfigWrite::not_written;
    }
    if (static_cast<std::size_t>(written) != length) {
        errno = ENOSPC;
        return ConfigWrite::not_written;
    }
    return file.close() == 0 ? ConfigWrite::written : ConfigWrite::not_written;
}
