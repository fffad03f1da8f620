#include "OstrelProvider/config_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common/descriptor.h"
#include "common/regular_file.h"
#include "configuration/config_text.h"

namespace {

// A kill cannot interrupt a single write within one page; the first page is rewritten with one.
constexpr std::size_t page_size = CONFIG_TEXT_SIZE;

int open_file(int creation) {
    return oxr::open_regular_file(OSTREL_CONFIG_FILE, O_RDWR | creation);
}

// `created`: there was neither a file nor a link to one.
int open_or_create(bool& created) {
    int fd = open_file(0);
    if (fd >= 0 || errno != ENOENT) {
        return fd;
    }
    fd = open_file(O_CREAT | O_EXCL);
    created = fd >= 0;
    return created || errno != EEXIST ? fd : open_file(O_CREAT);
}

// True if everything is written. A short write means a full disk.
bool write_whole(int fd, const char* text, std::size_t length, off_t at) {
    ssize_t written;
    do {
        written = ::pwrite(fd, text, length, at);
    } while (written < 0 && errno == EINTR);
    if (written >= 0 && static_cast<std::size_t>(written) != length) {
        errno = ENOSPC;
    }
    return written == static_cast<ssize_t>(length);
}

// The old content, which a failed rewrite restores.
struct OldText {
    off_t size = 0;
    std::size_t head_length = 0;
    char head[page_size];
};

bool keep_old_text(int fd, OldText& old) {
    old.size = ::lseek(fd, 0, SEEK_END);
    if (old.size < 0) {
        return false;
    }
    old.head_length = static_cast<std::size_t>(std::min<off_t>(old.size, page_size));
    ssize_t got;
    do {
        got = ::pread(fd, old.head, old.head_length, 0);
    } while (got < 0 && errno == EINTR);
    if (got >= 0 && static_cast<std::size_t>(got) != old.head_length) {
        errno = EIO;
    }
    return got == static_cast<ssize_t>(old.head_length);
}

void put_back(int fd, const OldText& old) {
    const int error = errno;
    (void)write_whole(fd, old.head, old.head_length, 0);
    (void)!::ftruncate(fd, old.size);
    errno = error;
}

// Reserves disk space for a longer text before the old text is changed: appended line feeds change no value.
bool make_room(int fd, std::size_t length, const OldText& old) {
    if (static_cast<off_t>(length) <= old.size) {
        return true;
    }
    char line_feeds[page_size];
    std::memset(line_feeds, '\n', sizeof line_feeds);
    return write_whole(fd, line_feeds, length - static_cast<std::size_t>(old.size), old.size);
}

// Writes the new text first, then truncates the rest of the old one. In between, line feeds replace that rest; in a
// file longer than a page, the remaining text begins inside a comment line.
bool write_over(int fd, const char* text, std::size_t length, const OldText& old) {
    char page[page_size];
    std::memset(page, '\n', sizeof page);
    std::memcpy(page, text, length);
    if (old.size > static_cast<off_t>(page_size) && length < page_size - 1) {
        page[page_size - 1] = '#';
    }
    return write_whole(fd, page, std::max(length, old.head_length), 0) &&
           (old.size <= static_cast<off_t>(length) || ::ftruncate(fd, static_cast<off_t>(length)) == 0);
}

bool replace_text(int fd, const char* text, std::size_t length) {
    OldText old;
    if (!keep_old_text(fd, old)) {
        return false;
    }
    const bool replaced = make_room(fd, length, old) && write_over(fd, text, length, old);
    if (!replaced) {
        put_back(fd, old);
    }
    return replaced;
}

}  // namespace

ConfigWrite write_config_file(const char* text, std::size_t length) {
    bool created = false;
    oxr::Descriptor file(open_or_create(created));
    if (!file.valid()) {
        return ConfigWrite::not_opened;
    }
    if (replace_text(file.get(), text, length) && file.close() == 0) {
        return ConfigWrite::written;
    }
    if (created) {
        const int error = errno;
        (void)::unlink(OSTREL_CONFIG_FILE);
        errno = error;
    }
    return ConfigWrite::not_written;
}
