// The simulated host: adapters, NICs, array groups, volumes, sessions, paths, files and a clock, behind the
// platform's own boundary. libvmkima.so, built from this folder, exports the IMA operations, answers the PSP
// control device and stands ahead of the C library for files, sleeping, time, thread creation and mutex
// set-up, so that the connection manager's own objects run on it unchanged.
//
// There is at most one Host in a process. While none exists every interposed call goes on to the C library, but for
// its trees (/etc/ostrel and the others), which are empty then, whatever the machine has there, and every IMA operation
// answers IMA_ERROR_UNEXPECTED_OS_ERROR. All members may be called from any thread;
// one lock inside guards the model, and observers, scripts and timed actions run with it held, on the thread
// that caused them (they may call Host members; a sleep inside one of them passes no time). Observers are told
// at the end of the call that caused the events, before it returns. What they share with other threads must be
// guarded by calls into the Host, not by a lock of their own: a thread sanitizer doesn't see locks that are taken
// on a sleeping thread.
//
// A fresh host has the folders /etc/ostrel, /var/log/ostrel, /vmfs/volumes and the control device, and no file
// else. What an iSCSI initiator does by itself, the host does too:
// - a session that was lost (by anything but IMA_VMW_RemoveSession) is tried again after 15 seconds: in a
//   dynamic group when its target has no session left on that adapter, one over each NIC that is up; in a
//   static group when its static target entry has none left. Sessions taken away by IMA_VMW_RemoveSession
//   come back this way only when their target has none left on the whole host.
// - over a NIC that comes up it logs in to every dynamic target of the adapter after 5 seconds.
// - an adapter, a volume or a group-scoped target that is added once the host runs (after the first sleep,
//   advance(), IMA call or PSP request) is logged in to after 15 seconds.
// - a rediscovery makes sessions only while its outcome is 2 (done).
// Each of these stops at MAX_SESSIONS or MAX_PATHS.
#pragma once

#include <sys/types.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "simhost/limits.h"

