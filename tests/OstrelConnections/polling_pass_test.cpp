#include "OstrelConnections/polling_pass.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <memory>

#include "OstrelConnections/balancing/required_sessions.h"
#include "OstrelConnections/psp/psp_records.h"
#include "common/text.h"
#include "ima/ima.h"
#include "oxd_ima_utility/oid_cache.h"
#include "support/engine.h"
#include "support/log_lines.h"
#include "support/site.h"

using namespace testing_support;
using simhost::GroupMode;
using simhost::Host;

namespace {

constexpr char pass[] = "handle_ostrel_connections";

// Values that ask for a fixed number of sessions.
ConfigValues fixed(std::uint32_t vol_sessions) {
    ConfigValues values;
    values.vol_sessions = vol_sessions;
    values.max_vol_sessions = 32;
    values.min_vol_sessions = 1;
    return values;
}

// Lets the PSP report a volume's record changed.
void alter_lun(Host& host, const std::string& eui, std::function<void(OxrLun&)> alter) {
    host.script_psp(OSTREL_PSP_IOCTL_GET_ALL_DEVICE_INFO, [=](void* buffer, int result) {
        auto* const data = static_cast<OstrelPspIoctlGetAllDeviceInfoData*>(buffer);
        for (int i = 0; i < data->num_devices; ++i) {
            if (oxr::field_view(data->devices[i].device_eui) == eui) {
                alter(data->devices[i]);
            }
        }
        return result;
    });
}

std::uint64_t changes_made(const Host& host) {
    return host.calls("IMA_VMW_AddSession") + host.calls("IMA_VMW_RemoveSession");
}

const char added_info[] =
    "INFO Sessions were added for some volumes. Invoking rescan ioctl for PSP to claim paths created on sessions "
    "added.";
const char removed_info[] =
    "INFO Sessions were removed for some volumes. Invoking delete dead path ioctl for PSP to clean up dead paths.";

}  // namespace

TEST(RequiredVolumeSessions, FollowNicsArraysAndLimits) {
    struct Case {
        std::uint32_t vol, min, max;
        int nics, arrays;
        std::uint32_t required;
    };
    const Case cases[] = {
        {0, 2, 8, 1, 1, 2},           {0, 2, 8, 1, 3, 6},  {0, 2, 8, 3, 2, 6},         {0, 2, 8, 4, 3, 8},
        {0, 2, 8, 2, 0, 2},           {0, 2, 8, 2, 4, 8},  {0, 2, 8, 2, 1, 2},         {5, 2, 8, 4, 3, 5},
        {5, 2, 8, 1, 0, 5},           {9, 2, 8, 1, 1, 8},  {1, 2, 8, 4, 3, 2},         {0, 10, 8, 2, 2, 8},
        {20, 10, 8, 2, 2, 8},         {0, 0, 8, 3, 0, 0},  {0, 2, 0, 3, 3, 0},         {0, 2, 4294967295U, 2, 3, 6},
        {4294967295U, 2, 8, 1, 1, 8}, {0, 2, 8, 1, -1, 8}, {0, 2, 8, 3, INT32_MIN, 8}, {0, 2, 8, 8, INT32_MAX, 8},
    };
    for (const Case& c : cases) {
        ConfigValues values;
        values.vol_sessions = c.vol;
        values.min_vol_sessions = c.min;
        values.max_vol_sessions = c.max;
        EXPECT_EQ(required_volume_sessions(values, c.nics, c.arrays), c.required)
            << c.vol << " " << c.min << " " << c.max << " " << c.nics << " " << c.arrays;
    }
}

