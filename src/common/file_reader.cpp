#include "common/file_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "common/blank.h"
#include "common/regular_file.h"

namespace oxr {

FileReader::FileReader(const char* path) : file_(open_regular_file(path, O_RDONLY)) {
    if (!file_.valid()) {
        error_ = errno;
    }
}

int FileReader::next() {
    if (at_ == filled_) {
        if (!file_.valid() || error_ != 0) {
            return -1;
        }
        ssize_t got;
        do {
            got = ::read(file_.get(), buffer_, sizeof buffer_);
        } while (got < 0 && errno == EINTR);
        if (got < 0) {
            error_ = errno;
        }
        if (got <= 0) {
            return -1;
        }
        at_ = 0;
        filled_ = static_cast<std::size_t>(got);
    }
    return static_cast<unsigned char>(buffer_[at_++]);
}

bool FileReader::next_line(std::string_view& line) {
    std::size_t length = 0;
    int c = next();
    if (c < 0) {
        return false;
    }
    for (; c >= 0; c = next()) {
        if (length < line_capacity) {
            line_[length++] = static_cast<char>(c);
        }
        if (c == '\n') {
            break;
        }
    }
    line = {line_, length};
    return true;
}

bool is_comment_line(std::string_view line) {
    for (const char c : line) {
        if (!is_blank(c)) {
            return c == '#';
        }
    }
    return false;
}

}  // namespace oxr
