// The simulated host keeps its promises.
#include "simhost/host.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <functional>
#include <thread>

#include "OstrelConnections/psp/psp_client.h"
#include "ima/ima.h"
#include "oxd_ima_utility/discovery.h"
#include "oxd_ima_utility/session_operations.h"
#include "support/engine.h"
#include "support/site.h"

using namespace testing_support;
using simhost::ClockMode;
using simhost::GroupMode;
using simhost::Host;
using simhost::HostOptions;

namespace {

constexpr AdapterName both_adapters[] = {"vmhba64", "vmhba65"};

// How vol-0 stands. Its sessions: state or kind, NIC, array's address; active and dead paths; arrays.
std::string shown(const Host& host) {
    std::string text;
    const auto target = host.target(host.iqn_of("vol-0"));
    for (const auto& each : host.sessions(target.iqn)) {
        const char kind = each.state == simhost::XPT_WAIT   ? 'w'
                          : each.state == simhost::IN_LOGIN ? 'i'
                          : each.made_dynamic               ? 'd'
                                                            : 's';
        text += kind + each.local_ip.substr(5) + ">" + each.current_remote_ip.substr(7) + " ";
    }
    const auto paths = host.paths("vol-0");
    const OxrLun lun = read_lun(target.iqn);
    EXPECT_EQ(std::count_if(paths.begin(), paths.end(), [](const auto& path) { return path.active; }),
              target.active_paths);
    EXPECT_EQ(lun.num_active_paths, target.active_paths);
    EXPECT_EQ(lun.num_dead_paths, target.dead_paths);
    EXPECT_EQ(lun.num_of_mem_array, std::max(1, target.arrays));
    return text + std::to_string(target.active_paths) + "+" + std::to_string(target.dead_paths) + " a" +
           std::to_string(target.arrays) + (target.mode_changed ? " changed" : "");
}

using Act = std::function<void(Host&)>;
struct Step {
    Act act;
    const char* shown;
};

Act after(double seconds) {
    return [=](Host& host) { host.advance(seconds); };
}
void rediscover(Host&) {
    EXPECT_EQ(rediscover_iscsi_hba("vmhba64"), 0);
}
void add(Host& host) {
    EXPECT_EQ(create_sessions("vmhba64", host.iqn_of("vol-0").c_str(), nullptr), 0);
}
void story(const char* name, int arrays, int connections, const std::vector<Step>& steps) {
    const auto host = make_site(arrays);
    add_volumes(*host, 1, connections);
    for (std::size_t i = 0; i < steps.size(); ++i) {
        steps[i].act(*host);
        EXPECT_EQ(shown(*host), steps[i].shown) << name << ", step " << i;
    }
}

IMA_OID session_oid(std::uint64_t number) {
    return {IMA_OBJECT_TYPE_SESSION, 1, number};
}

}  // namespace