namespace simhost {

// instant: a sleep only moves the clock (several threads may sleep; each moves it). scaled: a sleep lasts its
// time divided by `factor`. real: as it says.
enum class ClockMode { instant, scaled, real };

// The hazards of the prescribed procedures. One that is let pass excuses exactly its case; a pass begins here with
// request 0 of the PSP.
inline constexpr std::string_view HAZARDS[] = {
    // a last logged-in session removed while a session of the target that isn't logged in stays at another address
    "working session removed first",
    // a last logged-in session removed while one of the target's adapters has no session of it, or after a fault or a
    // scripted answer in the same pass: the inventory failed
    "emptied adapter", "stale counts",
    // more than MAX_SESSIONS by no more than the sessions added to group-scoped targets in the same pass
    "group-scoped count",
    // more than MAX_SESSIONS after IMA_GetLhbaOidList or IMA_GetSessionOidList failed in the same pass: sessions that
    // can't be listed aren't counted
    "failed host count",
    // a static session removed outside a polling pass (no lock file), as a renewal does
    "static renewal",
    // a last logged-in session removed outside a polling pass while a session of the target that isn't logged in stays
    // at another local address: a digest change renews what is logged in
    "digest change",
    // a static session removed after its group's mode was switched in the same pass: the pass goes by the mode that it
    // read at its start
    "switch in mid-pass",
    // known names that break no invariant and excuse nothing
    "repeated switch", "stuck logins", "nics by paths", "active paths protected", "two volumes on a target"};

constexpr bool is_hazard(std::string_view name) {
    return std::find(std::begin(HAZARDS), std::end(HAZARDS), name) != std::end(HAZARDS);
}

enum class GroupMode { dynamic_discovery, static_discovery };

// Session states as IMA reports them for a connection.
enum SessionState : std::uint32_t {
    FREE = 0,
    XPT_WAIT = 1,
    XPT_UP = 2,
    IN_LOGIN = 3,
    LOGGED_IN = 4,
    IN_LOGOUT = 5,
    LOGOUT_REQUESTED = 6,
    CLEANUP_WAIT = 7,
};

struct HostOptions {
    std::string root;  // folder that stands for "/"; empty: a new one under the temporary folder
    ClockMode clock = ClockMode::instant;
    double factor = 1;                     // scaled: simulated seconds per second
    std::int64_t start_time = 1700000000;  // simulated time of day at 0 seconds, seconds since the epoch
    double login_seconds = 0;              // a new session is LOGGED_IN after this time (half of it in XPT_WAIT)
    double claim_seconds = 30;     // the host claims a logged-in session's path by itself after this time; < 0: never
    double discovery_seconds = 0;  // a rediscovery's outcome is "in progress, no status" for this long
    bool remove_root = true;       // delete a root folder of our own making with the Host
};

struct ArraySpec {
    std::string name;
    std::vector<std::string> data_ips;  // IPv4
};

struct GroupSpec {
    std::string name;
    GroupMode mode = GroupMode::dynamic_discovery;
    std::string discovery_ip;  // first remote address of every dynamic session
    std::vector<ArraySpec> arrays;
};

struct VolumeSpec {
    std::string eui;  // at most 40 characters
    std::string iqn;  // empty: derived from eui; ignored behind a group-scoped target
    std::string group;
    std::vector<std::string> arrays;    // member arrays; empty: all of the group
    std::vector<std::string> adapters;  // empty: all of the host
    std::string group_scoped_target;    // IQN of the target that serves it; empty: a target of its own
    bool protocol_endpoint = false;     // isVvolPE
    bool supported = true;              // false: num_of_mem_array is 0
};

struct GroupScopedTargetSpec {
    std::string iqn;
    std::string group;
    std::vector<std::string> active_arrays;  // empty: all of the group
    std::vector<std::string> adapters;       // empty: all of the host
};

// One session as it stands.
struct SessionView {
    std::uint64_t oid = 0;  // object sequence number
    std::string isid;       // "00:02:3d:01:00:1f"
    std::string target_iqn;
    std::string adapter;
    std::string local_ip;
    std::string first_remote_ip;
    std::string current_remote_ip;
    std::uint32_t state = LOGGED_IN;
    bool made_dynamic = true;  // made by dynamic discovery (or from such a session)
    bool header_digest = false;
    bool data_digest = false;
    double created_at = 0;  // seconds
};

struct NicView {
    std::string ip;
    std::string adapter;
    bool up = true;
};

struct ArrayView {
    std::string name;
    bool up = true;
};

struct GroupView {
    std::string name;
    GroupMode mode = GroupMode::dynamic_discovery;
    std::vector<ArrayView> arrays;
};

struct VolumeView {
    std::string eui;
    bool supported = true;  // by the connection manager; a protocol endpoint always is
    int arrays = 0;         // member arrays up
    int total_arrays = 0;   // member arrays
};

struct PathView {
    std::string device_eui;
    std::string path_name;
    std::string adapter;
    std::string local_ip;
    std::string remote_ip;
    bool active = false;  // false: dead, its session is gone
};

struct StaticTargetView {
    std::string target_iqn;
    std::string adapter;
    std::string portal_ip;
    std::uint16_t port = 3260;
    bool chap = false;
    bool by_host_name = false;
};

struct TargetView {
    std::string iqn;
    std::string group;
    GroupMode mode = GroupMode::dynamic_discovery;
    bool group_scoped = false;
    bool mode_changed = false;
    int nics = 0;    // NICs up on the target's adapters
    int arrays = 0;  // member arrays up; for a group-scoped target the active ones
    int total_arrays = 0;
    std::vector<std::string> devices;  // euis
    std::vector<std::string> adapters;
    int active_paths = 0;
    int dead_paths = 0;
};

struct Totals {
    int sessions = 0;
    int active_paths = 0;
    int dead_paths = 0;
    int volumes = 0;
    int targets = 0;
    int adapters = 0;
    int nics = 0;
};

// What happened on the host, in order. `target` and `adapter` are empty where they don't apply.
struct Event {
    enum class Kind {
        session_added,
        session_removed,  // by IMA_VMW_RemoveSession
        session_lost,     // by a timed action, a lost NIC or array, a removed static target or a mode switch
        session_state,
        path_claimed,
        path_died,
        dead_path_deleted,
        adapter_rescanned,
        dead_paths_requested,
        adapter_rediscovered,
        static_target_removed,
        mode_switched,
        pass_begun,   // the lock file was created
        pass_ended,   // the lock file was removed
        sleep_begun,  // a wait of 10 seconds or more; text: the seconds
        action,       // a timed action ran; text: what it was named
        fault_injected,
        violation,
    };
    Kind kind;
    double time = 0;  // seconds since the start
    std::string target;
    std::string adapter;
    std::string text;  // ISID, path name, addresses: for a person
};

// A fault for one of the operations (operations.h).
struct Fault {
    std::string operation;
    std::uint64_t nth = 1;    // the call that fails, counted from the moment the fault is set
    bool persistent = false;  // that call and every later one
    // The answer: IMA: the status. psp.N: a positive PSP status, or with `error` set -1 and that errno; with
    // status 1 (partial success) the request is carried out all the same.
    // Files, threads, mutexes: `error` as errno or result (0: EIO, threads EAGAIN). "new": null. "write" with
    // `short_by` > 0: that many bytes fewer are written and the call succeeds.
    std::uint32_t status = 0x80000004;
    int error = 0;
    std::size_t short_by = 0;
    std::string path_contains;  // files: only paths that contain this
};

class Host {
public:
    explicit Host(HostOptions options = {});
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    static Host* current();  // null when there is none

