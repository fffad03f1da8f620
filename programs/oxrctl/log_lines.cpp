#include "oxrctl/log_lines.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "oxrctl/command.h"

namespace oxrctl {

namespace {

constexpr int OLDEST_FILE = 6;
constexpr off_t LARGEST_FILE_BYTES = 256 << 20;

LogFile read_log_file(const std::string& name) {
    LogFile file{name, "", ""};
    struct stat status {};
    if (::stat(name.c_str(), &status) != 0) {
        file.problem = std::strerror(errno);
    } else if (!S_ISREG(status.st_mode)) {
        file.problem = "not a regular file";
    } else if (status.st_size > LARGEST_FILE_BYTES) {
        file.problem = fmt::format("larger than {} MiB: not a log of the connection manager", LARGEST_FILE_BYTES >> 20);
    } else if (std::ifstream stream(name, std::ios::binary); !stream) {
        file.problem = std::strerror(errno);
    } else {
        file.text.resize(static_cast<std::size_t>(status.st_size));
        stream.read(file.text.data(), status.st_size);
        file.text.resize(static_cast<std::size_t>(stream.gcount()));
        file.problem = stream.bad() ? "reading it failed" : "";
    }
    return file;
}

}  // namespace

std::vector<LogFile> read_log_files(const std::string& file) {
    std::vector<LogFile> files;
    for (int number = OLDEST_FILE; number > 0; --number) {
        const std::string name = fmt::format("{}.{}", file, number);
        if (::access(name.c_str(), F_OK) == 0 || errno != ENOENT) {
            files.push_back(read_log_file(name));
        }
    }
    files.push_back(read_log_file(file));
    if (!files.back().problem.empty()) {
        throw Refusal(fmt::format("{}: {}", file, files.back().problem));
    }
    return files;
}

std::string plain_time(std::string_view logged) {
    static constexpr std::array<std::string_view, 12> months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                                "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    // "Www Mmm  DD HH:MM:SS YYYY"
    constexpr std::size_t length = 25;
    if (logged.size() == length) {
        for (std::size_t i = 0; i < months.size(); ++i) {
            if (logged.substr(4, 3) == months[i]) {
                return fmt::format("{}-{:02}-{} {}", logged.substr(21, 4), i + 1, logged.substr(9, 2),
                                   logged.substr(12, 8));
            }
        }
    }
    return std::string(logged);
}

}  // namespace oxrctl