TEST(PollingPass, StepsAndMessages) {
    const auto host = make_site();
    log_level = 2;
    add_volumes(*host, 1, 3);
    simhost::GroupSpec manual{"m", GroupMode::static_discovery, "", {{"x", {"10.0.8.1"}}}};
    host->add_group(manual);
    simhost::VolumeSpec volume;
    volume.eui = "manual";
    volume.group = "m";
    host->add_volume(volume);
    host->add_group_scoped_target({"iqn.gst", "g", {}, {}});
    volume.eui = "pe";
    volume.group = "g";
    volume.group_scoped_target = "iqn.gst";
    volume.protocol_endpoint = true;
    host->add_volume(volume);
    host->connect("iqn.gst", 4);
    Lines requests;
    record_requests(*host, requests);

    EXPECT_EQ(run_pass(fixed(4)), 0);
    const std::string iqn = host->iqn_of("vol-0");
    const Lines expected = {
        "INFO found 3 Ostrel volumes, total_vol_paths = 7",
        "INFO vol-0: device_eui=vol-0 target_iqn=" + iqn +
            " num_nic=3 num_memberArray=1 group_mode=2 mode_changed=0 isVvolPE=0 total_current_paths=3 "
            "total_required_paths=4",
        "DEBUG !isGstVolume -- total ostrel sessions = 8",
        "INFO vol-1: device_eui = manual target_iqn = " + host->iqn_of("manual") +
            " group_mode = 1 mode_changed = 0 STATIC(MANUAL) MODE",
        "INFO vol-2: device_eui=pe target_iqn=iqn.gst isVvolPE=1 total_current_paths=4",
        added_info};
    EXPECT_EQ(messages(*host, pass), expected);
    EXPECT_TRUE(in_order(host->log(), {"found 3 Ostrel", "mode_change_info_cnt", "total number of system sessions",
                                       "returned status = OSTREL_PSP_IOCTL_SUCCESS", "oxr_groupscoped_target_buffer",
                                       "vol-0:", "number of sessions required", "vol-1:", "vol-2:", "were added"}));
    const Lines asked = {"add " + iqn, "rescan vmhba64", "rescan vmhba65"};
    EXPECT_EQ(requests, asked);
    EXPECT_EQ(host->slept(), 2);
    EXPECT_EQ(host->target(iqn).active_paths, 4);
    expect_nothing_held(*host);
}

TEST(PollingPass, WithoutVolumesOnlyGroupScopedTargetsAreAskedFor) {
    const auto host = make_site();
    EXPECT_EQ(run_pass(), 0);
    EXPECT_EQ(messages(*host, pass), Lines{"INFO found 0 Ostrel volumes, total_vol_paths = 0"});
    EXPECT_EQ(host->calls("psp.0"), 1U);
    EXPECT_EQ(host->calls("psp.3"), 1U);
    EXPECT_EQ(host->calls("psp.5") + host->calls("psp.6") + host->calls("psp.7"), 0U);
    EXPECT_EQ(host->calls("IMA_GetLhbaOidList"), 0U);
    EXPECT_EQ(host->sleeps(), 0U);
}

