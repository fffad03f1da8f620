#include "fault_sweep/situation.h"

#define OXR_MODULE "fault_sweep"

#include <algorithm>
#include <cerrno>
#include <set>

#include "OstrelConnections/polling_pass.h"
#include "OstrelConnections/psp/psp_records.h"
#include "OstrelConnections/renewal/renewal_state.h"
#include "OstrelProvider/config.h"
#include "OstrelProvider/log.h"
#include "OstrelProvider/provider_users.h"
#include "OstrelProvider/service.h"
#include "OstrelProvider/unload.h"
#include "OstrelProvider/worker.h"
#include "fault_sweep/providers.h"
#include "oxd_ima_utility/oid_cache.h"
#include "support/engine.h"
#include "support/site.h"

using namespace testing_support;
using simhost::GroupMode;
using simhost::Host;

namespace fault_sweep {

namespace {

constexpr char CONFIG[] = "/etc/ostrel/oxr.conf";
constexpr char LOG[] = "/var/log/ostrel/oxr.log";

// --- hosts ------------------------------------------------------------------------------------------------------

// A site whose configuration an operator has edited, so that a loss of it shows.
std::unique_ptr<Host> make_configured(GroupMode mode = GroupMode::dynamic_discovery) {
    auto host = make_site(2, mode);
    host->write_file(CONFIG,
                     "# an operator's own\ninterval=90\nvol_sessions=0\nmin_vol_sessions=2\nmax_vol_sessions=8\n"
                     "worker_stop=0\nlog_level=1\nvmknic_count=0\nmin_pe_sessions=4\nmax_pe_sessions=32\n"
                     "use_ostrel_timeouts=1\nostrel_logs_path=/var/log/ostrel\n");
    return host;
}

std::unique_ptr<Host> make_volumes(int count, int connections) {
    auto host = make_configured();
    add_volumes(*host, count, connections);
    return host;
}

// The PSP never tells addresses: NICs are counted through IMA.
std::unique_ptr<Host> make_without_addresses() {
    auto host = make_volumes(2, 3);
    host->script_psp(OSTREL_PSP_IOCTL_GET_TRANSPORT_ADDRS, [](void*, int) { return -EIO; });
    return host;
}

std::unique_ptr<Host> make_behind_providers() {
    (void)providers();
    return make_volumes(1, 8);
}

std::unique_ptr<Host> make_group_scoped(int connections, const std::vector<std::string>& active_arrays = {}) {
    auto host = make_configured();
    add_target(*host, "iqn.gst", active_arrays, connections, 2);
    return host;
}

std::unique_ptr<Host> make_switched(GroupMode now) {
    const bool to_dynamic = now == GroupMode::dynamic_discovery;
    auto host = make_configured(to_dynamic ? GroupMode::static_discovery : GroupMode::dynamic_discovery);
    for (const char* const eui : {"vol-0", "vol-1"}) {
        add_volume(*host, eui, to_dynamic ? 0 : 8);
    }
    host->switch_mode("g", now);
    return host;
}

// 254 volumes have their 8 sessions, two have 2: four more fit.
std::unique_ptr<Host> make_full() {
    auto host = make_configured();
    const auto iqns = add_volumes(*host, 256, 0);
    for (std::size_t v = 0; v < iqns.size(); ++v) {
        host->connect(iqns[v], v == 100 || v == 200 ? 2 : 8);
    }
    return host;
}

std::unique_ptr<Host> make_bare() {
    auto host = std::make_unique<Host>();
    host->remove_file("/var/log/ostrel");
    host->remove_file("/etc/ostrel");
    return host;
}

std::unique_ptr<Host> make_old_format() {
    auto host = make_site(2);
    host->write_file(CONFIG, "interval:600\nmin_volsessions:3\nmax_volsessions:6\nvmknic_count:4\nlog_level:1\n" +
                                 std::string(5000, '\n'));  // longer than what it becomes
    return host;
}

std::unique_ptr<Host> make_long_logs() {
    auto host = make_configured();
    host->write_file(LOG, std::string(2097153, 'x'));
    for (int i = 1; i <= 6; ++i) {
        host->write_file(LOG + ("." + std::to_string(i)), std::to_string(i));
    }
    return host;
}

// --- work -------------------------------------------------------------------------------------------------------

std::string pass_with(Host& host, const ConfigValues& values) {
    const std::string result = std::to_string(handle_ostrel_connections(values));
    refresh_target_oids_table();
    host.advance(values.interval);
    return result;
}

std::string one_pass(Host& host) {
    return pass_with(host, {});
}

std::string one_pass_with_fewer(Host& host) {
    ConfigValues values;
    values.max_pe_sessions = 4;
    values.vol_sessions = 4;
    return pass_with(host, values);
}

// The worker's first cycle, and its end.
std::string start_and_stop(Host& host) {
    host.set_horizon(host.now());
    const int started = StartService();
    if (started == 0 && !host.wait_for_horizon(10)) {
        return "no first cycle";
    }
    return "started " + std::to_string(started) + ", stopped " + std::to_string(StopService());
}

std::string load_and_unload(Host& host) {
    host.set_horizon(host.now());
    hand_out(ProviderMi::service_instance);
    hand_out(ProviderMi::setting_method);
    OstrelProviderInit();
    if (oxr_thread.load() != 0 && !host.wait_for_horizon(10)) {
        return "no first cycle";
    }
    give_back(ProviderMi::setting_method);
    give_back(ProviderMi::service_instance);
    return "";
}

// The process ends without a cleanup, with the worker asleep or, when a pass has `seconds` only, in its midst.
template <int Seconds>
std::string end_without_cleanup(Host& host) {
    host.set_horizon(host.now() + Seconds);
    if (StartService() == 0 && !host.wait_for_horizon(10)) {
        return "no first cycle";
    }
    end_what_runs();
    return "";
}

std::string log_much(Host&) {
    const std::string text(3000, 'y');
    OXR_INFO("short");
    OXR_INFO("%s", text.c_str());
    oxr_log(3, "%s", "from outside");
    return "";
}

std::string renew_volume(Host& host, const char* name, const char* value) {
    return providers().renew({host.iqn_of("vol-0")}, name, value);
}

std::string change_digests(Host& host) {
    for (const char* const adapter : {"vmhba64", "vmhba65"}) {
        host.set_digests(adapter, true);
    }
    return renew_volume(host, "iscsidigest", "enable");
}

// --- states that the procedures rest in after a fault -------------------------------------------------------------

// Sessions that couldn't be read are added for; those with active paths are never removed again.
template <int Required>
bool has_enough(const Host& host) {
    return count_sessions(host, "iqn.gst") > Required;
}

// While an adapter has no session of the target, its sessions can't be read and the switch waits. The host's next
// login on that adapter ends it.
bool waits_for_an_adapter(const Host& host) {
    const auto targets = host.targets();
    return std::any_of(targets.begin(), targets.end(), [&](const simhost::TargetView& target) {
        std::set<std::string> in_use;
        for (const auto& session : host.sessions(target.iqn)) {
            in_use.insert(session.adapter);
        }
        return target.mode_changed && target.active_paths > 0 && in_use.size() < target.adapters.size();
    });
}

}  // namespace

void run_cycle(Host& host) {
    ConfigValues values;
    run_worker_cycle(values);
    host.advance(values.interval);
}

void PrintTo(const Situation& situation, std::ostream* out) {
    *out << situation.name;
}

const std::vector<Situation>& situations() {
    static const std::vector<Situation> all = {
        {"first_start_without_files", make_bare, load_and_unload, true},
        {"old_format_conversion", make_old_format, load_and_unload, true},
        {"load_and_unload", [] { return make_volumes(1, 8); }, load_and_unload, true},
        {"service_stop_and_start", [] { return make_volumes(1, 8); }, start_and_stop, true},
        {"exit_while_asleep", [] { return make_volumes(1, 8); }, end_without_cleanup<10>},
        {"exit_in_mid_pass", [] { return make_volumes(2, 3); }, end_without_cleanup<1>},
        {"log_rotation", make_long_logs, log_much},
        {"setvalue", make_behind_providers, [](Host&) { return providers().set_value("vol_sessions", 8); }},
        {"enumerations", make_behind_providers, [](Host&) { return providers().enumerate(); }},
        {"settled_pass", [] { return make_volumes(2, 8); }, one_pass, false, 3},
        {"growing", [] { return make_volumes(2, 3); }, one_pass, false, 3},
        {"growing_without_addresses", make_without_addresses, one_pass, false, 3},
        {"shrinking", [] { return make_volumes(2, 12); }, one_pass, false, 3},
        {"at_the_ceiling", make_full, one_pass, false, 1, true},
        {"group_scoped_growing", [] { return make_group_scoped(3); }, one_pass, false, 3, false, has_enough<8>},
        {"group_scoped_shrinking", [] { return make_group_scoped(12, {"a1"}); }, one_pass_with_fewer, false, 3, false,
         has_enough<4>},
        {"manual_to_automatic", [] { return make_switched(GroupMode::dynamic_discovery); }, one_pass, false, 3},
        {"automatic_to_manual", [] { return make_switched(GroupMode::static_discovery); }, one_pass, false, 3, false,
         waits_for_an_adapter},
        {"general_renewal", make_behind_providers, [](Host& host) { return renew_volume(host, "", ""); }},
        {"digest_change", make_behind_providers, change_digests},
    };
    return all;
}

}  // namespace fault_sweep
