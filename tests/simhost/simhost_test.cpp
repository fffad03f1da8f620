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

std::vector<std::uint32_t> states(const Host& host, const std::string& iqn) {
    std::vector<std::uint32_t> result;
    for (const auto& session : host.sessions(iqn)) {
        result.push_back(session.state);
    }
    return result;
}

IMA_OID session_oid(std::uint64_t number) {
    return {IMA_OBJECT_TYPE_SESSION, 1, number};
}

}  // namespace

TEST(SimulatedSessions, LogInOverTheLoginTime) {
    const auto host = make_site();
    const std::string iqn = add_volumes(*host, 1, 1)[0];
    host->set_login_seconds(4);
    const auto model = host->sessions(iqn)[0];
    ASSERT_EQ(create_sessions("vmhba64", iqn.c_str(), model.isid.c_str()), 0);
    EXPECT_EQ(states(*host, iqn), (std::vector<std::uint32_t>{4, simhost::XPT_WAIT}));
    auto made = host->sessions(iqn)[1];
    EXPECT_EQ(made.local_ip, model.local_ip);
    EXPECT_EQ(made.current_remote_ip, "10.0.9.100");  // not redirected yet
    host->advance(2);
    EXPECT_EQ(states(*host, iqn)[1], simhost::IN_LOGIN);
    host->advance(1.9);
    EXPECT_EQ(states(*host, iqn)[1], simhost::IN_LOGIN);
    host->advance(0.1);
    EXPECT_EQ(states(*host, iqn)[1], simhost::LOGGED_IN);
    EXPECT_EQ(host->sessions(iqn)[1].current_remote_ip, "10.0.9.1");
    // And stay in login while nothing answers.
    host->fail_logins(true);
    ASSERT_EQ(create_sessions("vmhba64", iqn.c_str(), nullptr), 0);
    host->advance(100);
    made = host->sessions(iqn)[2];
    EXPECT_EQ(made.state, simhost::IN_LOGIN);
    EXPECT_EQ(made.local_ip, "10.0.1.2");  // a target's new session takes the least used NIC
    host->fail_logins(false);
    EXPECT_EQ(states(*host, iqn)[2], simhost::LOGGED_IN);
}

TEST(SimulatedPaths, AreClaimedByRescanOrByThemselvesAndDeadUntilDeleted) {
    const auto host = make_site();
    const std::string iqn = add_volumes(*host, 1, 1)[0];
    const auto add = [&] { ASSERT_EQ(create_sessions("vmhba64", iqn.c_str(), nullptr), 0); };
    add();
    EXPECT_EQ(host->target(iqn).active_paths, 1);
    EXPECT_EQ(rescan_ioctl(both_adapters + 1, 1), 0);
    EXPECT_EQ(host->target(iqn).active_paths, 1);  // another adapter
    EXPECT_EQ(rescan_ioctl(both_adapters, 1), 0);
    EXPECT_EQ(host->target(iqn).active_paths, 2);
    add();
    host->advance(29);
    EXPECT_EQ(host->target(iqn).active_paths, 2);
    host->advance(1);
    EXPECT_EQ(host->target(iqn).active_paths, 3);

    host->drop_session(host->sessions(iqn)[2].oid);
    EXPECT_EQ(host->target(iqn).active_paths, 2);
    EXPECT_EQ(host->target(iqn).dead_paths, 1);
    const auto paths = host->paths("vol-0");
    EXPECT_EQ(std::count_if(paths.begin(), paths.end(), [](const auto& path) { return !path.active; }), 1);
    OxrLun lun = read_lun(iqn);
    EXPECT_EQ(lun.num_total_paths, 3);
    EXPECT_EQ(lun.num_dead_paths, 1);
    EXPECT_EQ(delete_dead_path_ioctl(both_adapters, 2, 2), 0);
    EXPECT_EQ(host->target(iqn).dead_paths, 0);
    EXPECT_EQ(host->slept(), 2);
}

TEST(SimulatedDiscovery, MakesWhatThePresentModeCallsFor) {
    const auto host = make_site(3);
    const std::string iqn = add_volumes(*host, 1, 0)[0];
    EXPECT_EQ(rediscover_iscsi_hba("vmhba64"), 0);
    EXPECT_EQ(count_dynamic(*host, iqn), 2);  // one over each NIC
    host->switch_mode("g", GroupMode::static_discovery);
    EXPECT_TRUE(host->target(iqn).mode_changed);
    EXPECT_EQ(rediscover_iscsi_hba("vmhba64"), 0);
    EXPECT_EQ(count_static(*host, iqn), 3);  // one to each portal
    EXPECT_EQ(rediscover_iscsi_hba("vmhba64"), 0);
    EXPECT_EQ(count_sessions(*host, iqn), 5);  // what is there isn't made again
    EXPECT_EQ(host->static_targets().size(), 6U);
    for (int i = 0; i < 2; ++i) {
        host->drop_session(host->sessions(iqn)[0].oid);
    }
    EXPECT_FALSE(host->target(iqn).mode_changed);
    // A failed discovery makes nothing.
    host->set_discovery_outcome("vmhba65", 3);
    EXPECT_EQ(rediscover_iscsi_hba("vmhba65"), 0);
    EXPECT_EQ(get_discover_iscsi_hba_status("vmhba65"), ISCSI_DISCOVERY_FAILURE);
    EXPECT_EQ(count_sessions(*host, iqn), 3);
}