    // --- describing the site -------------------------------------------------------------------------
    // A name that is unknown or already taken, or an address that isn't IPv4, throws std::invalid_argument.
    void add_adapter(const std::string& name, const std::vector<std::string>& nic_ips);
    void add_group(const GroupSpec& spec);
    void add_volume(const VolumeSpec& spec);
    void add_group_scoped_target(const GroupScopedTargetSpec& spec);
    void add_static_target(const StaticTargetView& target);  // an entry of an adapter, whatever the mode

    // Makes `count` logged-in sessions of the kind the group's mode calls for, spread as the host would, with
    // their paths claimed. In a static group first adds the static target entries (one per adapter and data
    // address) and then one session per entry when count is 0.
    void connect(const std::string& iqn, int count);
    // One session exactly as described (missing fields filled as the host would); returns its OID. No path
    // is claimed; claim_paths() does that.
    std::uint64_t add_session(const SessionView& session);
    void claim_paths();  // a path for every logged-in session, now

    // --- things that happen --------------------------------------------------------------------------
    void nic_down(const std::string& ip);  // sessions over it go, their paths die
    void nic_up(const std::string& ip);
    void array_down(const std::string& group, const std::string& array);
    void array_up(const std::string& group, const std::string& array);
    void add_array(const std::string& group, const ArraySpec& array);  // becomes a member of every volume of the group
    void switch_mode(const std::string& group, GroupMode mode);
    void drop_session(std::uint64_t oid);                   // the session ends without our doing
    void drop_sessions(const std::string& iqn, int count);  // the newest ones first
    void set_state(std::uint64_t oid, std::uint32_t state);
    void set_login_seconds(double seconds);
    void fail_logins(bool failing);                         // new sessions stay in IN_LOGIN while set
    void set_digests(const std::string& adapter, bool on);  // the adapter's setting for sessions to come
    void set_discovery_outcome(const std::string& adapter,
                               std::uint32_t host_status);  // as IMA_VMW_GetDiscoveryStatus answers
    void remove_volume(const std::string& eui);  // the last one of an ordinary target takes the target with it

