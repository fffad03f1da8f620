#include "fault_sweep/situation.h"

#define OXR_MODULE "fault_sweep"

#include <algorithm>
#include <cerrno>

#include "OstrelConnections/polling_pass.h"
#include "OstrelConnections/psp/psp_records.h"
#include "OstrelProvider/config.h"
#include "OstrelProvider/log.h"
#include "OstrelProvider/provider_users.h"
#include "OstrelProvider/service.h"
#include "OstrelProvider/unload.h"
#include "OstrelProvider/worker.h"
#include "oxd_ima_utility/oid_cache.h"
#include "support/cim.h"
#include "support/site.h"

using namespace testing_support;
using simhost::GroupMode;
using simhost::Host;

namespace fault_sweep {

namespace {

using Made = std::unique_ptr<Host>;

// --- hosts ------------------------------------------------------------------------------------------------------

// A site whose configuration an operator has edited, so that a loss of it shows.
Made make_configured(GroupMode mode = GroupMode::dynamic_discovery) {
    auto host = make_site(2, mode);
    host->write_file(OSTREL_CONFIG_FILE,
                     "# an operator's own\ninterval=90\nvol_sessions=0\nmin_vol_sessions=2\nmax_vol_sessions=8\n"
                     "worker_stop=0\nlog_level=1\nvmknic_count=0\nmin_pe_sessions=4\nmax_pe_sessions=32\n"
                     "use_ostrel_timeouts=1\nostrel_logs_path=/var/log/ostrel\n");
    return host;
}

template <int Count, int Connections>
Made make_volumes() {
    auto host = make_configured();
    add_volumes(*host, Count, Connections);
    return host;
}

// The PSP never tells addresses: NICs are counted through IMA.
Made make_without_addresses() {
    auto host = make_volumes<2, 3>();
    host->script_psp(OSTREL_PSP_IOCTL_GET_TRANSPORT_ADDRS, [](void*, int) { return -EIO; });
    return host;
}

// Loaded for the whole process, once.
Made make_behind_providers() {
    (void)providers(*std::make_unique<Host>());
    return make_volumes<1, 8>();
}

Made make_group_scoped(int connections, const std::vector<std::string>& active_arrays) {
    auto host = make_configured();
    add_target(*host, "iqn.gst", active_arrays, connections, 2);
    return host;
}

template <GroupMode Now>
Made make_switched() {
    const bool to_dynamic = Now == GroupMode::dynamic_discovery;
    auto host = make_configured(to_dynamic ? GroupMode::static_discovery : GroupMode::dynamic_discovery);
    for (const char* const eui : {"vol-0", "vol-1"}) {
        add_volume(*host, eui, to_dynamic ? 0 : 8);
    }
    host->switch_mode("g", Now);
    return host;
}

// 254 volumes have their 8 sessions, two have 2: four more fit.
Made make_full() {
    auto host = make_configured();
    const auto iqns = add_volumes(*host, 256, 0);
    for (std::size_t v = 0; v < iqns.size(); ++v) {
        host->connect(iqns[v], v == 100 || v == 200 ? 2 : 8);
    }
    return host;
}

Made make_bare() {
    auto host = std::make_unique<Host>();
    host->remove_file("/var/log/ostrel");
    host->remove_file("/etc/ostrel");
    return host;
}

Made make_old_format() {
    auto host = make_site(2);
    host->write_file(OSTREL_CONFIG_FILE,
                     "interval:600\nmin_volsessions:3\nmax_volsessions:6\nvmknic_count:4\nlog_level:1\n" +
                         std::string(5000, '\n'));  // longer than what it becomes
    return host;
}

Made make_to_be_corrected() {
    auto host = make_site();
    host->write_file(OSTREL_CONFIG_FILE, "interval=5\n" + std::string(3000, '#') + "\nvol_sessions=3\n");
    return host;
}

Made make_long_logs() {
    auto host = make_configured();
    const std::string log = "/var/log/ostrel/oxr.log";
    host->write_file(log, std::string(2097153, 'x'));
    for (int i = 1; i <= 6; ++i) {
        host->write_file(log + "." + std::to_string(i), std::to_string(i));
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
    return pass_with(host, {.vol_sessions = 4, .max_pe_sessions = 4});
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
    OXR_INFO("short");
    OXR_INFO("%s", std::string(3000, 'y').c_str());
    oxr_log(3, "%s", "from outside");
    return "";
}

std::string set_number(Host& host) {
    return std::to_string(set_value(providers(host), "vol_sessions", 8).code);
}

// Every class, both ways, and the association from its two ends.
std::string enumerate(Host& host) {
    const cimserver::Broker& broker = providers(host);
    std::string codes;
    const auto note = [&](const cimserver::ProviderAnswer& answer) { codes += std::to_string(answer.code) + " "; };
    for (const char* const each : {SERVICE, SETTING, ASSOCIATION}) {
        note(broker.enumerate_instance_names(path_of(each)));
        note(broker.enumerate_instances(path_of(each), {}));
    }
    for (const auto& path : {service(), named(SETTING, "interval")}) {
        note(broker.get_instance(path, {}));
        note(broker.associators(path, {}, {}));
        note(broker.references(path, {}, {}));
    }
    return codes;
}

std::string renew_volume(Host& host) {
    return "renewed " + renew(providers(host), {host.iqn_of("vol-0")});
}

std::string change_digests(Host& host) {
    host.set_digests("vmhba64", true);
    host.set_digests("vmhba65", true);
    return "renewed " + renew(providers(host), {host.iqn_of("vol-0")}, "iscsidigest", "enable");
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
        return target.mode_changed && target.active_paths > 0 && !bare_adapters(host, target).empty();
    });
}

}  // namespace

const std::vector<Situation>& situations() {
    static const std::vector<Situation> all = {
        {"first_start_without_files", make_bare, load_and_unload, true},
        {"old_format_conversion", make_old_format, load_and_unload, true},
        {"correction", make_to_be_corrected, load_and_unload, true},
        {"load_and_unload", make_volumes<1, 8>, load_and_unload, true},
        {"service_stop_and_start", make_volumes<1, 8>, start_and_stop, true},
        {"exit_while_asleep", make_volumes<1, 8>, end_without_cleanup<10>},
        {"exit_in_mid_pass", make_volumes<2, 3>, end_without_cleanup<1>},
        {"log_rotation", make_long_logs, log_much},
        {"setvalue", make_behind_providers, set_number},
        {"enumerations", make_behind_providers, enumerate},
        {"settled_pass", make_volumes<2, 8>, one_pass, false, 3},
        {"growing", make_volumes<2, 3>, one_pass, false, 3},
        {"growing_without_addresses", make_without_addresses, one_pass, false, 3},
        {"shrinking", make_volumes<2, 12>, one_pass, false, 3},
        {"at_the_ceiling", make_full, one_pass, false, 1, true},
        {"group_scoped_growing", [] { return make_group_scoped(3, {}); }, one_pass, false, 3, false, has_enough<8>},
        {"group_scoped_shrinking", [] { return make_group_scoped(12, {"a1"}); }, one_pass_with_fewer, false, 3, false,
         has_enough<4>},
        {"manual_to_automatic", make_switched<GroupMode::dynamic_discovery>, one_pass, false, 3},
        {"automatic_to_manual", make_switched<GroupMode::static_discovery>, one_pass, false, 3, false,
         waits_for_an_adapter},
        {"general_renewal", make_behind_providers, renew_volume},
        {"digest_change", make_behind_providers, change_digests},
    };
    return all;
}

}  // namespace fault_sweep
