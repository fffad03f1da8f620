#include "OstrelConnections/polling_pass.h"

#include <gtest/gtest.h>

#include <functional>

#include "OstrelConnections/group_scoped_targets.h"
#include "OstrelConnections/psp/psp_client.h"
#include "support/engine.h"
#include "support/golden.h"
#include "support/log_lines.h"
#include "support/site.h"

using namespace testing_support;
using simhost::GroupMode;
using simhost::Host;

namespace {

// Values that ask for a fixed number of sessions.
ConfigValues fixed(std::uint32_t vol_sessions) {
    ConfigValues values;
    values.vol_sessions = vol_sessions;
    values.max_vol_sessions = 32;
    values.min_vol_sessions = 1;
    return values;
}

using AllDevices = OstrelPspIoctlGetAllDeviceInfoData;
using Addresses = OstrelPspIoctlGetTransportAddrsData;

// Lets the PSP's answer to a request be changed.
template <typename Reply>
void alter(Host& host, unsigned long request, std::function<void(Reply&)> change) {
    host.script_psp(request, [=](void* buffer, int result) {
        change(*static_cast<Reply*>(buffer));
        return result;
    });
}

void alter_target(Host& host, std::function<void(OstrelPspGroupScopedTarget&)> change) {
    alter<OstrelPspIoctlGetAllGroupScopedTargetsData>(host, OSTREL_PSP_IOCTL_GET_ALL_GROUP_SCOPED_TARGETS,
                                                      [=](auto& reply) { change(reply.targets[0]); });
}

void alter_lun(Host& host, std::function<void(OxrLun&)> change) {
    alter<AllDevices>(host, OSTREL_PSP_IOCTL_GET_ALL_DEVICE_INFO, [=](AllDevices& reply) { change(reply.devices[0]); });
}

std::uint64_t changes_made(const Host& host) {
    return host.calls("IMA_VMW_AddSession") + host.calls("IMA_VMW_RemoveSession");
}

// Volumes with so many sessions, and the target "iqn.gst" of the same two arrays, of which a1 serves it.
std::unique_ptr<Host> make_mixed(int volumes, int volume_sessions, int target_sessions) {
    auto host = make_site(2);
    add_volumes(*host, volumes, volume_sessions);
    add_target(*host, "iqn.gst", {"a1"}, target_sessions);
    return host;
}

}  // namespace

TEST(PollingPass, WhatCannotBeJudgedIsSkipped) {
    const struct {
        const char* name;
        std::function<void(Host&)> spoil;
        bool target_only = true;  // is skipped
    } cases[] = {
        {"array counts cross", [](Host& host) { alter_target(host, [](auto& t) { t.num_active_array = 3; }); }},
        {"no arrays",
         [](Host& host) { alter_target(host, [](auto& t) { t.num_active_array = t.num_total_array_in_group = 0; }); }},
        {"static", [](Host& host) { alter_target(host, [](auto& t) { t.group_mode = t.mode_changed = 1; }); }},
        {"impossible adapters", [](Host& host) { alter_target(host, [](auto& t) { t.num_adapters = 9; }); }},
        {"no devices", [](Host& host) { alter_target(host, [](auto& t) { t.num_luns = 0; }); }},
        {"no NICs of any",
         [](Host& host) {
             alter<Addresses>(host, OSTREL_PSP_IOCTL_GET_TRANSPORT_ADDRS,
                              [](Addresses& reply) { reply.devices[0].num_paths = reply.devices[1].num_paths = 0; });
         },
         false},
        {"not listed, and NICs can't be read",
         [](Host& host) {
             alter<Addresses>(host, OSTREL_PSP_IOCTL_GET_TRANSPORT_ADDRS,
                              [](Addresses& reply) { reply.num_devices = 0; });
             host.fail(lasting(failing("IMA_VMW_GetNicOidList")));
         },
         false},
    };
    Golden golden("OstrelConnections", "skipped");
    for (const auto& c : cases) {
        golden.heading(c.name);
        SCOPED_TRACE(c.name);
        const auto host = make_mixed(1, 3, 4);
        c.spoil(*host);
        EXPECT_EQ(run_pass(fixed(4)), 0);
        EXPECT_EQ(count_sessions(*host, "iqn.gst"), 4);  // six are required
        EXPECT_EQ(count_sessions(*host, host->iqn_of("vol-0")), c.target_only ? 4 : 3);
        golden.add_log(*host, "EW");
        expect_nothing_held(*host);
    }
}

