#include "OstrelProvider/log.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "OstrelProvider/log_level.h"
#include "common/descriptor.h"
#include "common/regular_file.h"
#include "common/text.h"

std::atomic<std::uint32_t> log_level{1};
oxr::Mutex log_file_mutex;
char g_log_filename[LOG_FILENAME_SIZE] = "/var/log/ostrel/oxr.log";

namespace {

constexpr off_t max_log_size = 2097152;
constexpr int kept_log_files = 6;
constexpr int message_capacity = 2048;

// The name with a rotation suffix; it can be longer than the name's own field.
struct RotatedName {
    char text[LOG_FILENAME_SIZE + 12];

    RotatedName(const char* log_filename, int number) {
        (void)std::snprintf(text, sizeof text, "%s.%d", log_filename, number);
    }
};

int open_truncated(const char* path) {
    return oxr::open_regular_file(path, O_RDWR | O_CREAT | O_TRUNC);
}

bool write_all(int fd, const char* text, std::size_t length) {
    while (length > 0) {
        const ssize_t written = ::write(fd, text, length);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        text += written;
        length -= static_cast<std::size_t>(written);
    }
    return true;
}

// Writes the message that was formatted before the lock was taken or, if it does not fit that buffer, formats it again.
// A message that cannot be written is lost, for example on a full disk.
__attribute__((format(printf, 4, 0))) void write_message(int fd, const char* formatted, int length, const char* format,
                                                         va_list arguments) {
    if (length >= 0 && length < message_capacity) {
        (void)write_all(fd, formatted, static_cast<std::size_t>(length));
    } else {
        (void)vdprintf(fd, format, arguments);
    }
}

int open_log(off_t& size) OXR_REQUIRES(log_file_mutex) {
    return oxr::open_regular_file(g_log_filename, O_WRONLY | O_CREAT | O_APPEND, &size);
}

// Opens the log for one more message; rotates first if the log has outgrown its size.
int open_for_message() OXR_REQUIRES(log_file_mutex) {
    off_t size = 0;
    const int fd = open_log(size);
    if (fd < 0 || size <= max_log_size) {
        return fd;
    }
    (void)::close(fd);
    begin_new_log();
    return open_log(size);
}

}  // namespace

bool logs_debug() {
    return log_level.load(std::memory_order_relaxed) >= LOG_LEVEL_DEBUG;
}

void oxr_log_to_file(std::uint32_t level, const char* format, ...) {
    if (level > log_level.load(std::memory_order_relaxed)) {
        return;
    }
    va_list arguments;
    va_list again;
    va_start(arguments, format);
    va_copy(again, arguments);
    char message[message_capacity];
    const int length = std::vsnprintf(message, sizeof message, format, arguments);
    {
        const oxr::MutexLock lock(log_file_mutex);
        const oxr::Descriptor file(open_for_message());
        if (file.valid()) {
            write_message(file.get(), message, length, format, again);
        }
    }
    va_end(again);
    va_end(arguments);
}

void oxr_log(int level, const char* format, ...) {
    const char* const word = level == 3 ? "ERROR" : level == 2 ? "WARNING" : "INFO";
    const time_t now = time(nullptr);
    tm local{};
    char stamp[64] = "";
    if (localtime_r(&now, &local) != nullptr && asctime_r(&local, stamp) != nullptr) {
        stamp[strcspn(stamp, "\n")] = '\0';
    }
    va_list arguments;
    va_start(arguments, format);
    {
        const oxr::MutexLock lock(log_file_mutex);
        const oxr::Descriptor file(open_for_message());
        if (file.valid()) {
            (void)dprintf(file.get(), "%s: %s: ", stamp, word);
            (void)vdprintf(file.get(), format, arguments);
            (void)write_all(file.get(), "\n", 1);
        }
    }
    va_end(arguments);
}

const char* get_time() {
    // Callers use errno in the same argument list.
    const int error = errno;
    thread_local time_t formatted_at = -1;
    thread_local char text[64] = "";
    const time_t now = time(nullptr);
    if (now != formatted_at) {
        tm local{};
        if (localtime_r(&now, &local) == nullptr || strftime(text, sizeof text, "%a %b  %d %H:%M:%S %Y", &local) == 0) {
            text[0] = '\0';
        }
        formatted_at = now;
    }
    errno = error;
    return text;
}

void begin_new_log() {
    for (int i = kept_log_files - 1; i >= 1; --i) {
        const RotatedName younger(g_log_filename, i);
        if (::access(younger.text, F_OK) == 0) {
            (void)move_log_file(younger.text, RotatedName(g_log_filename, i + 1).text);
        }
    }
    (void)move_log_file(g_log_filename, RotatedName(g_log_filename, 1).text);
    const oxr::Descriptor emptied(open_truncated(g_log_filename));
}

int move_log_file(const char* source, const char* destination) {
    const oxr::Descriptor from(oxr::open_regular_file(source, O_RDONLY));
    oxr::Descriptor to(open_truncated(destination));
    if (!to.valid()) {
        return -1;
    }
    if (from.valid()) {
        char buffer[16384];
        ssize_t got;
        while ((got = ::read(from.get(), buffer, sizeof buffer)) > 0) {
            if (!write_all(to.get(), buffer, static_cast<std::size_t>(got))) {
                break;
            }
        }
    }
    return to.close();
}

void set_log_filename(const char* filename) {
    const oxr::MutexLock lock(log_file_mutex);
    oxr::copy_text(g_log_filename, filename);
}
