#include "input_lines.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace ostrel_simhost {

namespace {

constexpr std::size_t longest_line = 1U << 16;

}  // namespace

void InputLines::read_more() {
    char buffer[4096];
    const ssize_t got = ::read(fd_, buffer, sizeof buffer);
    if (got > 0) {
        pending_.append(buffer, static_cast<std::size_t>(got));
    }
    const bool ended = got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN);
    if (ended) {
        fd_ = -1;
    }
    // The last line may have no end; one without measure is cut.
    if ((ended && !pending_.empty()) || pending_.size() > longest_line) {
        pending_ += '\n';
    }
}

std::vector<std::string> InputLines::wait(int milliseconds) {
    pollfd input{fd_, POLLIN, 0};  // a negative descriptor is passed by
    if (poll(&input, 1, milliseconds) > 0) {
        read_more();
    }
    std::vector<std::string> lines;
    for (std::size_t end; (end = pending_.find('\n')) != std::string::npos;) {
        lines.push_back(pending_.substr(0, end));
        pending_.erase(0, end + 1);
    }
    return lines;
}

}  // namespace ostrel_simhost
