// The Host's life, its watchers, faults and files.
#include "simhost/host.h"

#include <errno.h>
#include <fmt/format.h>
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <stdexcept>

#include "simhost/allocations.h"
#include "simhost/descriptors.h"
#include "simhost/inside.h"
#include "simhost/model.h"
#include "simhost/operations.h"
#include "simhost/real.h"

namespace simhost {

namespace {

// The pointer itself is never destroyed: calls may come after this library's destructors ran.
union Holder {
    std::shared_ptr<Host::Impl> impl;
    constexpr Holder() : impl() {}
    ~Holder() {}
};
constinit Holder holder;
constinit Seen<std::mutex> holder_mutex;
constinit Host* current_host = nullptr;  // read without the lock, by atomic loads

// Of the thread that forks: what others do at a fork, such as a sanitizer, finds no host.
constinit thread_local bool in_fork __attribute__((tls_model("initial-exec"))) = false;

}  // namespace

constinit thread_local int inside_depth __attribute__((tls_model("initial-exec"))) = 0;

SIMHOST_EARLY bool host_exists() {
    return __atomic_load_n(&current_host, __ATOMIC_ACQUIRE) != nullptr;
}

std::shared_ptr<Host::Impl> current_impl() {
    if (in_fork) {
        return nullptr;
    }
    const std::lock_guard lock(holder_mutex);
    return holder.impl;
}

void set_current(Host* host, std::shared_ptr<Host::Impl> impl) {
    const std::lock_guard lock(holder_mutex);
    if (host != nullptr && holder.impl != nullptr) {
        throw std::logic_error("simhost: there is a Host already");
    }
    holder.impl.swap(impl);
    __atomic_store_n(&current_host, host, __ATOMIC_RELEASE);
}

namespace {

constinit Host::Impl* forking = nullptr;  // whose lock the fork holds

// A fork finds the model at rest. In the child its lock is made anew: a recursive mutex isn't its owner's any more.
void rest_before_fork() {
    const auto impl = current_impl();
    if (impl != nullptr) {
        impl->mutex.lock();
    }
    holder_mutex.lock();
    forking = impl.get();
    in_fork = true;
}

void go_on_in_parent() {
    in_fork = false;
    holder_mutex.unlock();
    if (forking != nullptr) {
        forking->mutex.unlock();
    }
}

void go_on_in_child() {
    in_fork = false;
    holder_mutex.unlock();
    if (forking != nullptr) {
        new (&forking->mutex) HostMutex;
    }
}

}  // namespace

std::string text_of(double seconds) {
    return fmt::format("{:g}", seconds);
}

Host::Impl::Impl(Host& host, HostOptions host_options)
    : owner(host), options(std::move(host_options)), files(options.root, options.remove_root) {
    login_seconds = options.login_seconds;
    real_start_ns =
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count();
    if (options.clock == ClockMode::scaled && !(options.factor > 0)) {
        throw std::invalid_argument("simhost: the clock's factor isn't above 0");
    }
}

// Lists that were never given back stay allocated, for a leak checker to find.
Host::Impl::~Impl() = default;

void Host::Impl::emit(Event event) {
    if (!observers.empty()) {
        untold.push_back(std::move(event));
    }
}

void Host::Impl::tell() {
    if (telling || untold.empty()) {
        return;
    }
    const Callback callback(*this);
    telling = true;
    while (!untold.empty()) {
        const Event event = std::move(untold.front());
        untold.pop_front();
        for (std::size_t i = 0; i < observers.size(); ++i) {
            const auto observer = observers[i];  // an observer may add another
            observer(event);
        }
    }
    telling = false;
}

void Host::Impl::emit(Event::Kind kind, const Port* port, std::string text) {
    if (!observers.empty()) {
        emit({kind, now(), port->target->iqn, port->adapter->name, std::move(text)});
    }
}

std::optional<Fault> Host::Impl::hit(std::string_view operation, std::string_view path) {
    auto fault = faults.hit(operation, path);
    if (fault) {
        pass_disturbed = true;
        count_disturbed = count_disturbed || operation == "IMA_GetLhbaOidList" || operation == "IMA_GetSessionOidList";
        std::string text(operation);
        if (!path.empty()) {
            text.append(" ").append(path);
        }
        emit({Event::Kind::fault_injected, now(), {}, {}, std::move(text)});
    }
    return fault;
}

Host::Host(HostOptions options) {
    const Inside inside;
    [[maybe_unused]] static const int at_fork = pthread_atfork(rest_before_fork, go_on_in_parent, go_on_in_child);
    settle_threads();
    reset_allocations();
    impl_ = std::make_shared<Impl>(*this, std::move(options));
    set_current(this, impl_);
}

Host::~Host() {
    const Inside inside;
    count_allocations(false);
    set_current(nullptr, nullptr);
    const std::lock_guard lock(impl_->mutex);
    impl_->gone = true;
    impl_->untold.clear();
    impl_->timers.clear();
    impl_->observers.clear();
    impl_->psp_scripts.clear();
    impl_->ima_scripts.clear();
    forget_descriptors();
}

Host* Host::current() {
    return __atomic_load_n(&current_host, __ATOMIC_ACQUIRE);
}

// --- faults, counters, scripts ------------------------------------------------------------------------------

void Host::fail(const Fault& fault) {
    if (fault.operation.empty()) {
        return;
    }
    if (!is_operation(fault.operation)) {
        throw std::invalid_argument("simhost: no such operation: '" + fault.operation + "'");
    }
    const Called model(*impl_);
    fault.operation == "new" ? set_allocation_fault(fault) : impl_->faults.set(fault);
}
void Host::clear_faults() {
    const Called model(*impl_);
    clear_allocation_faults();
    impl_->faults.clear();
}
std::uint64_t Host::calls(const std::string& operation, const std::string& path_contains) const {
    const Called model(*impl_);
    return operation == "new" ? failable_allocations() : impl_->faults.calls(operation, path_contains);
}
std::uint64_t Host::faults_injected() const {
    const Called model(*impl_);
    return impl_->faults.injected() + failed_allocations();
}
std::vector<std::string> Host::operations_called() const {
    const Called model(*impl_);
    std::vector<std::string> names = impl_->faults.called();
    if (failable_allocations() > 0) {
        names.insert(std::upper_bound(names.begin(), names.end(), "new"), "new");
    }
    return names;
}
void Host::script_psp(unsigned long request, std::function<int(void* buffer, int result)> script) {
    const Called model(*impl_);
    model->psp_scripts.erase(request);
    if (script) {
        impl_->psp_scripts[request] = std::move(script);
    }
}
void Host::script_ima(const std::string& operation,
                      std::function<std::uint32_t(void* out, std::uint32_t status)> script) {
    const Called model(*impl_);
    model->ima_scripts.erase(operation);
    if (script) {
        impl_->ima_scripts[operation] = std::move(script);
    }
}

// --- files --------------------------------------------------------------------------------------------------

std::string Host::root() const {
    return impl_->files.root();
}
std::string Host::path(std::string_view host_path) const {
    return impl_->files.real_path(host_path);
}

void Host::write_file(std::string_view host_path, std::string_view text) {
    const Inside inside;
    const std::string file = path(host_path);
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    const int fd = real::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    bool written = fd >= 0;
    for (std::size_t at = 0; written && at < text.size();) {
        const ssize_t count = real::write(fd, text.data() + at, text.size() - at);
        written = count > 0;
        at += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
    if (fd >= 0) {
        real::close(fd);
    }
    if (!written) {
        throw std::runtime_error("simhost: cannot write " + file);
    }
}

std::string Host::read_file(std::string_view host_path) const {
    const Inside inside;
    const int fd = real::open(path(host_path).c_str(), O_RDONLY | O_CLOEXEC);
    std::string text;
    if (fd >= 0) {
        char part[65536];
        for (ssize_t count = 0; (count = real::read(fd, part, sizeof part)) > 0;) {
            text.append(part, static_cast<std::size_t>(count));
        }
        real::close(fd);
    }
    return text;
}

bool Host::exists(std::string_view host_path) const {
    const Inside inside;
    return real::faccessat(AT_FDCWD, path(host_path).c_str(), 0, 0) == 0;
}

void Host::remove_file(std::string_view host_path) {
    const Inside inside;
    std::error_code ignored;  // it may be gone already
    std::filesystem::remove_all(path(host_path), ignored);
}

std::string Host::log() const {
    return read_file("/var/log/ostrel/oxr.log");
}

// --- watching -----------------------------------------------------------------------------------------------

void Host::observe(std::function<void(const Event&)> observer) {
    const Called model(*impl_);
    model->observers.push_back(std::move(observer));
}
std::vector<std::string> Host::violations() const {
    const Called model(*impl_);
    return impl_->violations;
}

}  // namespace simhost
