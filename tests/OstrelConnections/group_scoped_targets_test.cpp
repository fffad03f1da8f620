#include "OstrelConnections/group_scoped_targets.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <memory>

#include "OstrelConnections/balancing/required_sessions.h"
#include "OstrelConnections/psp/psp_client.h"
#include "common/text.h"
#include "oxd_ima_utility/oid_cache.h"
#include "support/engine.h"
#include "support/log_lines.h"
#include "support/site.h"

using namespace testing_support;
using simhost::Host;

namespace {

constexpr char pass[] = "handle_group_scoped_target_connections";

// Two arrays, one target "iqn.gst" with a device "pe"; `active` of the arrays serve it.
std::unique_ptr<Host> make_target(const std::vector<std::string>& active, int connections) {
    refresh_target_oids_table();
    auto host = make_site(2);
    host->add_group_scoped_target({"iqn.gst", "g", active, {}});
    simhost::VolumeSpec device;
    device.eui = "pe";
    device.group = "g";
    device.group_scoped_target = "iqn.gst";
    device.protocol_endpoint = true;
    host->add_volume(device);
    host->connect("iqn.gst", connections);
    return host;
}

std::unique_ptr<OstrelPspIoctlGetTransportAddrsData> read_addrs() {
    auto addrs = std::make_unique<OstrelPspIoctlGetTransportAddrsData>();
    EXPECT_EQ(get_transport_addrs_ioctl(*addrs), 0);
    return addrs;
}

// One call with the addresses of this moment.
int run(const ConfigValues& values, int total_vol_paths = 10, int host_sessions = 10) {
    return handle_group_scoped_target_connections(values, total_vol_paths, host_sessions, read_addrs().get());
}

void alter_target(Host& host, std::function<void(OstrelPspGroupScopedTarget&)> alter) {
    host.script_psp(OSTREL_PSP_IOCTL_GET_ALL_GROUP_SCOPED_TARGETS, [=](void* buffer, int result) {
        alter(static_cast<OstrelPspIoctlGetAllGroupScopedTargetsData*>(buffer)->targets[0]);
        return result;
    });
}

ConfigValues limits(std::uint32_t min, std::uint32_t max) {
    ConfigValues values;
    values.min_pe_sessions = min;
    values.max_pe_sessions = max;
    return values;
}

}  // namespace

TEST(RequiredTargetSessions, FollowNicsAndArrays) {
    struct Case {
        int nics, active, total, required;
    };
    for (const Case& c : {Case{2, 1, 1, 4}, Case{6, 2, 3, 14}, Case{1, 0, 2, 4}, Case{4, 1, 1, 4}, Case{5, 1, 1, 5},
                          Case{3, 3, 4, 14}, Case{8, 4, 4, 32}}) {
        EXPECT_EQ(required_target_sessions(c.nics, c.active, c.total), c.required);
    }
}

TEST(GroupScopedTargets, StepsAndMessages) {
    const auto host = make_target({"a1"}, 4);  // required: 4 x 1 + 2 x 1
    log_level = 2;
    Lines requests;
    record_requests(*host, requests);
    EXPECT_EQ(run({}), 0);
    const Lines logged = messages(*host, pass);
    const auto sessions = host->sessions("iqn.gst");
    ASSERT_EQ(logged.size(), 10U);
    EXPECT_EQ(logged[0], "DEBUG oxr_groupscoped_target_buffer_size = 1716224");
    EXPECT_EQ(logged[1],
              "INFO Group scoped target-0: iqn.gst, group_mode=2, mode_changed=0, num_adapters=2 num_luns=1, "
              "total_active_paths=2, total_dead_paths=0");
    EXPECT_EQ(logged[2], "INFO    device-0=pe, isVvolPE=1, total_active_paths=2, total_dead_paths=0");
    EXPECT_EQ(logged[3], "INFO num_nic=4, num_active_array=1, num_total_array_in_group=2, total_required_paths = 6");
    EXPECT_EQ(logged[4], "DEBUG session-0 : isid=" + sessions[0].isid +
                             ", current_local_ip=10.0.1.1, initial_remote_ip=10.0.9.100, current_remote_ip=10.0.9.1, "
                             "vmhba_name=vmhba64, session_state=LOGGED_IN, session_type=0");
    EXPECT_EQ(logged[8], "DEBUG group_scoped_target -- total ostrel sessions = 12");
    EXPECT_EQ(
        logged[9],
        "INFO Sessions were added for some target. Invoking rescan ioctl for PSP to claim paths created on sessions "
        "added.");
    const Lines asked = {"add iqn.gst", "add iqn.gst", "rescan vmhba64", "rescan vmhba65"};
    EXPECT_EQ(requests, asked);
    // Settled: a second call does nothing but look.
    EXPECT_EQ(run({}), 0);
    EXPECT_EQ(requests, asked);
    expect_nothing_held(*host);
}

