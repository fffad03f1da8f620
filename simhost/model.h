// The state of the simulated host and the operations on it. One recursive lock guards all of it; every
// function here but the clock's readers is called with that lock held. What only a caller of Host asks for is written
// as a member of Host, where its kind of operation is.
#pragma once

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "ima/ima.h"
#include "simhost/faults.h"
#include "simhost/host.h"
#include "simhost/host_files.h"
#include "simhost/inside.h"
#include "simhost/lock.h"

namespace simhost {

inline constexpr double RELOGIN_SECONDS = 15;
inline constexpr double NIC_LOGIN_SECONDS = 5;
inline constexpr std::uint16_t ISCSI_PORT = 3260;
inline constexpr std::uint32_t OWNER = 1;  // owner part of every object identifier
inline constexpr double NEVER = std::numeric_limits<double>::infinity();

struct Adapter;
struct Port;
struct Session;
struct Target;

struct Nic {
    std::string ip;
    std::uint64_t oid = 0;
    bool up = true;
};

// An entry of an adapter's static target list: configured, or made by dynamic discovery.
struct StaticEntry {
    StaticTargetView view;
    std::uint64_t oid = 0;
    Adapter* adapter = nullptr;
    Port* port = nullptr;  // null: a target that isn't of this site
    bool discovered = false;
};

struct Adapter {
    std::string name;
    std::uint64_t logical_oid = 0;
    std::uint64_t physical_oid = 0;
    std::vector<std::unique_ptr<Nic>> nics;
    std::vector<Port*> ports;
    std::vector<Session*> sessions;
    std::vector<std::unique_ptr<StaticEntry>> entries;
    bool digests = false;
    std::uint32_t discovery_outcome = 2;
    double discovery_known_at = 0;
};

struct Array {
    std::string name;
    std::vector<std::string> data_ips;
    bool up = true;
};

struct Group {
    std::string name;
    GroupMode mode = GroupMode::dynamic_discovery;
    std::string discovery_ip;
    bool switched_in_pass = false;  // its mode, since the pass's list of devices was read
    std::vector<std::unique_ptr<Array>> arrays;
    std::vector<Target*> targets;
};

struct Device {
    std::string eui;
    Target* target = nullptr;
    int lun = 0;  // number on its target, never used again
    std::vector<Array*> members;
    bool protocol_endpoint = false;
    bool supported = true;
};

// The paths that a session left behind: one for each device below `claimed_luns`.
struct DeadPaths {
    int channel = 0;
    int claimed_luns = 0;
    std::string local_ip;
    std::string remote_ip;
};

// A target on an adapter.
struct Port {
    Target* target = nullptr;
    Adapter* adapter = nullptr;
    std::uint64_t id = 0;            // never changes
    std::uint64_t oid = 0;           // 0 while the adapter doesn't know the target; a new one each time it comes
    int number = 0;                  // target number on the adapter, for path names
    std::uint32_t relogin_step = 0;  // outdates the timers of earlier losses
    std::vector<Session*> sessions;
    std::vector<DeadPaths> dead;
};

struct Target {
    std::string iqn;
    Group* group = nullptr;
    bool group_scoped = false;
    bool all_arrays_active = true;  // group-scoped: also those still to come
    std::vector<Array*> active;     // group-scoped: the arrays that serve it actively
    bool all_adapters = true;
    bool mode_changed = false;
    std::vector<Device*> devices;
    std::vector<std::unique_ptr<Port>> ports;
    int next_lun = 0;
    int logged_in = 0;  // sessions that are
};

struct Session {
    std::uint64_t oid = 0;
    std::uint64_t connection_oid = 0;
    std::array<std::uint8_t, 6> isid{};
    Port* port = nullptr;
    std::string local_ip;
    std::string first_remote_ip;
    std::string current_remote_ip;
    Array* array = nullptr;  // that the current address belongs to, if any
    std::uint32_t state = XPT_WAIT;
    bool made_dynamic = true;
    bool header_digest = false;
    bool data_digest = false;
    bool login_stuck = false;  // waits in IN_LOGIN for what hinders it to go
    double created_at = 0;
    std::uint32_t step = 0;  // outdates the timers of an earlier course of the login
    int channel = 0;
    int claimed_luns = 0;  // devices with a lower number have a path over this session
};

struct PathCounts {
    int active = 0;
    int standby = 0;  // of a group-scoped target: to an array that doesn't serve it actively
    int dead = 0;
    int total() const { return active + standby + dead; }
};

// Objects by their sequence number.
struct NumberedObject {
    std::uint32_t type = 0;
    void* object = nullptr;
};

struct Timer {
    enum class Kind { login_half, login, claim, relogin, nic_login, action };
    Kind kind = Kind::action;
    std::uint64_t id = 0;  // session, port or NIC
    std::uint32_t step = 0;
    std::string name;
    std::function<void(Host&)> action;
};

// The name of a hazard that there is.
struct KnownHazard {
    std::string_view name;
    consteval KnownHazard(const char* text) : name(text) {  // NOLINT(google-explicit-constructor)
        if (!is_hazard(name)) {
            throw "no such hazard";
        }
    }
};

struct Host::Impl {
    explicit Impl(Host& host, HostOptions host_options);
    ~Impl();