TEST(SimulatedHost, DoesByItselfWhatAnInitiatorDoes) {
    story("a login takes its time, and waits while nothing answers", 1, 1,
          {{[](Host& host) { host.set_login_seconds(4); }, "d1.1>1 1+0 a1"},
           {add, "d1.1>1 w1.2>100 1+0 a1"},
           {after(2), "d1.1>1 i1.2>100 1+0 a1"},
           {after(1.9), "d1.1>1 i1.2>100 1+0 a1"},
           {after(0.1), "d1.1>1 d1.2>1 1+0 a1"},
           {[](Host& host) { host.fail_logins(true), add(host), host.advance(100); }, "d1.1>1 d1.2>1 i1.1>100 2+0 a1"},
           {[](Host& host) { host.fail_logins(false); }, "d1.1>1 d1.2>1 d1.1>1 2+0 a1"}});
    story("paths are claimed by a rescan or by themselves, and dead until deleted", 1, 1,
          {{add, "d1.1>1 d1.2>1 1+0 a1"},
           {[](Host&) { EXPECT_EQ(rescan_ioctl(both_adapters + 1, 1), 0); }, "d1.1>1 d1.2>1 1+0 a1"},
           {[](Host&) { EXPECT_EQ(rescan_ioctl(both_adapters, 1), 0); }, "d1.1>1 d1.2>1 2+0 a1"},
           {add, "d1.1>1 d1.2>1 d1.1>1 2+0 a1"},
           {after(29), "d1.1>1 d1.2>1 d1.1>1 2+0 a1"},
           {after(1), "d1.1>1 d1.2>1 d1.1>1 3+0 a1"},
           {[](Host& host) { host.drop_session(host.sessions()[2].oid); }, "d1.1>1 d1.2>1 2+1 a1"},
           {[](Host& host) {
                EXPECT_EQ(delete_dead_path_ioctl(both_adapters, 2, 2), 0);
                EXPECT_EQ(host.slept(), 2);
            },
            "d1.1>1 d1.2>1 2+0 a1"}});
    story("a rediscovery makes what the mode calls for, once", 3, 0,
          {{rediscover, "d1.1>1 d1.2>2 0+0 a3"},
           {[](Host& host) { host.switch_mode("g", GroupMode::static_discovery); }, "d1.1>1 d1.2>2 0+0 a3 changed"},
           {rediscover, "d1.1>1 d1.2>2 s1.1>1 s1.2>2 s1.1>3 0+0 a3 changed"},
           {rediscover, "d1.1>1 d1.2>2 s1.1>1 s1.2>2 s1.1>3 0+0 a3 changed"},
           {[](Host& host) {
                EXPECT_EQ(host.static_targets().size(), 6U);
                host.drop_session(host.sessions()[0].oid);
                host.drop_session(host.sessions()[0].oid);
            },
            "s1.1>1 s1.2>2 s1.1>3 0+0 a3"}});
    story("a NIC's sessions go with it, and one comes back with it", 1, 8,
          {{[](Host& host) { host.nic_down("10.0.1.2"); }, "d1.1>1 d2.1>1 d2.2>1 d1.1>1 d2.1>1 d2.2>1 6+2 a1"},
           {[](Host& host) { host.nic_up("10.0.1.2"), host.advance(4.9); },
            "d1.1>1 d2.1>1 d2.2>1 d1.1>1 d2.1>1 d2.2>1 6+2 a1"},
           {after(0.1), "d1.1>1 d2.1>1 d2.2>1 d1.1>1 d2.1>1 d2.2>1 d1.2>1 6+2 a1"},
           {[](Host& host) { host.nic_down("10.0.2.1"), host.nic_down("10.0.2.2"), host.advance(60); },
            "d1.1>1 d1.1>1 d1.2>1 3+6 a1"}});
    story("the loss of an array redirects dynamic sessions", 2, 4,
          {{[](Host& host) { host.array_down("g", "a1"); }, "d1.1>2 d1.2>2 d2.1>2 d2.2>2 4+0 a1"},
           {[](Host& host) { host.array_down("g", "a2"); }, "0+4 a0"},
           {[](Host& host) { host.array_up("g", "a1"), host.advance(15); }, "d1.1>1 d1.2>1 d2.1>1 d2.2>1 0+4 a1"}});
}

