// The Host's life, its watchers and the views of what there is.
#include "simhost/host.h"

#include <errno.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <stdexcept>

#include "simhost/allocations.h"
#include "simhost/descriptors.h"
#include "simhost/inside.h"
#include "simhost/model.h"
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

SessionView view_of(const Session& of) {
    SessionView view;
    view.oid = of.oid;
    view.isid = isid_text(of.isid);
    view.target_iqn = of.port->target->iqn;
    view.adapter = of.port->adapter->name;
    view.local_ip = of.local_ip;
    view.first_remote_ip = of.first_remote_ip;
    view.current_remote_ip = of.current_remote_ip;
    view.state = of.state;
    view.made_dynamic = of.made_dynamic;
    view.header_digest = of.header_digest;
    view.data_digest = of.data_digest;
    view.created_at = of.created_at;
    return view;
}

TargetView view_of(const Host::Impl& impl, const Target& of) {
    TargetView view;
    view.iqn = of.iqn;
    view.group = of.group->name;
    view.mode = of.group->mode;
    view.group_scoped = of.group_scoped;
    view.mode_changed = of.mode_changed;
    view.arrays = impl.arrays_up(of);
    view.total_arrays = static_cast<int>(of.group_scoped ? of.group->arrays.size() : impl.members(of).size());
    for (const Device* each : of.devices) {
        view.devices.push_back(each->eui);
    }
    for (const auto& port : of.ports) {
        view.adapters.push_back(port->adapter->name);
        for (const auto& nic : port->adapter->nics) {
            view.nics += nic->up ? 1 : 0;
        }
    }
    const PathCounts counts = impl.count(of);
    view.active_paths = counts.active;
    view.dead_paths = counts.dead;
    return view;
}

std::vector<StaticTargetView> entries_of(const Host::Impl& impl, bool discovered) {
    std::vector<const StaticEntry*> found;
    for (const auto& on : impl.adapters) {
        for (const auto& entry : on->entries) {
            if (entry->discovered == discovered) {
                found.push_back(entry.get());
            }
        }
    }
    std::sort(found.begin(), found.end(), [](const auto* a, const auto* b) { return a->oid < b->oid; });
    std::vector<StaticTargetView> views;
    for (const StaticEntry* each : found) {
        views.push_back(each->view);
    }
    return views;
}

}  // namespace

constinit thread_local int inside_depth __attribute__((tls_model("initial-exec"))) = 0;

SIMHOST_EARLY bool host_exists() {
    return __atomic_load_n(&current_host, __ATOMIC_ACQUIRE) != nullptr;
}

std::shared_ptr<Host::Impl> current_impl() {
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

// --- describing the site ------------------------------------------------------------------------------------

void Host::add_adapter(const std::string& name, const std::vector<std::string>& nic_ips) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->add_adapter(name, nic_ips);
}
void Host::add_group(const GroupSpec& spec) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->add_group(spec);
}
void Host::add_volume(const VolumeSpec& spec) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->add_volume(spec);
}
void Host::add_group_scoped_target(const GroupScopedTargetSpec& spec) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->add_group_scoped_target(spec);
}
void Host::add_static_target(const StaticTargetView& target) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->add_static_target(target);
}
void Host::connect(const std::string& iqn, int count) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->connect(iqn, count);
}
std::uint64_t Host::add_session(const SessionView& session) {
    const Entered entered(*impl_);
    impl_->run_due();
    return impl_->add_session(session);
}
void Host::claim_paths() {
    const Entered entered(*impl_);
    impl_->run_due();
    for (auto& [oid, session] : impl_->sessions) {
        impl_->claim(*session);
    }
}

// --- things that happen -------------------------------------------------------------------------------------

void Host::nic_down(const std::string& ip) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->nic_down(ip);
}
void Host::nic_up(const std::string& ip) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->nic_up(ip);
}
void Host::array_down(const std::string& group, const std::string& array) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->array_down(group, array);
}
void Host::array_up(const std::string& group, const std::string& array) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->array_up(group, array);
}
void Host::add_array(const std::string& group, const ArraySpec& array) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->add_array(group, array);
}
void Host::switch_mode(const std::string& group, GroupMode mode) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->switch_mode(impl_->group(group), mode);
}
void Host::drop_session(std::uint64_t oid) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->end_session(impl_->session(oid), Event::Kind::session_lost, "dropped");
}
void Host::drop_sessions(const std::string& iqn, int count) {
    const Entered entered(*impl_);
    impl_->run_due();
    const Target& of = impl_->target(iqn);
    std::vector<std::uint64_t> oids;
    for (const auto& [oid, session] : impl_->sessions) {
        if (session->port->target == &of) {
            oids.push_back(oid);
        }
    }
    for (; count > 0 && !oids.empty(); --count, oids.pop_back()) {
        impl_->end_session(impl_->session(oids.back()), Event::Kind::session_lost, "dropped");
    }
}
void Host::set_state(std::uint64_t oid, std::uint32_t state) {
    const Entered entered(*impl_);
    impl_->run_due();
    Session& of = impl_->session(oid);
    ++of.step;  // the course that its login took is over
    of.login_stuck = false;
    if (state == LOGGED_IN) {
        impl_->redirect(of);
        impl_->claim_later(of);
    }
    impl_->set_state(of, state);
    impl_->emit(Event::Kind::session_state, of.port, fmt::format("{} set to {}", isid_text(of.isid), state));
}
void Host::set_login_seconds(double seconds) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->login_seconds = seconds;
}
void Host::fail_logins(bool failing) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->logins_fail = failing;
    if (!failing) {
        impl_->resume_logins();
    }
}
void Host::set_digests(const std::string& adapter, bool on) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->adapter(adapter).digests = on;
}
void Host::set_discovery_outcome(const std::string& adapter, std::uint32_t host_status) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->adapter(adapter).discovery_outcome = host_status;
}
void Host::remove_volume(const std::string& eui) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->remove_volume(eui);
}