TEST(PollingPass, StaticAndGroupScopedVolumesAreLeftAlone) {
    const struct {
        int group_mode, is_gst;
        bool balanced;
    } cases[] = {{1, 0, false}, {0, 0, true}, {2, 0, true}, {1, 1, false}, {2, 1, false}, {2, 9, false}};
    for (const auto& c : cases) {
        const auto host = make_mixed(1, 3, 6);
        alter_lun(*host, [&](OxrLun& lun) {
            lun.group_mode = c.group_mode;
            lun.isGstVolume = c.is_gst;
        });
        run_pass(fixed(4));
        EXPECT_EQ(changes_made(*host), c.balanced ? 1U : 0U) << c.group_mode << " " << c.is_gst;
    }
}

TEST(PollingPass, PathsTellWhetherAVolumeIsLookedAt) {
    const auto host = make_site();
    const std::string iqn = add_volumes(*host, 1, 3)[0];
    // Five sessions, three paths: as many as required.
    host->add_session(session_of(iqn, "10.0.1.1", "10.0.9.100", "10.0.9.1"));
    host->add_session(session_of(iqn, "10.0.1.1", "10.0.9.100", "10.0.9.1"));
    EXPECT_EQ(run_pass(fixed(3)), 0);
    EXPECT_EQ(count_sessions(*host, iqn), 5);
    // With one path more than required the sessions are counted, and there are two too many.
    host->claim_paths();
    EXPECT_EQ(run_pass(fixed(3)), 0);
    EXPECT_EQ(count_sessions(*host, iqn), 3);
}

TEST(PollingPass, From2048PathsOnNothingIsBalanced) {
    for (const int paths : {2047, 2048}) {
        for (const std::uint32_t required : {2U, 6U}) {
            const auto host = make_mixed(1, 4, required == 2 ? 7 : 4);
            alter<AllDevices>(*host, OSTREL_PSP_IOCTL_GET_ALL_DEVICE_INFO, [&](AllDevices& reply) {
                reply.devices[0].num_total_paths = paths - reply.devices[1].num_total_paths;
            });
            EXPECT_EQ(run_pass(fixed(required)), 0);
            EXPECT_EQ(count_sessions(*host, "iqn.gst") == 6, paths == 2047) << paths;
            EXPECT_EQ(count_sessions(*host, host->iqn_of("vol-0")) != 4, paths == 2047) << paths;
            EXPECT_EQ(count_lines(host->log(), "WARN", "", "paths = 2048. MAX_PATHS_LIMIT = 2048."),
                      paths == 2047 ? 0 : 1);
        }
    }
}

// A volume or target on each of so many adapters is more than a request list holds.
TEST(PollingPass, NinthAdapterSendsWhatIsNotedAndGoesOn) {
    for (const bool group_scoped : {false, true}) {
        const auto host = make_host();
        host->add_group({"g", GroupMode::dynamic_discovery, "10.0.9.100", {{"a1", {"10.0.9.1"}}}});
        for (int v = 0; v < 12; ++v) {
            const std::string number = std::to_string(v);
            host->add_adapter("vmhba" + number, {"10.0.1." + number, "10.0.2." + number});
            if (group_scoped) {
                host->add_group_scoped_target({"iqn." + number, "g", {}, {"vmhba" + number}});
            }
            add_volume(*host, "vol-" + number, 3, {"vmhba" + number}, "g", group_scoped ? "iqn." + number : "");
        }
        Lines requests;
        record_requests(*host, requests);
        EXPECT_EQ(run_pass(fixed(4)), 0);
        std::string order;  // a session is added, an adapter is rescanned
        for (const std::string& line : requests) {
            order += line.starts_with("add") ? "+" : line.substr(12) + ",";
        }
        EXPECT_EQ(order, "+++++++++0,1,2,3,4,5,6,7,+++8,9,10,11,");  // the ninth has its session when eight are sent
        EXPECT_EQ(host->totals().active_paths, 48);
        expect_nothing_held(*host);
    }
}

