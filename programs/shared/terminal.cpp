#include "shared/terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>

namespace shared {

namespace {

constexpr std::size_t LEAST_WIDTH = 20;  // on less nothing can be laid out

std::string_view variable(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::optional<std::size_t> usable(std::size_t width) {
    return width >= LEAST_WIDTH ? std::optional(width) : std::nullopt;
}

}  // namespace

std::optional<std::size_t> terminal_width() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        return usable(size.ws_col);
    }
    const std::string_view text = variable("COLUMNS");
    std::size_t columns = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), columns);
    return error == std::errc() && end == text.data() + text.size() ? usable(columns) : std::nullopt;
}

std::optional<ColourWish> colour_wish(std::string_view word) {
    return word == "auto"     ? std::optional(ColourWish::automatic)
           : word == "always" ? std::optional(ColourWish::always)
           : word == "never"  ? std::optional(ColourWish::never)
                              : std::nullopt;
}

bool wants_colours(ColourWish wish) {
    return wish == ColourWish::always || (wish == ColourWish::automatic && isatty(STDOUT_FILENO) == 1 &&
                                          variable("NO_COLOR").empty() && variable("TERM") != "dumb");
}

bool output_is_abandoned() {
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    return poll(&output, 1, 0) > 0 && (output.revents & (POLLERR | POLLHUP)) != 0;
}

void end_by_signal(int signal) {
    std::signal(signal, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    std::raise(signal);
    _exit(128 + signal);
}

}  // namespace shared