// --- looking ------------------------------------------------------------------------------------------------

std::vector<SessionView> Host::sessions() const {
    const Entered entered(*impl_);
    impl_->run_due();
    std::vector<SessionView> views;
    for (const auto& [oid, session] : impl_->sessions) {
        views.push_back(view_of(*session));
    }
    return views;
}
std::vector<SessionView> Host::sessions(const std::string& iqn) const {
    const Entered entered(*impl_);
    impl_->run_due();
    const Target& of = impl_->target(iqn);
    std::vector<SessionView> views;
    for (const auto& [oid, session] : impl_->sessions) {
        if (session->port->target == &of) {
            views.push_back(view_of(*session));
        }
    }
    return views;
}
std::vector<PathView> Host::paths(const std::string& eui) const {
    const Entered entered(*impl_);
    impl_->run_due();
    return impl_->paths(impl_->device(eui));
}
std::vector<StaticTargetView> Host::static_targets() const {
    const Entered entered(*impl_);
    impl_->run_due();
    return entries_of(*impl_, false);
}
std::vector<StaticTargetView> Host::discovered_targets() const {
    const Entered entered(*impl_);
    impl_->run_due();
    return entries_of(*impl_, true);
}
std::vector<TargetView> Host::targets() const {
    const Entered entered(*impl_);
    impl_->run_due();
    std::vector<TargetView> views;
    for (const auto& each : impl_->targets) {
        views.push_back(view_of(*impl_, *each));
    }
    return views;
}
TargetView Host::target(const std::string& iqn) const {
    const Entered entered(*impl_);
    impl_->run_due();
    return view_of(*impl_, impl_->target(iqn));
}
Totals Host::totals() const {
    const Entered entered(*impl_);
    impl_->run_due();
    Totals totals;
    totals.sessions = static_cast<int>(impl_->sessions.size());
    totals.volumes = static_cast<int>(impl_->devices.size());
    totals.targets = static_cast<int>(impl_->targets.size());
    totals.adapters = static_cast<int>(impl_->adapters.size());
    for (const auto& each : impl_->targets) {
        const PathCounts counts = impl_->count(*each);
        totals.active_paths += counts.active;
        totals.dead_paths += counts.dead;
    }
    for (const auto& each : impl_->adapters) {
        for (const auto& nic : each->nics) {
            totals.nics += nic->up ? 1 : 0;
        }
    }
    return totals;
}
std::string Host::iqn_of(const std::string& eui) const {
    const Entered entered(*impl_);
    impl_->run_due();
    return impl_->device(eui).target->iqn;
}

// --- faults, counters, scripts ------------------------------------------------------------------------------

void Host::fail(const Fault& fault) {
    const Entered entered(*impl_);
    impl_->run_due();
    fault.operation == "new" ? set_allocation_fault(fault) : impl_->faults.set(fault);
}
void Host::clear_faults() {
    const Entered entered(*impl_);
    impl_->run_due();
    clear_allocation_faults();
    impl_->faults.clear();
}
std::uint64_t Host::calls(const std::string& operation) const {
    const Entered entered(*impl_);
    impl_->run_due();
    return operation == "new" ? failable_allocations() : impl_->faults.calls(operation);
}
std::uint64_t Host::calls(const std::string& operation, const std::string& host_path) const {
    const Entered entered(*impl_);
    impl_->run_due();
    return impl_->faults.calls(operation, host_path);
}
std::uint64_t Host::faults_injected() const {
    const Entered entered(*impl_);
    impl_->run_due();
    return impl_->faults.injected() + failed_allocations();
}
std::vector<std::string> Host::operations_called() const {
    const Entered entered(*impl_);
    impl_->run_due();
    std::vector<std::string> names = impl_->faults.called();
    if (failable_allocations() > 0) {
        names.insert(std::upper_bound(names.begin(), names.end(), "new"), "new");
    }
    return names;
}
void Host::script_psp(unsigned long request, std::function<int(void* buffer, int result)> script) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->psp_scripts.erase(request);
    if (script) {
        impl_->psp_scripts[request] = std::move(script);
    }
}
void Host::script_ima(const std::string& operation,
                      std::function<std::uint32_t(void* out, std::uint32_t status)> script) {
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->ima_scripts.erase(operation);
    if (script) {
        impl_->ima_scripts[operation] = std::move(script);
    }
}

// --- accounting ---------------------------------------------------------------------------------------------

std::uint64_t Host::lists_held() const {
    const Entered entered(*impl_);
    impl_->run_due();
    return impl_->lists.size();
}
std::uint64_t Host::descriptors_held() const {
    const Entered entered(*impl_);
    impl_->run_due();
    return impl_->files.open.size();
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
    const Entered entered(*impl_);
    impl_->run_due();
    impl_->observers.push_back(std::move(observer));
}
std::vector<std::string> Host::violations() const {
    const Entered entered(*impl_);
    impl_->run_due();
    return impl_->violations;
}

}  // namespace simhost
