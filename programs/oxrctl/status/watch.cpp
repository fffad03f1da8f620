#include <fmt/format.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <string>
#include <vector>

#include "oxrctl/commands.h"
#include "oxrctl/paint.h"
#include "oxrctl/status/log_time.h"
#include "oxrctl/text.h"
#include "shared/terminal.h"

namespace oxrctl {

namespace {

void write_out(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

// A screen of its own for as long as it lives, without a cursor.
class Screen {
public:
    Screen() { write_out("\033[?1049h\033[?25l"); }
    ~Screen() { write_out("\033[?25h\033[?1049l"); }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    // Writes over what is there, so that nothing flickers. What doesn't fit is cut; the last row tells of rows below
    // it.
    void draw(std::string_view text, bool with_colours) const {
        winsize size{};
        if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0) {
            size.ws_row = 24;
            size.ws_col = 80;
        }
        std::vector<std::string> lines;
        while (!text.empty()) {
            const std::string_view line = text.substr(0, text.find('\n'));
            text.remove_prefix(std::min(line.size() + 1, text.size()));
            lines.emplace_back(first_columns(line, size.ws_col));
        }
        if (const std::size_t all = lines.size(); all > size.ws_row) {
            lines.resize(size.ws_row);
            lines.back() = first_columns(fmt::format("and {} more lines", all + 1 - size.ws_row), size.ws_col);
        }
        std::string frame = "\033[H";
        for (const std::string& line : lines) {
            frame +=
                fmt::format("{}{}\033[K", &line == lines.data() ? "" : "\r\n", with_colours ? painted(line) : line);
        }
        write_out(frame + "\033[J");
    }

private:
    static std::string_view first_columns(std::string_view line, std::size_t columns) {
        std::size_t end = 0;
        for (std::size_t width = 0; end < line.size(); ++end) {
            width += continues_letter(line[end]) ? 0 : 1;
            if (width > columns) {
                break;
            }
        }
        return line.substr(0, end);
    }
};

// The signals that end or redraw, taken only where they are waited for.
class Signals {
public:
    Signals() {
        (void)sigemptyset(&taken_);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGWINCH}) {
            (void)sigaddset(&taken_, signal);
        }
        (void)sigprocmask(SIG_BLOCK, &taken_, &before_);
    }
    ~Signals() { (void)sigprocmask(SIG_SETMASK, &before_, nullptr); }
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    // The signal that came, or -1 after so many seconds.
    int wait(std::int64_t seconds) const {
        const timespec longest{static_cast<std::time_t>(seconds), 0};
        return sigtimedwait(&taken_, nullptr, &longest);
    }

private:
    sigset_t taken_{}, before_{};
};

// A log that can't be read just now, as while it is rotated, is told like all else.
Answer look(const StatusOptions& options) {
    set_line_width(shared::terminal_width().value_or(LINE_WIDTH));
    try {
        return status(options);
    } catch (const Refusal& refusal) {
        return {without_control_characters(refusal.what()) + "\n", refusal.exit_code};
    }
}

}  // namespace

Answer watch_status(const StatusOptions& options, std::int64_t seconds, bool with_colours) {
    if (::isatty(STDOUT_FILENO) == 0) {
        throw Refusal("--watch: standard output is not a terminal");
    }
    if (seconds < 1 || std::find(options.logs.begin(), options.logs.end(), "-") != options.logs.end()) {
        throw Refusal("--watch: it takes a second or more, and files instead of standard input");
    }
    const Signals signals;
    const Screen screen;
    Answer answer;
    for (int signal = SIGWINCH; signal == SIGWINCH || signal < 0; signal = signals.wait(seconds)) {
        answer = look(options);
        screen.draw(fmt::format("{}, every {} s until Ctrl-C\n{}", plain_time(log_seconds_now()), seconds, answer.text),
                    with_colours);
    }
    return {"", answer.exit_code};
}

}  // namespace oxrctl
