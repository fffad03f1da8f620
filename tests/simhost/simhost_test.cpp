// The simulated host keeps its promises.
#include "simhost/host.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <functional>
#include <memory>
#include <thread>

#include "OstrelConnections/psp/psp_client.h"
#include "common/text.h"
#include "ima/ima.h"
#include "oxd_ima_utility/discovery.h"
#include "oxd_ima_utility/oid_lookup.h"
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
Act rediscover(const char* adapter) {
    return [=](Host&) { EXPECT_EQ(rediscover_iscsi_hba(adapter), 0); };
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

void drop_first(Host& host) {
    host.drop_session(host.sessions()[0].oid);
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
    story("a session is modelled on another", 1, 1,
          {{[](Host& host) {
                const auto model = host.sessions()[0];
                EXPECT_EQ(create_sessions("vmhba64", model.target_iqn.c_str(), model.isid.c_str()), 0);
            },
            "d1.1>1 d1.1>1 1+0 a1"}});
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
          {{rediscover("vmhba64"), "d1.1>1 d1.2>2 0+0 a3"},
           {[](Host& host) { host.switch_mode("g", GroupMode::static_discovery); }, "d1.1>1 d1.2>2 0+0 a3 changed"},
           {rediscover("vmhba64"), "d1.1>1 d1.2>2 s1.1>1 s1.2>2 s1.1>3 0+0 a3 changed"},
           {rediscover("vmhba64"), "d1.1>1 d1.2>2 s1.1>1 s1.2>2 s1.1>3 0+0 a3 changed"},
           {[](Host& host) {
                EXPECT_EQ(host.static_targets().size(), 6U);
                drop_first(host);
                drop_first(host);
            },
            "s1.1>1 s1.2>2 s1.1>3 0+0 a3"},
           {[](Host& host) {
                host.set_discovery_outcome("vmhba65", 3);
                EXPECT_EQ(rediscover_iscsi_hba("vmhba65"), 0);
                EXPECT_EQ(get_discover_iscsi_hba_status("vmhba65"), ISCSI_DISCOVERY_FAILURE);
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

TEST(SimulatedHost, DoesNotKnowTheOutcomeOfADiscoveryForItsTime) {
    HostOptions options;
    options.discovery_seconds = 3;
    const auto host = make_site(1, GroupMode::dynamic_discovery, options);
    rediscover("vmhba64")(*host);
    host->advance(2.9);
    EXPECT_EQ(get_discover_iscsi_hba_status("vmhba64"), ISCSI_DISCOVERY_NO_STATUS);
    host->advance(0.1);
    EXPECT_EQ(get_discover_iscsi_hba_status("vmhba64"), ISCSI_DISCOVERY_DONE);
}

TEST(Faults, FireAtTheCallTheyNameOnceOrFromThenOn) {
    const auto host = make_site();
    const auto call = [] {
        IMA_OID_LIST* list = nullptr;
        const IMA_STATUS status = IMA_GetLhbaOidList(&list);
        EXPECT_EQ(list != nullptr, status == IMA_STATUS_SUCCESS);
        return list != nullptr ? IMA_FreeMemory(list) : status;
    };
    const auto calls = [&](int count) {
        std::vector<IMA_STATUS> answers(static_cast<std::size_t>(count));
        std::generate(answers.begin(), answers.end(), call);
        return answers;
    };
    calls(1);
    host->fail(status_fault("IMA_GetLhbaOidList", 5, 2));
    EXPECT_EQ(calls(3), (std::vector<IMA_STATUS>{0, 5, 0}));
    host->fail(lasting(status_fault("IMA_GetLhbaOidList", 6)));
    EXPECT_EQ(calls(2), (std::vector<IMA_STATUS>{6, 6}));
    host->clear_faults();
    EXPECT_EQ(calls(1), (std::vector<IMA_STATUS>{0}));
    EXPECT_EQ(host->faults_injected(), 3U);
    EXPECT_EQ(host->calls("IMA_GetLhbaOidList"), 7U);
    EXPECT_THROW(host->fail(failing("IMA_GetLhba")), std::invalid_argument);

    host->fail(errno_fault("psp.5", EBUSY));
    EXPECT_EQ(rescan_ioctl(both_adapters, 1), -1);
    host->fail(status_fault("psp.5", 6));
    EXPECT_EQ(rescan_ioctl(both_adapters, 1), 6);
    simhost::Fault on_one_file = errno_fault("open", ENOSPC);
    on_one_file.path_contains = "oxr.conf";
    host->fail(on_one_file);
    const int fd = open("/etc/ostrel/other", O_WRONLY | O_CREAT, 0600);
    EXPECT_GE(fd, 0);
    close(fd);
    EXPECT_EQ(open("/etc/ostrel/oxr.conf", O_WRONLY | O_CREAT, 0600), -1);
    EXPECT_EQ(errno, ENOSPC);
    host->count_allocations(true);
    host->fail(failing("new", 2));
    const std::unique_ptr<int> first(new (std::nothrow) int);
    const std::unique_ptr<int> second(new (std::nothrow) int);
    host->count_allocations(false);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(host->blocks_held(), 1);
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
    const auto fill_to = [](int sessions) {
        return [=](Host& host) {
            host.connect(host.iqn_of("vol-0"), sessions - 2);
            IMA_VMW_AddSession(session_oid(host.sessions()[0].oid), nullptr, nullptr, nullptr);
        };
    };
    struct Case {
        const char* name;
        Act provoke;
        const char* violation;  // part of it; empty: none
    };
    const Case cases[] = {
        {"last session removed", remove_all, "lost its last logged-in session"},
        {"last session lost by itself", [](Host& host) { host.drop_sessions(host.iqn_of("vol-0"), 99); }, ""},
        {"all but one removed", [=](Host& host) { remove(host.sessions()[0].oid); }, ""},
        {"static session", [=](Host& host) { remove(add_static(host)); }, "static session"},
        {"static session in a switch",
         [=](Host& host) {
             const auto oid = add_static(host);
             host.switch_mode("g", GroupMode::dynamic_discovery);
             remove(oid);
         },
         ""},
        {"one session too many", fill_to(simhost::MAX_SESSIONS), "2041 sessions after"},
        {"all that there may be", fill_to(simhost::MAX_SESSIONS - 1), ""},
        {"list freed twice",
         [](Host&) {
             IMA_OID_LIST* list = nullptr;
             IMA_GetLhbaOidList(&list);
             IMA_FreeMemory(list);
             IMA_FreeMemory(list);
         },
         "freed before, or not a list of the host"},
        {"descriptor closed twice",
         [](Host&) {
             const int fd = open(OSTREL_PSP_CONTROL_DEVICE, O_RDONLY);
             close(fd);
             close(fd);
         },
         "closed twice"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const auto host = make_site();
        add_volumes(*host, 1, 2);
        c.provoke(*host);
        const Lines violations = host->violations();
        EXPECT_EQ(violations.size(), c.violation[0] == '\0' ? 0U : 1U);
        EXPECT_NE(violations.empty() ? 0 : violations[0].find(c.violation), std::string::npos);
    }
    // What a hazard excuses, and only that.
    const auto host = make_site();
    add_volumes(*host, 1, 3);
    host->allow("emptied adapter");
    remove_all(*host);
    EXPECT_EQ(host->violations(), Lines{});
    EXPECT_THROW(host->allow("no such hazard"), std::invalid_argument);
}

TEST(SimulatedFiles, StayBelowTheRoot) {
    const std::string root = std::string(testing::TempDir()) + "simhost-test-" + std::to_string(getpid());
    {
        HostOptions options;
        options.root = root;
        Host host(options);
        EXPECT_EQ(host.path("/etc/ostrel/x"), root + "/etc/ostrel/x");
        for (const char* const path : {"/etc/ostrel/a", "/var/log/ostrel/b", "/etc/ostrel/../ostrel/c"}) {
            std::FILE* const file = std::fopen(path, "w");
            ASSERT_NE(file, nullptr) << path;
            EXPECT_EQ(host.descriptors_held(), 1U);
            std::fclose(file);
            EXPECT_TRUE(host.exists(path)) << path;
        }
        EXPECT_EQ(mkdir("/etc/ostrel/folder", 0700), 0);
        EXPECT_EQ(rename("/etc/ostrel/a", "/etc/ostrel/folder/d"), 0);
        EXPECT_EQ(access("/etc/ostrel/a", F_OK), -1);
        EXPECT_EQ(remove("/etc/ostrel/folder/d"), 0);
        struct stat status {};
        EXPECT_EQ(stat((root + "/etc/ostrel/c").c_str(), &status), 0);  // the real file
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
    EXPECT_EQ(std::system(("rm -r '" + root + "'").c_str()), 0);
}

TEST(SimulatedClock, HasThreeModes) {
    const auto elapsed = [](const HostOptions& options, double seconds) {
        const Host host(options);
        const auto begun = std::chrono::steady_clock::now();
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
        EXPECT_GE(host.now(), seconds * 0.999);
        EXPECT_NEAR(host.slept(), seconds, seconds * 0.01);
        EXPECT_EQ(time(nullptr), options.start_time + static_cast<time_t>(host.now()));
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
    };
    HostOptions options;
    EXPECT_LT(elapsed(options, 3600), 1);
    options.clock = ClockMode::scaled;
    options.factor = 1000;
    EXPECT_GE(elapsed(options, 50), 0.0499);
    options.clock = ClockMode::real;
    EXPECT_GE(elapsed(options, 0.05), 0.0499);
}

TEST(SimulatedClock, RunsActionsAtTheirMomentAndKeepsItsHorizon) {
    const auto host = make_host();
    std::vector<double> moments;
    host->at(5, "second", [&](Host& at) { moments.push_back(at.now()); });
    host->at(2, "first", [&](Host& at) { moments.push_back(at.now()); });
    sleep(10);
    EXPECT_EQ(moments, (std::vector<double>{2, 5}));
    host->set_horizon(15);
    std::thread sleeper([] { sleep(100); });
    EXPECT_TRUE(host->wait_for_horizon(20));
    EXPECT_EQ(host->now(), 15);
    host->set_horizon(1000);
    sleeper.join();
    EXPECT_EQ(host->now(), 110);
}

TEST(SimulatedPsp, AnswersOnlyItsOwnDevice) {
    const auto host = make_site();
    const std::string iqn = add_volumes(*host, 1, 2)[0];
    host->script_psp(OSTREL_PSP_IOCTL_GET_DEVICE_INFO, [](void* buffer, int) {
        static_cast<OxrLun*>(buffer)->num_active_paths = 77;
        return 0;
    });
    EXPECT_EQ(read_lun(iqn).num_active_paths, 77);
    host->script_psp(OSTREL_PSP_IOCTL_GET_DEVICE_INFO, nullptr);
    EXPECT_EQ(read_lun(iqn).num_active_paths, 2);
    OxrLun lun{};
    EXPECT_EQ(getDeviceInfoByTargetIqn(lun, "iqn.none"), OSTREL_PSP_IOCTL_ERROR_DEVICE_NOT_FOUND);
    const int fd = open(OSTREL_PSP_CONTROL_DEVICE, O_RDONLY);
    EXPECT_EQ(ioctl(fd, 2, &lun), -1);
    EXPECT_EQ(errno, ENOTTY);
    close(fd);
    EXPECT_EQ(ioctl(fd, 1, &lun), -1);
    EXPECT_EQ(errno, EBADF);
    expect_nothing_held(*host);
}
