// File descriptors that close themselves.
#pragma once

#include <unistd.h>

#include <cerrno>

namespace oxr {

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    // Ignores the result; call close() to learn whether the file was written completely.
    ~Descriptor() {
        if (fd_ >= 0) {
            const int error = errno;
            (void)::close(fd_);
            errno = error;
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool valid() const { return fd_ >= 0; }
    int get() const { return fd_; }
    // Closes now. Returns the result of close(2).
    int close() {
        const int fd = fd_;
        fd_ = -1;
        return ::close(fd);
    }

private:
    int fd_;
};

}  // namespace oxr