TEST(GroupScopedTargets, WithoutNicsNothingIsDone) {
    const auto host = make_target({"a1"}, 4);
    host->script_ima("IMA_VMW_GetNicOidList", [](void* list, std::uint32_t status) {
        (*static_cast<IMA_OID_LIST**>(list))->oidCount = 0;
        return status;
    });
    EXPECT_EQ(handle_group_scoped_target_connections({}, 10, 10, nullptr), 0);
    EXPECT_EQ(messages(*host, pass).back(), "ERROR get_num_nic returned number of NICs = 0");
    EXPECT_EQ(count_sessions(*host, "iqn.gst"), 4);
}

TEST(GroupScopedTargets, LimitsAreOneRuleEach) {
    struct Case {
        int active, total;  // four NICs: four sessions for each active array, two for each other
        std::uint32_t min, max;
        int required;
        const char* message;
    };
    const Case cases[] = {
        {0, 1, 4, 32, 4,
         "INFO  total_required_paths calculated 2 is less than user configured min_pe_sessions 4. Resetting.."},
        {1, 1, 4, 32, 4, nullptr},
        {8, 8, 4, 32, 32, nullptr},
        {8, 9, 4, 32, 32, "INFO  total_required_paths calculated 34 is greater than max_pe_sessions 32. Resetting.."},
        {1, 2, 10, 8, 10,
         "INFO  total_required_paths calculated 6 is less than user configured min_pe_sessions 10. Resetting.."},
        {3, 3, 10, 8, 8, "INFO  total_required_paths calculated 12 is greater than max_pe_sessions 8. Resetting.."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.active << " of " << c.total);
        const auto host = make_target({}, 4);
        alter_target(*host, [&](OstrelPspGroupScopedTarget& target) {
            target.num_active_array = c.active;
            target.num_total_array_in_group = c.total;
        });
        EXPECT_EQ(run(limits(c.min, c.max)), 0);
        EXPECT_EQ(count_lines(host->log(), "INFO", pass, "total_required_paths = " + std::to_string(c.required)), 1);
        EXPECT_EQ(count_lines(host->log(), "INFO", pass, "Resetting.."), c.message == nullptr ? 0 : 1);
        if (c.message != nullptr) {
            EXPECT_EQ(messages(*host, pass)[2], c.message);
        }
        EXPECT_EQ(count_sessions(*host, "iqn.gst"), c.required);
    }
}