    // --- looking --------------------------------------------------------------------------------------
    std::vector<SessionView> sessions() const;
    std::vector<SessionView> sessions(const std::string& iqn) const;
    std::vector<NicView> nics() const;  // by adapter, in order of their creation
    std::vector<GroupView> groups() const;
    VolumeView volume(const std::string& eui) const;
    std::vector<PathView> paths(const std::string& eui) const;
    std::vector<StaticTargetView> static_targets() const;  // configured ones, in order of their creation
    // Entries that dynamic discovery made, (IQN, discovery address, 3260) per adapter and target. IMA lists
    // them among the static targets; removing one ends the target's dynamic sessions on its adapter.
    std::vector<StaticTargetView> discovered_targets() const;
    std::vector<TargetView> targets() const;
    TargetView target(const std::string& iqn) const;
    Totals totals() const;
    std::string iqn_of(const std::string& eui) const;

    // --- time -----------------------------------------------------------------------------------------
    double now() const;            // simulated seconds since the start
    void advance(double seconds);  // moves on, running what is due, whatever the horizon
    void at(double seconds, const std::string& name, std::function<void(Host&)> action);  // a timed action
    double slept() const;  // simulated seconds of all sleeps of the process so far
    std::uint64_t sleeps() const;
    // Instant clock with threads: the clock never passes the horizon; a thread whose sleep would pass it
    // waits for a real signal; while a thread is joined, a sleep that no signal is to end goes on. wait_for_horizon
    // blocks the caller until some thread waits so.
    void set_horizon(double seconds);
    bool wait_for_horizon(double real_seconds);  // false: not reached within real_seconds

    // --- faults, counters, scripts --------------------------------------------------------------------
    void fail(const Fault& fault);  // an unknown operation throws std::invalid_argument, an empty one is no fault
    void clear_faults();
    std::uint64_t calls(const std::string& operation, const std::string& path_contains = "") const;
    std::uint64_t faults_injected() const;
    std::vector<std::string> operations_called() const;
    // Scripted answers. A PSP script gets the buffer as the model filled it and returns the ioctl result
    // (< 0: errno = -result); an IMA script gets the record or the address of the list pointer as filled by
    // the model and the model's status, and returns the status. An empty function takes the script away.
    void script_psp(unsigned long request, std::function<int(void* buffer, int result)> script);
    void script_ima(const std::string& operation, std::function<std::uint32_t(void* out, std::uint32_t status)> script);

    // --- accounting -----------------------------------------------------------------------------------
    std::uint64_t lists_held() const;        // IMA lists handed out and not freed
    std::uint64_t descriptors_held() const;  // descriptors on the control device or below the root, still open
    std::int64_t blocks_held() const;        // blocks of operator new by the connection manager, still allocated
    // Counting of allocations and faults of "new"; off at first, because test code allocates on the same
    // threads. Executables that link simhost_allocation are counted: every operator new of theirs (and of
    // the libraries they load) but the host's own; faults hit the nothrow forms only.
    void count_allocations(bool on);
    std::uint64_t allocations() const;  // calls of operator new by the connection manager
    std::uint64_t allocated_bytes() const;

    // --- files ----------------------------------------------------------------------------------------
    std::string root() const;
    std::string path(std::string_view host_path) const;                  // where "/etc/ostrel/oxr.conf" really is
    void write_file(std::string_view host_path, std::string_view text);  // makes folders as needed
    std::string read_file(std::string_view host_path) const;             // empty when absent
    bool exists(std::string_view host_path) const;
    void remove_file(std::string_view host_path);
    std::string log() const;  // /var/log/ostrel/oxr.log

    // --- watching -------------------------------------------------------------------------------------
    void observe(std::function<void(const Event&)> observer);
    // Invariants of invariants.cpp broken so far, each with its moment; also a list that is freed twice or isn't ours,
    // and a descriptor that is closed twice.
    std::vector<std::string> violations() const;
    // Lets a hazard pass, where a test provokes one. An unknown name throws std::invalid_argument.
    void allow(const std::string& hazard);
    std::map<std::string, std::uint64_t, std::less<>> let_pass() const;  // those hazards, and how often each was

    struct Impl;
    Impl& impl() { return *impl_; }

private:
    std::shared_ptr<Impl> impl_;  // calls in flight on other threads hold it too
};

// `action` is called once, by the next thread that creates one, before pthread_create returns. Set while no thread is
// created.
void after_thread_creation(std::function<void()> action);

}  // namespace simhost