TEST(Invariants, NoticeWhatMustNotHappen) {
    const auto remove = [](std::uint64_t oid) { IMA_VMW_RemoveSession(session_oid(oid)); };
    const auto remove_all = [=](Host& host) {
        for (const auto& session : host.sessions()) {
            remove(session.oid);
        }
    };
    const auto add_static = [](Host& host) {
        return host.add_session(session_of(host.iqn_of("vol-0"), "10.0.1.1", "10.0.9.1", "10.0.9.1"));
    };
    const auto add_to = [](Host& host, int sessions) {
        host.connect(host.iqn_of("vol-0"), sessions - 2);
        IMA_VMW_AddSession(session_oid(host.sessions()[0].oid), nullptr, nullptr, nullptr);
    };
    const struct {
        Act provoke;
        std::string violation;  // part of it; empty: none
    } cases[] = {
        {remove_all, "(known hazard: emptied adapter or stale counts)"},
        {[=](Host& host) { host.allow("emptied adapter"), remove_all(host); }, ""},
        {[](Host& host) { host.drop_sessions(host.iqn_of("vol-0"), 99); }, ""},
        {[=](Host& host) { remove(host.sessions()[0].oid); }, ""},
        {[=](Host& host) { remove(add_static(host)); }, "static session"},
        {[=](Host& host) {
             const auto oid = add_static(host);
             host.switch_mode("g", GroupMode::dynamic_discovery);
             remove(oid);
         },
         ""},
        {[=](Host& host) { add_to(host, simhost::MAX_SESSIONS); }, "2041 sessions after"},
        {[=](Host& host) { add_to(host, simhost::MAX_SESSIONS - 1); }, ""},
        {[](Host&) {
             IMA_OID_LIST* list = nullptr;
             IMA_GetLhbaOidList(&list);
             IMA_FreeMemory(list);
             IMA_FreeMemory(list);
         },
         "freed before, or not a list of the host"},
        {[](Host&) {
             const int fd = open(OSTREL_PSP_CONTROL_DEVICE, O_RDONLY);
             close(fd);
             close(fd);
         },
         "closed twice"},
    };
    for (const auto& [provoke, violation] : cases) {
        const auto host = make_site();
        add_volumes(*host, 1, 2);
        provoke(*host);
        const Lines found = host->violations();
        ASSERT_EQ(found.size(), violation.empty() ? 0U : 1U) << violation;
        EXPECT_NE(found.empty() ? 0 : found[0].find(violation), std::string::npos) << violation;
    }
    EXPECT_THROW(make_host()->allow("no such hazard"), std::invalid_argument);
}

TEST(SimulatedFiles, StayBelowTheRoot) {
    {
        const Host host;
        for (const char* const path : {"/etc/ostrel/a", "/var/log/ostrel/b", "/etc/ostrel/../ostrel/c"}) {
            const int fd = open(path, O_WRONLY | O_CREAT, 0600);
            EXPECT_EQ(host.descriptors_held(), 1U) << path;
            close(fd);
            EXPECT_TRUE(std::filesystem::exists(host.root() + path)) << path;
        }
        EXPECT_EQ(host.descriptors_held(), 0U);
        // Neighbours of the trees are the machine's own.
        EXPECT_EQ(open("/etc/ostrelx", O_RDONLY), -1);
        EXPECT_FALSE(host.exists("/etc/hostname"));
        EXPECT_EQ(access("/etc/passwd", R_OK), 0);
    }
    // Without a host the trees are empty, and nothing can be made there on the machine.
    for (const auto& make : {+[] { return mkdir("/vmfs", 0700); }, +[] { return access("/vmfs", F_OK); },
                             +[] { return open("/dev/char/vmkdriver", O_RDONLY); }}) {
        EXPECT_EQ(make(), -1);
        EXPECT_EQ(errno, ENOENT);
    }
}

TEST(SimulatedClock, HasThreeModes) {
    const auto elapsed = [](ClockMode mode, double factor, double seconds) {
        const HostOptions options{.root = {}, .clock = mode, .factor = factor};
        const Host host(options);
        const auto begun = std::chrono::steady_clock::now();
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
        EXPECT_NEAR(host.slept(), seconds, seconds * 0.01);
        EXPECT_EQ(time(nullptr), options.start_time + static_cast<time_t>(host.now()));
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
    };
    EXPECT_LT(elapsed(ClockMode::instant, 1, 3600), 1);
    EXPECT_GE(elapsed(ClockMode::scaled, 1000, 50), 0.0499);
    EXPECT_GE(elapsed(ClockMode::real, 1, 0.05), 0.0499);
}
