// The C library's file calls: paths of the host's own trees go below the root folder, calls on them are counted
// and may fail, and the descriptors open there are known.
#include <errno.h>
#include <stdarg.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "OstrelConnections/psp/psp_records.h"
#include "simhost/descriptors.h"
#include "simhost/inside.h"
#include "simhost/model.h"
#include "simhost/real.h"

namespace simhost {

namespace {

constexpr std::string_view LOCK_FILE = "/etc/ostrel/.lock";

// Numbers of the descriptors that are open on the host's files, to pass by all others without the lock.
// Higher numbers are looked up.
constexpr int MARKED = 65536;
constinit std::atomic<std::uint64_t> marks[MARKED / 64];

void mark(int fd, bool open) {
    if (fd < 0 || fd >= MARKED) {
        return;
    }
    const std::uint64_t bit = std::uint64_t{1} << (fd % 64);
    if (open) {
        marks[fd / 64].fetch_or(bit);
    } else {
        marks[fd / 64].fetch_and(~bit);
    }
}

bool marked(int fd) {
    return fd >= MARKED || (fd >= 0 && (marks[fd / 64].load() & (std::uint64_t{1} << (fd % 64))) != 0);
}

int fail_with(const Fault& fault) {
    errno = fault.error != 0 ? fault.error : EIO;
    return -1;
}

// A call on a path. Empty `host_path`: it isn't the host's, and goes to `elsewhere`.
struct PathCall {
    std::shared_ptr<Host::Impl> impl;
    std::string host_path;
    std::string real_path;
    const char* elsewhere = nullptr;
    bool ours() const { return !host_path.empty(); }
};

// The path on the machine itself of a call that isn't on a file of a host. Nothing of a host's trees is there: without
// a host they are empty, and stay so (no file has the empty name).
const char* on_the_machine(const char* path) {
    return path != nullptr && names_host_tree(path) ? "" : path;
}

PathCall path_call(const char* path) {
    PathCall call;
    call.elsewhere = on_the_machine(path);
    if (path == nullptr || path[0] != '/' || !host_exists()) {
        return call;
    }
    std::string host_path = host_path_of(path);
    if (host_path.empty()) {
        return call;
    }
    call.impl = current_impl();
    if (call.impl != nullptr) {
        call.real_path = call.impl->files.real_path(host_path);
        call.host_path = std::move(host_path);
    }
    return call;
}

std::optional<Fault> counted(const PathCall& call, std::string_view operation) {
    const Entered entered(*call.impl);
    return call.impl->hit(operation, call.host_path);
}

void note_open(Host::Impl& impl, int fd, HostFiles::Open open) {
    impl.files.closed.erase(fd);
    impl.files.open[fd] = std::move(open);
    mark(fd, true);
}

bool is_there(const std::string& path) {
    return real::faccessat(AT_FDCWD, path.c_str(), 0, 0) == 0;
}

int open_file(int folder, const char* path, int flags, mode_t mode) {
    const Inside inside;
    const PathCall call = path_call(path);
    if (!call.ours()) {
        return folder == AT_FDCWD ? real::open(call.elsewhere, flags, mode)
                                  : real::openat(folder, call.elsewhere, flags, mode);
    }
    const Entered entered(*call.impl);
    const bool control = call.host_path == OSTREL_PSP_CONTROL_DEVICE;
    if (const auto fault = call.impl->hit(control ? "psp.open" : "open", call.host_path)) {
        return fail_with(*fault);
    }
    const bool makes_lock_file = (flags & O_CREAT) != 0 && call.host_path == LOCK_FILE && !is_there(call.real_path);
    const int fd = real::open(call.real_path.c_str(), flags, mode);
    if (fd >= 0) {
        note_open(*call.impl, fd, {call.host_path, control, false});
        if (makes_lock_file) {
            call.impl->emit({Event::Kind::pass_begun, call.impl->now(), {}, {}, {}});
        }
    }
    return fd;
}

FILE* open_stream(const char* path, const char* how) {
    const Inside inside;
    const PathCall call = path_call(path);
    if (!call.ours()) {
        return real::fopen(call.elsewhere, how);
    }
    const Entered entered(*call.impl);
    if (const auto fault = call.impl->hit("fopen", call.host_path)) {
        fail_with(*fault);
        return nullptr;
    }
    const bool makes_lock_file =
        how != nullptr && how[0] != 'r' && call.host_path == LOCK_FILE && !is_there(call.real_path);
    FILE* stream = real::fopen(call.real_path.c_str(), how);
    if (stream != nullptr) {
        note_open(*call.impl, fileno(stream), {call.host_path, false, true});
        if (makes_lock_file) {
            call.impl->emit({Event::Kind::pass_begun, call.impl->now(), {}, {}, {}});
        }
    }
    return stream;
}

// The call on an open descriptor of the host's: counted, with the fault it meets.
std::optional<Fault> counted(int fd, std::string_view operation) {
    if (!marked(fd) || !host_exists()) {
        return std::nullopt;
    }
    const auto impl = current_impl();
    if (impl == nullptr) {
        return std::nullopt;
    }
    const Entered entered(*impl);
    const auto found = impl->files.open.find(fd);
    if (found == impl->files.open.end() || found->second.control) {
        return std::nullopt;
    }
    return impl->hit(operation, found->second.host_path);
}

// Forgets an open descriptor that is about to be closed; the fault that its closing meets.
std::optional<Fault> forget(Host::Impl& impl, int fd) {
    const auto found = impl.files.open.find(fd);
    if (found == impl.files.open.end()) {
        return std::nullopt;
    }
    const HostFiles::Open was = found->second;
    impl.files.open.erase(found);
    impl.files.closed[fd] = was;
    mark(fd, false);
    return impl.hit(was.control ? "psp.close" : "close", was.host_path);
}

int close_file(int fd) {
    if (!host_exists()) {
        return real::close(fd);
    }
    const Inside inside;
    const auto impl = current_impl();
    std::optional<Fault> fault;
    if (impl != nullptr && marked(fd)) {
        const Entered entered(*impl);
        fault = forget(*impl, fd);
    }
    const int result = real::close(fd);
    if (result != 0 && errno == EBADF && impl != nullptr) {
        const Entered entered(*impl);
        const auto found = impl->files.closed.find(fd);
        if (found != impl->files.closed.end()) {
            impl->violate("descriptor " + std::to_string(fd) + " on " + found->second.host_path + " closed twice");
        }
        errno = EBADF;
    }
    return fault ? fail_with(*fault) : result;  // as on a real host, the number is free all the same
}

template <typename Call>
ssize_t read_some(int fd, Call&& make) {
    const Inside inside;
    const auto fault = counted(fd, "read");
    return fault ? fail_with(*fault) : make();
}

template <typename Call>
ssize_t write_some(int fd, std::size_t size, Call&& make) {
    const Inside inside;
    const auto fault = counted(fd, "write");
    if (fault && fault->short_by == 0) {
        return fail_with(*fault);
    }
    return make(fault ? size - std::min(size, fault->short_by) : size);
}

template <typename Call>
int on_path(std::string_view operation, const char* path, Call&& make) {
    const Inside inside;
    const PathCall call = path_call(path);
    if (!call.ours()) {
        return make(call.elsewhere);
    }
    if (const auto fault = counted(call, operation)) {
        return fail_with(*fault);
    }
    return make(call.real_path.c_str());
}

template <typename Call>
int take_away(const char* path, Call&& make) {
    const int result = on_path("unlink", path, make);
    if (result == 0 && path != nullptr && host_exists() && host_path_of(path) == LOCK_FILE) {
        const Inside inside;
        if (const auto impl = current_impl()) {
            const Entered entered(*impl);
            impl->emit({Event::Kind::pass_ended, impl->now(), {}, {}, {}});
        }
    }
    return result;
}

int move_file(int from_folder, const char* from, int to_folder, const char* to) {
    const Inside inside;
    const PathCall source = path_call(from);
    const PathCall destination = path_call(to);
    if (source.ours() || destination.ours()) {
        if (const auto fault = counted(source.ours() ? source : destination, "rename")) {
            return fail_with(*fault);
        }
    }
    return real::renameat(from_folder, source.ours() ? source.real_path.c_str() : source.elsewhere, to_folder,
                          destination.ours() ? destination.real_path.c_str() : destination.elsewhere);
}

mode_t mode_of(int flags, va_list arguments) {
    const bool makes = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return makes ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

bool is_control_device(Host::Impl& impl, int fd) {
    const auto found = impl.files.open.find(fd);
    return found != impl.files.open.end() && found->second.control;
}

bool may_be_ours(int fd) {
    return marked(fd);
}

void forget_descriptors() {
    for (auto& each : marks) {
        each.store(0);
    }
}

#define SIMHOST_INTERPOSE_OPEN(name, with_folder, folder)                        \
    SIMHOST_INTERPOSE(int, name, with_folder const char* path, int flags, ...) { \
        va_list arguments;                                                       \
        va_start(arguments, flags);                                              \
        const mode_t mode = mode_of(flags, arguments);                           \
        va_end(arguments);                                                       \
        return open_file(folder, path, flags, mode);                             \
    }
#define SIMHOST_NO_FOLDER
#define SIMHOST_FOLDER int folder,

SIMHOST_INTERPOSE_OPEN(open, SIMHOST_NO_FOLDER, AT_FDCWD)
SIMHOST_INTERPOSE_OPEN(open64, SIMHOST_NO_FOLDER, AT_FDCWD)
SIMHOST_INTERPOSE_OPEN(openat, SIMHOST_FOLDER, folder)
SIMHOST_INTERPOSE_OPEN(openat64, SIMHOST_FOLDER, folder)

// What fortified callers use when they give no mode.
SIMHOST_INTERPOSE(int, __open_2, const char* path, int flags) {
    return open_file(AT_FDCWD, path, flags, 0);
}
SIMHOST_INTERPOSE(int, __open64_2, const char* path, int flags) {
    return open_file(AT_FDCWD, path, flags, 0);
}
SIMHOST_INTERPOSE(int, __openat_2, int folder, const char* path, int flags) {
    return open_file(folder, path, flags, 0);
}
SIMHOST_INTERPOSE(int, __openat64_2, int folder, const char* path, int flags) {
    return open_file(folder, path, flags, 0);
}
SIMHOST_INTERPOSE(int, creat, const char* path, mode_t mode) {
    return open_file(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, mode);
}
SIMHOST_INTERPOSE(int, creat64, const char* path, mode_t mode) {
    return open_file(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, mode);
}

SIMHOST_INTERPOSE(FILE*, fopen, const char* path, const char* how) {
    return open_stream(path, how);
}
SIMHOST_INTERPOSE(FILE*, fopen64, const char* path, const char* how) {
    return open_stream(path, how);
}
SIMHOST_INTERPOSE(int, fclose, FILE* stream) {
    if (stream != nullptr && host_exists() && marked(fileno(stream))) {
        const Inside inside;
        if (const auto impl = current_impl()) {
            std::optional<Fault> fault;
            {
                const Entered entered(*impl);
                fault = forget(*impl, fileno(stream));
            }
            const int result = real::fclose(stream);
            return fault ? (fail_with(*fault), EOF) : result;
        }
    }
    return real::fclose(stream);
}
SIMHOST_INTERPOSE(DIR*, opendir, const char* path) {
    const Inside inside;
    const PathCall call = path_call(path);
    if (!call.ours()) {
        return real::opendir(call.elsewhere);
    }
    if (const auto fault = counted(call, "opendir")) {
        fail_with(*fault);
        return nullptr;
    }
    return real::opendir(call.real_path.c_str());
}

// A folder opened by descriptor and walked from there is closed here.
SIMHOST_INTERPOSE(int, closedir, DIR* folder) {
    if (folder != nullptr && host_exists() && marked(dirfd(folder))) {
        const Inside inside;
        if (const auto impl = current_impl()) {
            const Entered entered(*impl);
            forget(*impl, dirfd(folder));
        }
    }
    return real::closedir(folder);
}

SIMHOST_INTERPOSE(ssize_t, read, int fd, void* to, size_t size) {
    return read_some(fd, [&] { return real::read(fd, to, size); });
}
SIMHOST_INTERPOSE(ssize_t, write, int fd, const void* from, size_t size) {
    return write_some(fd, size, [&](size_t part) { return real::write(fd, from, part); });
}
SIMHOST_INTERPOSE(ssize_t, pread, int fd, void* to, size_t size, off_t at) {
    return read_some(fd, [&] { return real::pread(fd, to, size, at); });
}
SIMHOST_INTERPOSE(ssize_t, pread64, int fd, void* to, size_t size, off_t at) {
    return simhost_pread(fd, to, size, at);
}
SIMHOST_INTERPOSE(ssize_t, pwrite, int fd, const void* from, size_t size, off_t at) {
    return write_some(fd, size, [&](size_t part) { return real::pwrite(fd, from, part, at); });
}
SIMHOST_INTERPOSE(ssize_t, pwrite64, int fd, const void* from, size_t size, off_t at) {
    return simhost_pwrite(fd, from, size, at);
}
// On the host's files a formatted write is one write, as the C library makes it. The format is the caller's.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
SIMHOST_INTERPOSE(int, vdprintf, int fd, const char* format, va_list arguments) {
    if (!marked(fd)) {
        return real::vdprintf(fd, format, arguments);
    }
    const Inside inside;
    char* text = nullptr;
    const int length = vasprintf(&text, format, arguments);
    if (length < 0) {
        return -1;
    }
    const ssize_t written = simhost_write(fd, text, static_cast<std::size_t>(length));
    free(text);
    return static_cast<int>(written);
}
#pragma GCC diagnostic pop
SIMHOST_INTERPOSE(int, dprintf, int fd, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = simhost_vdprintf(fd, format, arguments);
    va_end(arguments);
    return result;
}
SIMHOST_INTERPOSE(int, close, int fd) {
    return close_file(fd);
}
SIMHOST_INTERPOSE(int, ftruncate, int fd, off_t size) {
    const Inside inside;
    const auto fault = counted(fd, "ftruncate");
    return fault ? fail_with(*fault) : real::ftruncate(fd, size);
}
SIMHOST_INTERPOSE(int, ftruncate64, int fd, off_t size) {
    return simhost_ftruncate(fd, size);
}
SIMHOST_INTERPOSE(int, truncate, const char* path, off_t size) {
    return on_path("ftruncate", path, [&](const char* at) { return real::truncate(at, size); });
}
SIMHOST_INTERPOSE(int, truncate64, const char* path, off_t size) {
    return simhost_truncate(path, size);
}

SIMHOST_INTERPOSE(int, stat, const char* path, struct stat* out) {
    return on_path("stat", path, [&](const char* at) { return real::fstatat(AT_FDCWD, at, out, 0); });
}
SIMHOST_INTERPOSE(int, stat64, const char* path, struct stat* out) {
    return simhost_stat(path, out);
}
SIMHOST_INTERPOSE(int, lstat, const char* path, struct stat* out) {
    return on_path("stat", path, [&](const char* at) { return real::fstatat(AT_FDCWD, at, out, AT_SYMLINK_NOFOLLOW); });
}
SIMHOST_INTERPOSE(int, lstat64, const char* path, struct stat* out) {
    return simhost_lstat(path, out);
}
SIMHOST_INTERPOSE(int, fstat, int fd, struct stat* out) {
    const Inside inside;
    const auto fault = counted(fd, "stat");
    return fault ? fail_with(*fault) : real::fstat(fd, out);
}
SIMHOST_INTERPOSE(int, fstat64, int fd, struct stat* out) {
    return simhost_fstat(fd, out);
}
// Not by way of fstat: that of a thread sanitizer calls this one.
SIMHOST_INTERPOSE(int, __fxstat, int version, int fd, struct stat* out) {
    const Inside inside;
    const auto fault = counted(fd, "stat");
    return fault ? fail_with(*fault) : real::fxstat(version, fd, out);
}
SIMHOST_INTERPOSE(int, fstatat, int folder, const char* path, struct stat* out, int flags) {
    return on_path("stat", path, [&](const char* at) { return real::fstatat(folder, at, out, flags); });
}
SIMHOST_INTERPOSE(int, fstatat64, int folder, const char* path, struct stat* out, int flags) {
    return simhost_fstatat(folder, path, out, flags);
}
SIMHOST_INTERPOSE(int, statx, int folder, const char* path, int flags, unsigned mask, struct statx* out) {
    return on_path("stat", path, [&](const char* at) { return real::statx(folder, at, flags, mask, out); });
}
SIMHOST_INTERPOSE(int, access, const char* path, int mode) {
    return on_path("access", path, [&](const char* at) { return real::faccessat(AT_FDCWD, at, mode, 0); });
}
SIMHOST_INTERPOSE(int, faccessat, int folder, const char* path, int mode, int flags) {
    return on_path("access", path, [&](const char* at) { return real::faccessat(folder, at, mode, flags); });
}
SIMHOST_INTERPOSE(int, mkdir, const char* path, mode_t mode) {
    return on_path("mkdir", path, [&](const char* at) { return real::mkdirat(AT_FDCWD, at, mode); });
}
SIMHOST_INTERPOSE(int, mkdirat, int folder, const char* path, mode_t mode) {
    return on_path("mkdir", path, [&](const char* at) { return real::mkdirat(folder, at, mode); });
}
SIMHOST_INTERPOSE(int, unlink, const char* path) {
    return take_away(path, [&](const char* at) { return real::unlinkat(AT_FDCWD, at, 0); });
}
SIMHOST_INTERPOSE(int, rmdir, const char* path) {
    return take_away(path, [&](const char* at) { return real::unlinkat(AT_FDCWD, at, AT_REMOVEDIR); });
}
SIMHOST_INTERPOSE(int, unlinkat, int folder, const char* path, int flags) {
    return take_away(path, [&](const char* at) { return real::unlinkat(folder, at, flags); });
}
SIMHOST_INTERPOSE(int, remove, const char* path) {
    return take_away(path, [&](const char* at) { return real::remove(at); });
}
SIMHOST_INTERPOSE(int, rename, const char* from, const char* to) {
    return move_file(AT_FDCWD, from, AT_FDCWD, to);
}
SIMHOST_INTERPOSE(int, renameat, int from_folder, const char* from, int to_folder, const char* to) {
    return move_file(from_folder, from, to_folder, to);
}

}  // namespace simhost
