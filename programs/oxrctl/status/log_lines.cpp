#include "oxrctl/status/log_lines.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace oxrctl {

LineReader::LineReader(int descriptor)
    : descriptor_(descriptor), buffer_(std::make_unique_for_overwrite<char[]>(BUFFER_BYTES)) {}

// Moves what is left to the buffer's start and reads on behind it. False: there is nothing more.
bool LineReader::fill() {
    if (ended_) {
        return false;
    }
    std::memmove(buffer_.get(), buffer_.get() + at_, filled_ - at_);
    filled_ -= at_;
    at_ = 0;
    ssize_t got;
    do {
        got = ::read(descriptor_, buffer_.get() + filled_, BUFFER_BYTES - filled_);
    } while (got < 0 && errno == EINTR);
    error_ = got < 0 ? errno : 0;
    ended_ = got <= 0;
    filled_ += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    return !ended_;
}

bool LineReader::next(std::string_view& line) {
    std::string_view rest;
    std::size_t end;
    do {
        const std::size_t looked_at = rest.size();
        rest = {buffer_.get() + at_, filled_ - at_};
        end = rest.find('\n', looked_at);
    } while (end == std::string_view::npos && rest.size() < BUFFER_BYTES && fill());
    rest = {buffer_.get() + at_, filled_ - at_};
    if (rest.empty()) {
        return false;
    }
    line = rest.substr(0, end);
    at_ += std::min(line.size() + 1, rest.size());
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    return true;
}

}  // namespace oxrctl