TEST(SimulatedDiscovery, OutcomeIsUnknownForItsTime) {
    HostOptions options;
    options.discovery_seconds = 3;
    const auto host = make_site(1, GroupMode::dynamic_discovery, options);
    EXPECT_EQ(rediscover_iscsi_hba("vmhba64"), 0);
    host->advance(2.9);
    EXPECT_EQ(get_discover_iscsi_hba_status("vmhba64"), ISCSI_DISCOVERY_NO_STATUS);
    host->advance(0.1);
    EXPECT_EQ(get_discover_iscsi_hba_status("vmhba64"), ISCSI_DISCOVERY_DONE);
}

TEST(SimulatedNics, LostAndBack) {
    const auto host = make_site();
    const std::string iqn = add_volumes(*host, 1, 8)[0];
    host->nic_down("10.0.1.2");
    EXPECT_EQ(count_sessions(*host, iqn), 6);
    EXPECT_EQ(host->target(iqn).dead_paths, 2);
    EXPECT_EQ(host->totals().nics, 3);
    host->nic_up("10.0.1.2");
    host->advance(4.9);
    EXPECT_EQ(count_sessions(*host, iqn), 6);
    host->advance(0.1);
    EXPECT_EQ(count_sessions(*host, iqn), 7);
    // The whole adapter: its last NIC's sessions come back only with the NIC.
    host->nic_down("10.0.2.1");
    host->nic_down("10.0.2.2");
    host->advance(60);
    EXPECT_EQ(count_sessions(*host, iqn), 3);
}

TEST(SimulatedArrays, LossRedirectsDynamicSessions) {
    const auto host = make_site(2);
    const std::string iqn = add_volumes(*host, 1, 4)[0];
    host->array_down("g", "a1");
    ASSERT_EQ(count_sessions(*host, iqn), 4);
    for (const auto& session : host->sessions(iqn)) {
        EXPECT_EQ(session.current_remote_ip, "10.0.9.2");
    }
    EXPECT_EQ(read_lun(iqn).num_of_mem_array, 1);
    host->array_down("g", "a2");
    EXPECT_EQ(count_sessions(*host, iqn), 0);
    host->array_up("g", "a1");
    host->advance(15);
    EXPECT_EQ(count_sessions(*host, iqn), 4);  // one over each NIC
}

TEST(Faults, FireAtTheCallTheyNameOnceOrFromThenOn) {
    const auto host = make_site();
    IMA_OID_LIST* list = nullptr;
    const auto call = [&] {
        const IMA_STATUS status = IMA_GetLhbaOidList(&list);
        if (list != nullptr) {
            IMA_FreeMemory(list);
        }
        return status;
    };
    call();
    host->fail(status_fault("IMA_GetLhbaOidList", 5, 2));
    EXPECT_EQ(call(), 0U);
    EXPECT_EQ(call(), 5U);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(call(), 0U);
    host->fail(lasting(status_fault("IMA_GetLhbaOidList", 6)));
    EXPECT_EQ(call(), 6U);
    EXPECT_EQ(call(), 6U);
    host->clear_faults();
    EXPECT_EQ(call(), 0U);
    EXPECT_EQ(host->faults_injected(), 3U);
    EXPECT_EQ(host->calls("IMA_GetLhbaOidList"), 7U);

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
    struct Case {
        const char* name;
        std::function<void(Host&)> provoke;
        const char* violation;  // part of it; empty: none
    };
    const auto remove_all = [](Host& host) {
        for (const auto& session : host.sessions()) {
            IMA_VMW_RemoveSession(session_oid(session.oid));
        }
    };
    const Case cases[] = {
        {"last session removed", remove_all, "lost its last logged-in session"},
        {"last session lost by itself", [](Host& host) { host.drop_sessions(host.iqn_of("vol-0"), 99); }, ""},
        {"all but one removed", [](Host& host) { IMA_VMW_RemoveSession(session_oid(host.sessions()[0].oid)); }, ""},
        {"static session",
         [&](Host& host) {
             const auto oid = host.add_session(session_of(host.iqn_of("vol-0"), "10.0.1.1", "10.0.9.1", "10.0.9.1"));
             IMA_VMW_RemoveSession(session_oid(oid));
         },
         "static session"},
        {"static session in a switch",
         [&](Host& host) {
             const auto oid = host.add_session(session_of(host.iqn_of("vol-0"), "10.0.1.1", "10.0.9.1", "10.0.9.1"));
             host.switch_mode("g", GroupMode::dynamic_discovery);
             IMA_VMW_RemoveSession(session_oid(oid));
         },
         ""},
        {"session 2041",
         [](Host& host) {
             host.connect(host.iqn_of("vol-0"), 2038);
             IMA_VMW_AddSession(session_oid(host.sessions()[0].oid), nullptr, nullptr, nullptr);
         },
         "2041 sessions after"},
        {"session 2040",
         [](Host& host) {
             host.connect(host.iqn_of("vol-0"), 2037);
             IMA_VMW_AddSession(session_oid(host.sessions()[0].oid), nullptr, nullptr, nullptr);
         },
         ""},
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
