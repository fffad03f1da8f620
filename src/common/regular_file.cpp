#include "common/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "common/older_hosts.h"

namespace oxr {

namespace {

// 0, or the errno for refusing the open file.
int refusal(int fd, struct stat& status) {
    if (__fxstat(STAT_RECORD_VERSION, fd, &status) != 0) {
        return errno;
    }
    return S_ISREG(status.st_mode) ? 0 : S_ISDIR(status.st_mode) ? EISDIR : ENXIO;
}

}  // namespace

int open_regular_file(const char* path, int flags, off_t* size) {
    const int fd = ::open(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0666);
    if (fd < 0) {
        return -1;
    }
    struct stat status {};
    // What O_EXCL has just made is a regular file; a refusal would leave it behind.
    const int error = (flags & O_EXCL) != 0 ? 0 : refusal(fd, status);
    if (error != 0) {
        (void)::close(fd);
        errno = error;
        return -1;
    }
    if (size != nullptr) {
        *size = status.st_size;
    }
    return fd;
}

}  // namespace oxr