TEST(GroupScopedTargets, TargetsThatCannotBeJudgedAreSkipped) {
    struct Case {
        const char* name;
        std::function<void(OstrelPspGroupScopedTarget&)> alter;
        simhost::Fault fault;
        const char* message;
    };
    const Case cases[] = {
        {"counts cross",
         [](auto& t) { t.num_active_array = 3; },
         {},
         "ERROR Invalid values of array counts. num_total_array_in_group < num_active_array.  num_total_array_in_group "
         "= 2 "
         "num_active_array = 3"},
        {"no arrays",
         [](auto& t) { t.num_active_array = t.num_total_array_in_group = 0; },
         {},
         "ERROR Invalid value of total array count. num_total_array_in_group = 0"},
        {"static",
         [](auto& t) {
             t.group_mode = 1;
             t.mode_changed = 1;
         },
         {},
         "INFO Group scoped target - 0: iqn.gst group_mode = 1 mode_changed = 1 STATIC(MANUAL) MODE"},
        {"no NICs", [](auto& t) { oxr::copy_field(t.luns[0].device_eui, "unknown"); }, fault("IMA_VMW_GetNicOidList"),
         "ERROR get_num_nic returned number of NICs = -1"},
        {"impossible adapters", [](auto& t) { t.num_adapters = 9; }, {}, nullptr},
        {"no devices", [](auto& t) { t.num_luns = 0; }, {}, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const auto host = make_target({}, 4);
        alter_target(*host, c.alter);
        if (!c.fault.operation.empty()) {
            host->fail(c.fault);
        }
        EXPECT_EQ(run({}), 0);
        const Lines logged = messages(*host, pass);
        EXPECT_EQ(logged.empty() ? "" : logged.back(), c.message == nullptr ? "" : c.message);
        EXPECT_EQ(host->calls("IMA_VMW_AddSession") + host->calls("IMA_GetSessionProperties"), 0U);
        expect_nothing_held(*host);
    }
}

TEST(GroupScopedTargets, ListMustBeHad) {
    for (const simhost::Fault& each : {errno_fault("psp.open", EIO, 2), errno_fault("psp.3", EIO),
                                       status_fault("psp.3", 1), fault("new", 1), fault("new", 2)}) {
        const auto host = make_target({}, 4);
        const auto addrs = read_addrs();
        host->count_allocations(true);
        host->fail(each.operation == "psp.open" ? errno_fault("psp.open", EIO) : each);
        EXPECT_EQ(handle_group_scoped_target_connections({}, 10, 10, addrs.get()), -1);
        EXPECT_EQ(host->blocks_held(), 0);
        host->count_allocations(false);
        EXPECT_EQ(count_lines(host->log(), "ERROR", pass, "Error getting group_scoped_targets data from psp via ioctl"),
                  each.operation == "new" && each.nth == 1 ? 0 : 1);
        EXPECT_EQ(count_lines(host->log(), "ERROR", pass, ""), 1);
        expect_nothing_held(*host);
    }
    const auto host = make_site();
    log_level = 2;
    EXPECT_EQ(handle_group_scoped_target_connections({}, 0, 0, nullptr), 0);
    EXPECT_EQ(messages(*host, pass), Lines{"DEBUG oxr_groupscoped_target_buffer_size = 1716224"});
}

TEST(GroupScopedTargets, DynamicCountAndPathLimitDecide) {
    struct Case {
        int connections;
        int total_vol_paths;
        int after;
    };
    // Four sessions for one active array and two for the other are required.
    for (const Case& c : {Case{4, 2047, 6}, Case{4, 2048, 4}, Case{6, 2047, 6}, Case{8, 2048, 8}}) {
        const auto host = make_target({"a1"}, c.connections);
        alter_target(*host, [](OstrelPspGroupScopedTarget& target) { target.total_active_paths = 99; });
        EXPECT_EQ(run({}, c.total_vol_paths), 0);
        EXPECT_EQ(count_sessions(*host, "iqn.gst"), c.after) << c.connections << " " << c.total_vol_paths;
    }
    // The ceiling counts from the number that the caller gives.
    const auto host = make_target({"a1"}, 4);
    EXPECT_EQ(run({}, 10, 2039), 0);
    EXPECT_EQ(count_sessions(*host, "iqn.gst"), 5);
}

TEST(GroupScopedTargets, SessionsWithActivePathsAreNotRemoved) {
    // Sessions alternate between the arrays, of which one is active: three of six carry active paths.
    struct Case {
        std::uint32_t required;
        int on_active;
        int on_other;
    };
    for (const Case& c : {Case{4, 3, 1}, Case{3, 3, 0}, Case{2, 3, 0}}) {
        const auto host = make_target({"a1"}, 6);
        EXPECT_EQ(run(limits(1, c.required)), 0);
        int on_active = 0;
        int on_other = 0;
        for (const auto& session : host->sessions("iqn.gst")) {
            ++(session.current_remote_ip == "10.0.9.1" ? on_active : on_other);
        }
        EXPECT_EQ(on_active, c.on_active) << c.required;
        EXPECT_EQ(on_other, c.on_other) << c.required;
        EXPECT_EQ(host->slept(), 2);
        EXPECT_EQ(
            messages(*host, pass).back(),
            "INFO Sessions were removed for some targets. Invoking delete dead path ioctl for PSP to clean up dead "
            "paths.");
        EXPECT_EQ(host->target("iqn.gst").dead_paths, 0);
    }
}

TEST(GroupScopedTargets, WithoutTransportAddressesNothingIsRemoved) {
    const auto host = make_target({"a1"}, 7);
    EXPECT_EQ(handle_group_scoped_target_connections(limits(1, 4), 10, 10, nullptr), 0);
    EXPECT_EQ(count_sessions(*host, "iqn.gst"), 7);
    EXPECT_EQ(host->calls("IMA_VMW_RemoveSession") + host->calls("psp.6"), 0U);
    EXPECT_EQ(messages(*host, pass).back(),
              "WARN No transport addresses, so sessions with active paths can't be told from others. Not removing any "
              "session of iqn.gst in this pass.");
    // Nor in a pass that asked for them and got no answer.
    host->fail(errno_fault("psp.7", EIO));
    (void)run_pass(limits(1, 4));
    EXPECT_EQ(count_sessions(*host, "iqn.gst"), 7);
    // Adding needs none.
    EXPECT_EQ(handle_group_scoped_target_connections(limits(8, 8), 10, 10, nullptr), 0);
    EXPECT_EQ(count_sessions(*host, "iqn.gst"), 8);
}

TEST(GroupScopedTargets, FailedInventoryLeavesOnlyWhatWasRecorded) {
    const auto host = make_target({"a1"}, 4);
    const auto addrs = read_addrs();
    host->fail(fault("IMA_GetSessionOidList", 2));
    EXPECT_EQ(handle_group_scoped_target_connections({}, 10, 10, addrs.get()), 0);
    EXPECT_EQ(count_lines(host->log(), "ERROR", pass,
                          "populate_oxr_sessions returned -1 for group scoped target target_iqn = iqn.gst"),
              1);
    // Two of four are recorded, so four seem to be missing, on the first adapter.
    EXPECT_EQ(count_sessions(*host, "iqn.gst"), 8);
    EXPECT_EQ(count_lines(host->log(), "INFO", "add_isid_sessions", "adapter_name : vmhba65"), 0);
    expect_nothing_held(*host);
}

TEST(GroupScopedTargets, TwoTargetsShareTheirRequests) {
    const auto host = make_target({"a1"}, 7);
    host->add_group_scoped_target({"iqn.gst2", "g", {"a2"}, {}});
    simhost::VolumeSpec device;
    device.eui = "pe2";
    device.group = "g";
    device.group_scoped_target = "iqn.gst2";
    host->add_volume(device);
    host->connect("iqn.gst2", 7);
    Lines requests;
    record_requests(*host, requests);
    EXPECT_EQ(run({}), 0);
    const Lines expected = {"remove iqn.gst", "remove iqn.gst2", "dead paths vmhba64", "dead paths vmhba65"};
    EXPECT_EQ(requests, expected);

    host->fail(errno_fault("psp.5", EIO));
    host->fail(errno_fault("psp.6", EIO));
    host->drop_sessions("iqn.gst", 2);
    host->connect("iqn.gst2", 1);
    EXPECT_EQ(run({}), 0);
    EXPECT_EQ(count_lines(host->log(), "ERROR", pass, "ioctl for delete dead path failed."), 1);
    EXPECT_EQ(count_lines(host->log(), "ERROR", pass, "ioctl for adapter rescan failed."), 1);
    expect_nothing_held(*host);
}

TEST(GroupScopedTargets, MoreThanEightAdaptersLoseNoRequest) {
    const auto host = make_host();
    host->add_group({"g", simhost::GroupMode::dynamic_discovery, "10.0.9.100", {{"a1", {"10.0.9.1"}}}});
    for (int a = 0; a < 10; ++a) {
        const std::string number = std::to_string(a);
        host->add_adapter("vmhba" + number, {"10.0.1." + number});
        host->add_group_scoped_target({"iqn.gst" + number, "g", {}, {"vmhba" + number}});
        simhost::VolumeSpec device;
        device.eui = "pe" + number;
        device.group = "g";
        device.group_scoped_target = "iqn.gst" + number;
        host->add_volume(device);
        host->connect("iqn.gst" + number, 1);
    }
    EXPECT_EQ(run({}), 0);
    EXPECT_EQ(host->calls("psp.5"), 10U);
    EXPECT_EQ(host->totals().active_paths, 40);
}