    // host.cpp
    void emit(Event event);
    void tell();  // the observers, what was emitted since; they may change the model
    void emit(Event::Kind kind, const Port* port, std::string text);
    std::optional<Fault> hit(std::string_view operation, std::string_view path = {});

    // site.cpp: what there is
    Adapter& adapter(const std::string& name);
    Group& group(const std::string& name);
    Array& array(Group& in, const std::string& name);
    Target& target(const std::string& iqn);
    Device& device(const std::string& eui);
    Session& session(std::uint64_t oid);
    Nic& nic(const std::string& ip, Adapter** of = nullptr);
    std::uint64_t add_object(std::uint32_t type, void* object);

    // targets.cpp: targets on adapters and their entries
    Target& make_target(const std::string& iqn, Group& in, const std::vector<std::string>& adapters);
    Port& make_port(Target& of, Adapter& on);
    Port* port_of(const Target& of, const Adapter& on) const;
    void refresh_port(Port& port);
    StaticEntry& make_entry(Adapter& on, const StaticTargetView& view, bool discovered);
    void make_static_entries(Port& port);
    void make_discovered_entry(Port& port);
    StaticEntry* discovered_entry(const Port& port) const;
    bool entry_in_use(const StaticEntry& entry) const;
    void refresh_mode_changed(Target& of);
    bool listed(const Port& port) const;  // by the PSP among the adapters that see the target
    std::vector<Array*> members(const Target& of) const;
    int arrays_up(const Target& of) const;

    // sessions.cpp
    Nic* least_used_nic(const Port& port) const;
    std::string least_used_address(const Target& of) const;
    Array* array_of(const Group& in, std::string_view ip) const;
    Session& make_session(Port& port, const std::string& local_ip, bool dynamic, const std::string& remote_ip);
    Session* make_session_like(const Session& model);
    Session* make_session_on(Port& port, Nic* nic);  // null: nothing to log in to, or no NIC
    void set_state(Session& of, std::uint32_t state);
    void begin_login(Session& of);
    void log_in(Session& of, bool at_once);
    bool redirect(Session& of);
    void resume_logins();
    void end_session(Session& of, Event::Kind how, const std::string& why);

    // discovery.cpp
    void rediscover(Adapter& on);
    void remove_entry(StaticEntry& entry, bool by_manager);
    void arm_relogin(Port& port);
    void relogin(Port& port);
    void nic_login(Adapter& on, Nic& nic);
    bool room(const Port& port) const;

    // device_paths.cpp
    void claim(Session& of);
    void claim_later(const Session& of);  // after the time that the host takes by itself
    void bury(Session& of);               // its paths are dead from here on
    void delete_dead_paths(Adapter& on);
    bool active(const Session& of) const;
    PathCounts count(const Device& of) const;
    PathCounts count(const Target& of) const;
    std::vector<PathView> paths(const Device& of) const;

    // invariants.cpp
    void violate(std::string text);
    bool excuse(KnownHazard hazard);
    bool in_pass() const;
    void removing_static(const Target& of, bool mode_changed, const std::string& isid, bool by_entry);
    void after_removal(const Target& of, const Port* from, const std::string& local_ip, const std::string& what);
    void after_addition(const Target& to);
    void pass_begins();

    // clock.cpp
    double now() const;  // also without the lock
    void run_due();
    void advance_to(double moment);
    void schedule(double moment, Timer timer);
    void run(Timer timer);
    double factor() const;

    Host& owner;
    HostOptions options;
    HostFiles files;
    mutable HostMutex mutex;

