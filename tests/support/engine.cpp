#include "support/engine.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <sstream>

#include "OstrelConnections/psp/psp_client.h"
#include "OstrelConnections/renewal/renewal_state.h"
#include "OstrelProvider/config.h"
#include "OstrelProvider/service.h"
#include "OstrelProvider/worker.h"
#include "common/text.h"
#include "support/log_lines.h"
#include "support/site.h"

namespace testing_support {

using simhost::Event;
using simhost::Host;

void expect_nothing_held(const Host& host) {
    EXPECT_EQ(what_is_held(host), Lines{});
    EXPECT_EQ(host.violations(), Lines{});
}

std::unique_ptr<AdapterName[]> names_of(const Lines& adapters) {
    auto names = std::make_unique<AdapterName[]>(adapters.size());
    for (std::size_t i = 0; i < adapters.size(); ++i) {
        oxr::copy_field(names[i], adapters[i]);
    }
    return names;
}

OxrLun read_lun(const std::string& target_iqn) {
    OxrLun lun{};
    EXPECT_EQ(getDeviceInfoByTargetIqn(lun, target_iqn.c_str()), 0);
    return lun;
}

simhost::SessionView session_of(const std::string& iqn, const std::string& local_ip, const std::string& first_remote_ip,
                                const std::string& current_remote_ip, std::uint32_t state) {
    return {.isid = {},
            .target_iqn = iqn,
            .adapter = {},
            .local_ip = local_ip,
            .first_remote_ip = first_remote_ip,
            .current_remote_ip = current_remote_ip,
            .state = state,
            .made_dynamic = first_remote_ip != current_remote_ip};
}

// Dead paths are left out: a deletion that failed is asked for again only when sessions go the next time.
std::string describe(const Host& host) {
    std::ostringstream text;
    for (const auto& target : host.targets()) {
        text << target.iqn << ": " << count_sessions(host, target.iqn) << " sessions, "
             << count_dynamic(host, target.iqn) << " dynamic, " << target.active_paths << " paths"
             << (target.mode_changed ? ", switched" : "") << '\n';
    }
    return text.str();
}

std::string request_text(const Event& event) {
    using Kind = Event::Kind;
    static const std::map<Kind, std::pair<std::string, std::string Event::*>> requests{
        {Kind::adapter_rescanned, {"rescan ", &Event::adapter}},
        {Kind::dead_paths_requested, {"dead paths ", &Event::adapter}},
        {Kind::adapter_rediscovered, {"rediscover ", &Event::adapter}},
        {Kind::session_added, {"add ", &Event::target}},
        {Kind::session_removed, {"remove ", &Event::target}},
        {Kind::static_target_removed, {"remove static target ", &Event::text}},
    };
    const auto request = requests.find(event.kind);
    return request == requests.end() ? "" : request->second.first + event.*request->second.second;
}

void record_requests(Host& host, Lines& into) {
    host.observe([&into](const Event& event) {
        if (std::string text = request_text(event); !text.empty()) {
            into.push_back(std::move(text));
        }
    });
}

std::uint64_t session_changes(const Host& host) {
    return host.calls("IMA_VMW_AddSession") + host.calls("IMA_VMW_RemoveSession") +
           host.calls("IMA_RemoveStaticDiscoveryTarget");
}

std::uint64_t adapter_requests(const Host& host) {
    return host.calls("IMA_VMW_Rediscover") + host.calls("psp.5") + host.calls("psp.6");
}

void run_cycle(Host& host) {
    ConfigValues values;
    run_worker_cycle(values);
    host.advance(values.interval);
}

Lines said(Host& host, std::string_view beginning) {
    Lines lines = short_lines(host.log());
    std::erase_if(lines, [&](const std::string& line) { return !line.starts_with(beginning); });
    host.write_file("/var/log/ostrel/oxr.log", "");
    return lines;
}

bool wait_until(const std::function<bool()>& reached) {
    for (int waits = 0; waits < 60'000; ++waits) {
        if (reached()) {
            return true;
        }
        poll(nullptr, 0, 1);
    }
    return false;
}

Lines shared_mutexes_held() {
    // The wrapper keeps the native mutex to itself, as its only member.
    static_assert(sizeof(oxr::Mutex) == sizeof(pthread_mutex_t));
    const std::pair<const char*, oxr::Mutex*> all[] = {{"log_file_mutex", &log_file_mutex},
                                                       {"config_file_mutex", &config_file_mutex},
                                                       {"lock_file_mutex", &lock_file_mutex},
                                                       {"conn_renew_mutex", &conn_renew_mutex},
                                                       {"start_service_mutex", &start_service_mutex}};
    Lines held;
    for (const auto& [name, mutex] : all) {
        auto* const native = reinterpret_cast<pthread_mutex_t*>(mutex);
        if (pthread_mutex_trylock(native) != 0) {
            held.emplace_back(name);
        } else {
            pthread_mutex_unlock(native);
        }
    }
    return held;
}

Lines what_is_held(const Host& host) {
    const std::pair<std::int64_t, const char*> counts[] = {{host.lists_held(), " IMA lists"},
                                                           {host.descriptors_held(), " descriptors"},
                                                           {host.blocks_held(), " heap blocks"}};
    Lines held = shared_mutexes_held();
    for (const auto& [count, what] : counts) {
        if (count != 0) {
            held.push_back(std::to_string(count) + what);
        }
    }
    return held;
}

long resident_kib() {
    long pages = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    EXPECT_GT(resident, 0);
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace testing_support