TEST(PollingPass, CountsOfThePspNeverMeetRecordsOfAnotherTarget) {
    for (const int psp_count : {2, 6}) {
        const auto host = make_site();
        // ISIDs are unique for one target only: each session of the one has its namesake at the other.
        for (const std::string& iqn : add_volumes(*host, 2, 0)) {
            for (int i = 0; i < 4; ++i) {
                auto session = session_of(iqn, i % 2 == 0 ? "10.0.1.1" : "10.0.2.1", "10.0.9.100", "10.0.9.1");
                session.isid = "00:02:3d:00:00:0" + std::to_string(i);
                host->add_session(session);
            }
        }
        host->claim_paths();
        // The first volume is looked at and found right; the second one's sessions can't be listed.
        alter<AllDevices>(*host, OSTREL_PSP_IOCTL_GET_ALL_DEVICE_INFO, [=](AllDevices& reply) {
            reply.devices[0].num_active_paths = reply.devices[1].num_active_paths = 1;
            reply.devices[1].num_sessions = reply.devices[1].num_dynamic_sessions = psp_count;
        });
        host->fail(failing("IMA_GetSessionOidList", 5));
        EXPECT_EQ(run_pass(fixed(4)), -1);
        EXPECT_EQ(count_lines(host->log(), "INFO", "", "dynamic(automatic) sessions = " + std::to_string(psp_count)),
                  1);
        EXPECT_EQ(changes_made(*host), 0U);
        expect_nothing_held(*host);
    }
}

// --- group-scoped targets -----------------------------------------------------------------------------------

TEST(GroupScopedTargets, LimitsAreOneRuleEachAndActivePathsStay) {
    const struct {
        int active, total;  // as told; four NICs: four sessions for each active array, two for each other
        std::uint32_t min, max;
        int sessions;  // they alternate between two arrays; one carries active paths
        int left;
    } cases[] = {{0, 1, 4, 32, 4, 4},  {1, 1, 4, 32, 4, 4}, {8, 8, 4, 32, 4, 32}, {8, 9, 4, 32, 4, 32},
                 {1, 2, 10, 8, 4, 10}, {3, 3, 10, 8, 4, 8}, {1, 2, 1, 4, 6, 4},   {1, 2, 1, 2, 6, 3}};
    Golden golden("OstrelConnections", "target_limits");
    for (const auto& c : cases) {
        const auto host = make_mixed(0, 0, c.sessions);
        alter_target(*host, [&](OstrelPspGroupScopedTarget& target) {
            target.num_active_array = c.active;
            target.num_total_array_in_group = c.total;
        });
        ConfigValues values;
        values.min_pe_sessions = c.min;
        values.max_pe_sessions = c.max;
        EXPECT_EQ(run_pass(values), 0);
        EXPECT_EQ(count_sessions(*host, "iqn.gst"), c.left) << c.active << " of " << c.total;
        EXPECT_EQ(host->target("iqn.gst").dead_paths, 0);
        golden.heading(std::to_string(c.active) + " of " + std::to_string(c.total));
        golden.add_log(*host, "I");
    }
}

TEST(GroupScopedTargets, CeilingCountsFromTheCallersNumber) {
    const auto host = make_mixed(0, 0, 4);
    EXPECT_EQ(handle_group_scoped_target_connections({}, 10, 2039, nullptr), 0);
    EXPECT_EQ(count_sessions(*host, "iqn.gst"), 5);
}