    // The site, in order of creation.
    std::vector<std::unique_ptr<Adapter>> adapters;
    std::vector<std::unique_ptr<Group>> groups;
    std::vector<std::unique_ptr<Target>> targets;
    std::vector<std::unique_ptr<Device>> devices;
    std::map<std::uint64_t, std::unique_ptr<Session>> sessions;
    std::unordered_map<std::string, Target*> targets_by_iqn;
    std::unordered_map<std::uint64_t, NumberedObject> objects;
    std::unordered_map<std::uint64_t, Port*> ports_by_id;
    std::uint64_t next_number = 1;
    std::uint32_t next_isid = 0x010001;
    double login_seconds = 0;
    bool logins_fail = false;

    // Clock. In instant mode `instant_now` is the time; else it follows the steady clock.
    std::atomic<double> instant_now{0};
    std::int64_t real_start_ns = 0;
    std::multimap<double, Timer> timers;
    bool started = false;  // something has run on the host: its description is over
    int callbacks = 0;     // observers, scripts and actions that run right now, on the lock's holder
    bool running_timers = false;
    std::atomic<double> due_now{-1};  // scaled and real: moment of the timer that runs
    double horizon = NEVER;
    std::uint64_t horizon_generation = 0;
    std::atomic<int> joins{0};  // threads that wait for the end of another one
    struct Sleeper {
        double until = 0;
        std::uint64_t blocked_at = 0;  // generation of the horizon that it was seen to wait for
    };
    std::vector<Sleeper*> sleepers;
    double slept = 0;
    std::uint64_t sleeps = 0;
    bool gone = false;  // the Host is; waits end

    // Watching.
    FaultBook faults;
    std::map<unsigned long, std::function<int(void*, int)>> psp_scripts;
    std::map<std::string, std::function<std::uint32_t(void*, std::uint32_t)>, std::less<>> ima_scripts;
    std::vector<std::function<void(const Event&)>> observers;
    std::deque<Event> untold;
    bool telling = false;
    std::vector<std::string> violations;
    std::map<std::string, std::uint64_t, std::less<>> let_pass;  // hazards that are, and how often
    std::vector<std::string_view> not_excused;  // hazards that would have excused the violation at hand
    std::unordered_set<const void*> lists;
    bool pass_disturbed = false;   // a fault or scripted answer since the PSP's last request 0
    bool count_disturbed = false;  // a fault of those calls by which all sessions of the host are counted
    int added_group_scoped = 0;    // sessions added to group-scoped targets since then
};

// While one lives the calling thread runs code that isn't ours, with the lock held: no time passes for it.
class Callback {
public:
    explicit Callback(Host::Impl& impl) : impl_(impl) { ++impl_.callbacks; }
    ~Callback() { --impl_.callbacks; }
    Callback(const Callback&) = delete;
    Callback& operator=(const Callback&) = delete;

private:
    Host::Impl& impl_;
};

// The lock over one call into the host. What the call emitted is told at its end, with the model at rest.
class Entered {
public:
    explicit Entered(Host::Impl& impl) : impl_(impl), lock_(impl.mutex) {}
    ~Entered() {
        const int error = errno;  // the call's answer
        impl_.tell();
        errno = error;
    }
    Entered(const Entered&) = delete;
    Entered& operator=(const Entered&) = delete;

protected:
    Inside inside_;
    Host::Impl& impl_;
    std::lock_guard<HostMutex> lock_;
};

// A call of one of the Host's members: what is due comes first.
class Called : public Entered {
public:
    explicit Called(Host::Impl& impl) : Entered(impl) { impl.run_due(); }
    Host::Impl* operator->() const { return &impl_; }
    Host::Impl& operator*() const { return impl_; }
};

// The Impl of the Host there is, or none.
std::shared_ptr<Host::Impl> current_impl();
bool host_exists();  // without a lock
void settle_threads();
void set_current(Host* host, std::shared_ptr<Host::Impl> impl);

std::string isid_text(const std::array<std::uint8_t, 6>& isid);
std::string text_of(double seconds);
bool is_ipv4(const std::string& text);
std::string path_name(const Port& port, int channel, int lun);

template <typename Item>
void erase_item(std::vector<Item*>& from, const Item* item) {
    for (std::size_t i = 0; i < from.size(); ++i) {
        if (from[i] == item) {
            from.erase(from.begin() + static_cast<std::ptrdiff_t>(i));
            return;
        }
    }
}

}  // namespace simhost