TEST(PollingPass, StaticAndGroupScopedVolumesAreLeftAlone) {
    struct Case {
        int group_mode;
        int is_gst;
        bool balanced;
    };
    for (const Case& c : {Case{1, 0, false}, Case{0, 0, true}, Case{2, 0, true}, Case{1, 1, false}, Case{2, 1, false},
                          Case{2, 9, false}}) {
        refresh_target_oids_table();
        const auto host = make_site();
        add_volumes(*host, 1, 3);
        alter_lun(*host, "vol-0", [&](OxrLun& lun) {
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
    EXPECT_EQ(host->calls("IMA_GetSessionProperties"), 0U);
    EXPECT_EQ(host->calls("IMA_GetTargetOidList"), 0U);
    EXPECT_EQ(count_sessions(*host, iqn), 5);
    // With one path more than required the sessions are counted, and there are two too many.
    host->claim_paths();
    EXPECT_EQ(run_pass(fixed(3)), 0);
    EXPECT_EQ(count_sessions(*host, iqn), 3);
}

TEST(PollingPass, From2048PathsOnNothingIsBalanced) {
    struct Case {
        int more_paths;
        std::uint32_t required;
        bool balanced;
    };
    for (const Case& c : {Case{2047, 6, true}, Case{2048, 6, false}, Case{2047, 2, true}, Case{2048, 2, false}}) {
        SCOPED_TRACE(c.more_paths);
        refresh_target_oids_table();
        const auto host = make_site();
        add_volumes(*host, 1, 4);
        alter_lun(*host, "vol-0", [&](OxrLun& lun) { lun.num_total_paths = c.more_paths; });
        EXPECT_EQ(run_pass(fixed(c.required)), 0);
        EXPECT_EQ(changes_made(*host) > 0, c.balanced);
        EXPECT_EQ(
            count_lines(host->log(), "WARN", pass,
                        "Total number of paths = 2048. MAX_PATHS_LIMIT = 2048. Will not be creating any additional "
                        "sessions."),
            c.balanced ? 0 : 1);
    }
}

TEST(PollingPass, EachAdapterIsAskedOnceAndDeadPathsFirst) {
    const auto host = make_site();
    const auto iqns = add_volumes(*host, 3, 0);
    host->connect(iqns[0], 3);
    host->connect(iqns[1], 7);
    host->connect(iqns[2], 3);
    Lines requests;
    record_requests(*host, requests);
    EXPECT_EQ(run_pass(fixed(5)), 0);
    const Lines expected = {"add " + iqns[0], "add " + iqns[0], "remove " + iqns[1],  "remove " + iqns[1],
                            "add " + iqns[2], "add " + iqns[2], "dead paths vmhba64", "dead paths vmhba65",
                            "rescan vmhba64", "rescan vmhba65"};
    EXPECT_EQ(requests, expected);
    EXPECT_EQ(host->slept(), 4);  // before the count of sessions and before the deletion
    const Lines all = messages(*host, pass);
    EXPECT_EQ(all[all.size() - 2], removed_info);
    EXPECT_EQ(all.back(), added_info);
}

TEST(PollingPass, NinthAdapterSendsWhatIsNotedAndGoesOn) {
    const auto host = make_host();
    host->add_group({"g", GroupMode::dynamic_discovery, "10.0.9.100", {{"a1", {"10.0.9.1"}}}});
    std::vector<std::string> iqns;
    for (int v = 0; v < 12; ++v) {
        simhost::VolumeSpec volume;
        const std::string adapter = "vmhba" + std::to_string(v);
        host->add_adapter(adapter, {"10.0.1." + std::to_string(v), "10.0.2." + std::to_string(v)});
        volume.eui = "vol-" + std::to_string(v);
        volume.group = "g";
        volume.adapters = {adapter};
        host->add_volume(volume);
        iqns.push_back(host->iqn_of(volume.eui));
        host->connect(iqns.back(), v % 3 == 0 ? 5 : 2);  // 0, 3, 6, 9 lose one; all others gain two
    }
    Lines requests;
    record_requests(*host, requests);
    EXPECT_EQ(run_pass(fixed(4)), 0);
    Lines expected;
    for (int v = 0; v < 12; ++v) {
        expected.push_back((v % 3 == 0 ? "remove " : "add ") + iqns[static_cast<std::size_t>(v)]);
        if (v % 3 != 0) {
            expected.push_back(expected.back());
        }
    }
    const auto append = [&](const char* what, std::initializer_list<int> adapters) {
        for (const int a : adapters) {
            expected.push_back(what + std::to_string(a));
        }
    };
    append("dead paths vmhba", {0, 3, 6, 9});
    append("rescan vmhba", {1, 2, 4, 5, 7, 8, 10, 11});
    EXPECT_EQ(requests, expected);  // eight of a kind still fit

    for (const std::string& iqn : iqns) {
        host->drop_sessions(iqn, 2);
    }
    requests.clear();
    EXPECT_EQ(run_pass(fixed(4)), 0);
    EXPECT_EQ(requests.size(), 36U);  // two sessions for each of twelve, and a rescan
    const auto first_rescan = std::find(requests.begin(), requests.end(), "rescan vmhba0");
    EXPECT_EQ(first_rescan - requests.begin(), 18);  // the ninth volume has its sessions, and eight are sent for
    EXPECT_EQ(*(first_rescan + 7), "rescan vmhba7");
    EXPECT_EQ(*(first_rescan + 8), "add " + iqns[9]);
    EXPECT_EQ(requests.back(), "rescan vmhba11");
    for (const std::string& iqn : iqns) {
        EXPECT_EQ(host->target(iqn).active_paths, 4) << iqn;
    }
    expect_nothing_held(*host);
}

TEST(PollingPass, EndsEarlyOnlyWithoutVolumesOrMemory) {
    struct Case {
        const char* name;
        simhost::Fault fault;
        Lines messages;  // from the first failure on
    };
    const Case cases[] = {
        {"volumes", fault("new", 1), {"ERROR can not allocate memory for vol_node_array"}},
        {"reply", fault("new", 2), {"ERROR populate_Oxr_Luns returned rc = -1"}},
        {"changes", fault("new", 3), {"ERROR can not allocate memory for mode_change_info"}},
        {"addresses", fault("new", 4), {"ERROR can not allocate memory for transport addresses."}},
        {"no device", errno_fault("psp.open", ENOENT), {"ERROR populate_Oxr_Luns returned rc = -1"}},
        {"refused", errno_fault("psp.0", EIO), {"ERROR populate_Oxr_Luns returned rc = -1"}},
        {"status", status_fault("psp.0", 2), {"ERROR populate_Oxr_Luns returned rc = -1"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        refresh_target_oids_table();
        const auto host = make_site();
        add_volumes(*host, 1, 3);
        host->count_allocations(true);
        host->fail(c.fault);
        EXPECT_EQ(run_pass(fixed(5)), -1);
        EXPECT_EQ(host->blocks_held(), 0);
        host->count_allocations(false);
        EXPECT_EQ(changes_made(*host), 0U);
        EXPECT_EQ(host->calls("psp.3"), 0U);
        EXPECT_EQ(messages(*host, pass).back(), c.messages[0]);
        expect_nothing_held(*host);
        // The next pass starts from nothing but the host.
        EXPECT_EQ(run_pass(fixed(5)), 0);
        EXPECT_EQ(changes_made(*host), 2U);
    }
}

TEST(PollingPass, GoesOnAfterOtherFailures) {
    struct Case {
        const char* name;
        simhost::Fault fault;
        std::uint64_t changes;
        int status;
        Lines errors;  // of the pass, at ERROR
    };
    const Case cases[] = {
        {"session count", fault("IMA_GetLhbaOidList"), 2, 0, {"ERROR error getting total session count"}},
        {"addresses, errno", errno_fault("psp.7", EINVAL), 2, 0, {"ERROR get_transport_addrs_ioctl failed."}},
        {"addresses, status", status_fault("psp.7", 11), 2, 0, {"ERROR get_transport_addrs_ioctl failed."}},
        {"addresses in part", status_fault("psp.7", 1), 2, 0, {}},
        {"group-scoped list", errno_fault("psp.3", EIO), 2, 0, {}},
        {"group-scoped memory", fault("new", 5), 2, 0, {}},
        {"inventory", fault("IMA_GetTargetOidList"), 0, -1, {"ERROR populate_oxr_sessions returned -1"}},
        {"addition", fault("IMA_VMW_AddSession"), 1, 0, {}},
        {"balancing memory", fault("new", 7), 0, 0, {}},
        {"rescan, errno", errno_fault("psp.5", EIO), 2, -1, {"ERROR ioctl for adapter rescan failed."}},
        {"rescan, errno for the last", errno_fault("psp.5", EIO, 2), 2, -1, {"ERROR ioctl for adapter rescan failed."}},
        {"rescan, status", status_fault("psp.5", 6, 2), 2, 6, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        refresh_target_oids_table();
        const auto host = make_site();
        add_volumes(*host, 1, 3);
        host->count_allocations(true);
        host->fail(c.fault);
        const int status = run_pass(fixed(5));
        EXPECT_EQ(host->blocks_held(), 0);
        host->count_allocations(false);
        EXPECT_EQ(host->faults_injected(), 1U);
        EXPECT_EQ(changes_made(*host), c.changes);
        Lines errors = messages(*host, pass);
        std::erase_if(errors, [](const std::string& line) { return !line.starts_with("ERROR"); });
        EXPECT_EQ(status, c.status);
        EXPECT_EQ(errors, c.errors);
        expect_nothing_held(*host);
    }
}

TEST(PollingPass, FailedDeadPathDeletionIsReported) {
    for (const simhost::Fault& each :
         {errno_fault("psp.6", EIO), status_fault("psp.6", 9), errno_fault("psp.open", EMFILE, 4)}) {
        refresh_target_oids_table();
        const auto host = make_site();
        add_volumes(*host, 1, 4);
        host->fail(each);
        EXPECT_EQ(run_pass(fixed(2)), -1);
        EXPECT_EQ(messages(*host, pass).back(), "ERROR ioctl for delete dead path failed.");
        expect_nothing_held(*host);
    }
}

TEST(PollingPass, VolumeWithoutNicsIsSkipped) {
    const auto host = make_site();
    const auto iqns = add_volumes(*host, 2, 3);
    host->script_psp(OSTREL_PSP_IOCTL_GET_TRANSPORT_ADDRS, [](void* buffer, int result) {
        static_cast<OstrelPspIoctlGetTransportAddrsData*>(buffer)->devices[0].num_paths = 0;
        return result;
    });
    EXPECT_EQ(run_pass(fixed(4)), 0);
    EXPECT_EQ(messages(*host, pass)[1], "ERROR get_num_nic returned number of NICs = 0");
    EXPECT_EQ(count_sessions(*host, iqns[0]), 3);
    EXPECT_EQ(count_sessions(*host, iqns[1]), 4);
    // Not in the list at all: IMA is asked, and can't answer.
    host->script_psp(OSTREL_PSP_IOCTL_GET_TRANSPORT_ADDRS, [](void* buffer, int result) {
        static_cast<OstrelPspIoctlGetTransportAddrsData*>(buffer)->num_devices = 0;
        return result;
    });
    host->fail(fault("IMA_VMW_GetNicOidList"));
    run_pass(fixed(4));
    EXPECT_EQ(count_lines(host->log(), "ERROR", pass, "get_num_nic returned number of NICs = -1"), 1);
    EXPECT_EQ(count_sessions(*host, iqns[0]), 3);
}

TEST(PollingPass, CountsOfThePspNeverMeetRecordsOfAnotherTarget) {
    for (const int psp_count : {2, 6}) {
        SCOPED_TRACE(psp_count);
        refresh_target_oids_table();
        const auto host = make_site();
        const auto iqns = add_volumes(*host, 2, 0);
        // ISIDs are unique for one target only: each session of the one has its namesake at the other.
        for (const std::string& iqn : iqns) {
            for (int i = 0; i < 4; ++i) {
                simhost::SessionView session =
                    session_of(iqn, i % 2 == 0 ? "10.0.1.1" : "10.0.2.1", "10.0.9.100", "10.0.9.1");
                session.isid = "00:02:3d:00:00:0" + std::to_string(i);
                host->add_session(session);
            }
        }
        host->claim_paths();
        // The first volume is looked at and found right; the second one's sessions can't be listed.
        host->script_psp(OSTREL_PSP_IOCTL_GET_ALL_DEVICE_INFO, [=](void* buffer, int result) {
            OxrLun* const luns = static_cast<OstrelPspIoctlGetAllDeviceInfoData*>(buffer)->devices;
            luns[0].num_active_paths = luns[1].num_active_paths = 1;
            luns[1].num_sessions = luns[1].num_dynamic_sessions = psp_count;
            return result;
        });
        host->fail(fault("IMA_GetSessionOidList", 5));
        EXPECT_EQ(run_pass(fixed(4)), -1);
        EXPECT_EQ(count_lines(host->log(), "ERROR", pass, "populate_oxr_sessions returned -1"), 1);
        EXPECT_EQ(count_lines(host->log(), "INFO", "handle_num_sessions",
                              "number of dynamic(automatic) sessions = " + std::to_string(psp_count)),
                  1);
        EXPECT_EQ(changes_made(*host), 0U);
        expect_nothing_held(*host);
    }
}

TEST(PollingPass, FailedModeChangeIsRepeatedOnceAndHoldsNothingUp) {
    const auto host = make_site();
    const auto iqns = add_volumes(*host, 3, 3);
    host->script_psp(OSTREL_PSP_IOCTL_GET_ALL_DEVICE_INFO, [](void* buffer, int result) {
        auto* const data = static_cast<OstrelPspIoctlGetAllDeviceInfoData*>(buffer);
        data->devices[0].mode_changed = data->devices[1].mode_changed = 1;
        data->devices[1].group_mode = OSTREL_GROUP_MODE_STATIC;
        return result;
    });
    host->fail(lasting(errno_fault("psp.5", EIO)));
    EXPECT_EQ(run_pass(fixed(5)), -1);
    const Lines expected = {"INFO total mode changes = 2",
                            "WARN manual to automatic mode change failed. Retrying once more.",
                            "ERROR manual to automatic mode change failed twice.",
                            "WARN automatic to manual mode change failed. Retrying once more.",
                            "ERROR automatic to manual mode change failed twice."};
    const Lines all = messages(*host, pass);
    EXPECT_EQ(Lines(all.begin() + 1, all.begin() + 6), expected);
    EXPECT_EQ(count_sessions(*host, iqns[2]), 5);  // balanced all the same
    EXPECT_EQ(count_lines(host->log(), "INFO", "handle_manual_to_automatic_mode_change", "rescanning all adapters"), 2);
    EXPECT_EQ(count_lines(host->log(), "INFO", "handle_automatic_to_manual_mode_change", "rescanning all adapters"), 2);
    expect_nothing_held(*host);
}
