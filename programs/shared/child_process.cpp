#include "shared/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>

namespace shared {

namespace {

constexpr std::size_t MOST_ERROR_OUTPUT = 1U << 16;

class PipeEnd {
public:
    PipeEnd() = default;
    explicit PipeEnd(int fd) : fd_(fd) {}
    PipeEnd(const PipeEnd&) = delete;
    PipeEnd& operator=(const PipeEnd&) = delete;
    ~PipeEnd() { close(); }
    void close() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
        fd_ = -1;
    }
    void set(int fd) {
        close();
        fd_ = fd;
    }
    int get() const { return fd_; }

private:
    int fd_ = -1;
};

// Another child that starts at the same time must not inherit an end, or this one's end of input never comes.
struct Pipe {
    PipeEnd read_end, write_end;
    bool open() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            return false;
        }
        read_end.set(ends[0]);
        write_end.set(ends[1]);
        return true;
    }
};

struct Spawning {
    Spawning() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
        sigset_t usual;
        sigemptyset(&usual);
        for (const int signal : {SIGPIPE, SIGINT, SIGTERM, SIGHUP}) {
            sigaddset(&usual, signal);
        }
        posix_spawnattr_setsigdefault(&attributes, &usual);
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }
    Spawning(const Spawning&) = delete;
    Spawning& operator=(const Spawning&) = delete;
    ~Spawning() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};
};

// Feeds the child and takes what it writes until it has closed both outputs.
class Exchange {
public:
    Exchange(const ChildProcess& child, ChildEnd& end, Pipe& input, Pipe& output, Pipe& errors)
        : child_(child), end_(end), input_(input.write_end), output_(output.read_end), errors_(errors.read_end) {
        fcntl(input_.get(), F_SETFL, O_NONBLOCK);
    }

    void run() {
        while (output_.get() >= 0 || errors_.get() >= 0) {
            if (input_.get() >= 0 && child_.input.size() == written_) {
                input_.close();
            }
            std::array<pollfd, 3> waits{
                {{input_.get(), POLLOUT, 0}, {output_.get(), POLLIN, 0}, {errors_.get(), POLLIN, 0}}};
            if (poll(waits.data(), waits.size(), -1) < 0 && errno != EINTR) {
                return;
            }
            if (waits[0].revents != 0) {
                feed();
            }
            if (waits[1].revents != 0) {
                take(output_, [this](std::string_view piece) { child_.on_output(piece); });
            }
            if (waits[2].revents != 0) {
                take(errors_, [this](std::string_view piece) {
                    end_.error_output += piece.substr(0, MOST_ERROR_OUTPUT - end_.error_output.size());
                });
            }
        }
    }

private:
    // A child that doesn't read any more will say why.
    void feed() {
        const ssize_t wrote = ::write(input_.get(), child_.input.data() + written_, child_.input.size() - written_);
        if (wrote >= 0) {
            written_ += static_cast<std::size_t>(wrote);
        } else if (errno != EAGAIN && errno != EINTR) {
            input_.close();
        }
    }

    template <class Taker>
    void take(PipeEnd& from, Taker taker) {
        const ssize_t got = ::read(from.get(), buffer_.data(), buffer_.size());
        if (got > 0) {
            taker(std::string_view(buffer_.data(), static_cast<std::size_t>(got)));
        } else if (got == 0 || errno != EINTR) {
            from.close();
        }
    }

    const ChildProcess& child_;
    ChildEnd& end_;
    PipeEnd& input_;
    PipeEnd& output_;
    PipeEnd& errors_;
    std::size_t written_ = 0;
    std::array<char, 1U << 16> buffer_{};
};

// The child may end without having read its input; that must not end this program.
class NoBrokenPipe {
public:
    NoBrokenPipe() {
        sigset_t pipe_signal;
        sigemptyset(&pipe_signal);
        sigaddset(&pipe_signal, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe_signal, &before_);
    }
    NoBrokenPipe(const NoBrokenPipe&) = delete;
    NoBrokenPipe& operator=(const NoBrokenPipe&) = delete;
    ~NoBrokenPipe() {
        sigset_t pipe_signal;
        sigemptyset(&pipe_signal);
        sigaddset(&pipe_signal, SIGPIPE);
        const timespec at_once{};
        while (sigismember(&before_, SIGPIPE) == 0 && sigtimedwait(&pipe_signal, nullptr, &at_once) > 0) {
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }

private:
    sigset_t before_{};
};

// The children that run, for a signal handler.
std::array<std::atomic<pid_t>, 8> children{};
std::atomic<int> last_sent{0};

class RegisteredChild {
public:
    explicit RegisteredChild(pid_t pid) : pid_(pid) {
        for (std::atomic<pid_t>& place : children) {
            pid_t none = 0;
            if (place.compare_exchange_strong(none, pid)) {
                break;
            }
        }
        if (const int signal = last_sent; signal != 0) {
            kill(pid, signal);
        }
    }
    RegisteredChild(const RegisteredChild&) = delete;
    RegisteredChild& operator=(const RegisteredChild&) = delete;
    ~RegisteredChild() {
        for (std::atomic<pid_t>& place : children) {
            pid_t mine = pid_;
            place.compare_exchange_strong(mine, 0);
        }
    }

private:
    pid_t pid_;
};

// Leaves it unreaped, so that its number stays its own.
void wait_without_reaping(pid_t pid) {
    siginfo_t ignored;
    while (waitid(P_PID, static_cast<id_t>(pid), &ignored, WEXITED | WNOWAIT) < 0 && errno == EINTR) {
    }
}

int wait_for(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

ChildEnd run_child(const ChildProcess& child) {
    ChildEnd end;
    Pipe input, output, errors;
    if (!input.open() || !output.open() || !errors.open()) {
        end.error_number = errno;
        return end;
    }
    Spawning spawning;
    const int output_fd = child.output_fd >= 0 ? child.output_fd : output.write_end.get();
    posix_spawn_file_actions_adddup2(&spawning.actions, input.read_end.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&spawning.actions, output_fd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&spawning.actions, errors.write_end.get(), STDERR_FILENO);
    std::vector<char*> arguments;
    for (const std::string& argument : child.command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    pid_t pid = -1;
    end.error_number =
        posix_spawnp(&pid, arguments[0], &spawning.actions, &spawning.attributes, arguments.data(), environ);
    input.read_end.close();
    output.write_end.close();
    errors.write_end.close();
    if (end.error_number != 0) {
        return end;
    }
    end.started = true;
    {
        const RegisteredChild registered(pid);
        const NoBrokenPipe no_broken_pipe;
        Exchange(child, end, input, output, errors).run();
        wait_without_reaping(pid);
    }
    end.exit_code = wait_for(pid);
    return end;
}

void send_to_children(int signal) {
    last_sent = signal;
    for (const std::atomic<pid_t>& place : children) {
        if (const pid_t pid = place; pid > 0) {
            kill(pid, signal);
        }
    }
}

}  // namespace shared
