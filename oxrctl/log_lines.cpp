#include "oxrctl/log_lines.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>

#include "oxrctl/command.h"

namespace oxrctl {

namespace {

constexpr int OLDEST_FILE = 6;
constexpr off_t LARGEST_FILE_BYTES = 256 << 20;

std::string read_file(const std::string& name, off_t size) {
    std::string text(static_cast<std::size_t>(size), '\0');
    std::ifstream stream(name, std::ios::binary);
    if (!stream) {
        throw Refusal(fmt::format("{}: {}", name, std::strerror(errno)));
    }
    stream.read(text.data(), size);
    if (stream.bad()) {
        throw Refusal(fmt::format("{}: reading it failed", name));
    }
    text.resize(static_cast<std::size_t>(stream.gcount()));
    return text;
}

// Cuts off what stands before `separator`; false when it isn't there.
bool cut(std::string_view& rest, std::string_view separator, std::string_view& part) {
    const std::size_t at = rest.find(separator);
    if (at == std::string_view::npos) {
        return false;
    }
    part = rest.substr(0, at);
    rest.remove_prefix(at + separator.size());
    return true;
}

bool is_level(std::string_view word) {
    return word == "ERROR" || word == "WARN" || word == "INFO" || word == "DEBUG";
}

}  // namespace

std::vector<LogFile> read_log_files(const std::string& file) {
    std::vector<LogFile> files;
    for (int number = OLDEST_FILE; number >= 0; --number) {
        const std::string name = number > 0 ? fmt::format("{}.{}", file, number) : file;
        struct stat status {};
        if (::stat(name.c_str(), &status) != 0) {
            if (number > 0 && errno == ENOENT) {
                continue;
            }
            throw Refusal(fmt::format("{}: {}", name, std::strerror(errno)));
        }
        if (!S_ISREG(status.st_mode)) {
            throw Refusal(fmt::format("{}: not a regular file", name));
        }
        if (status.st_size > LARGEST_FILE_BYTES) {
            throw Refusal(fmt::format("{}: larger than {} MiB: not a log of the connection manager", name,
                                      LARGEST_FILE_BYTES >> 20));
        }
        files.push_back({name, read_file(name, status.st_size)});
    }
    return files;
}

bool parse_log_line(std::string_view line, LogLine& parsed) {
    std::string_view rest = line;
    std::string_view number;
    // The time has colons of its own, but no blank behind them.
    if (!cut(rest, ": ", parsed.time) || !cut(rest, ": ", parsed.level) || !is_level(parsed.level) ||
        !cut(rest, ": ", parsed.module) || !cut(rest, ":", parsed.function) || !cut(rest, " : ", number)) {
        return false;
    }
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), parsed.source_line);
    parsed.text = rest;
    return error == std::errc() && end == number.data() + number.size();
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
