// Whole passes over sites that call for each kind of work: their logs, what comes of it when a call fails, and what is
// left alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <map>

#include "OstrelConnections/polling_pass.h"
#include "OstrelConnections/psp/psp_client.h"
#include "oxd_ima_utility/oid_cache.h"
#include "support/engine.h"
#include "support/golden.h"
#include "support/log_lines.h"
#include "support/site.h"

using namespace testing_support;
using simhost::GroupMode;
using simhost::Host;

namespace {

// One volume lacks sessions, one has too many; others aren't balanced as volumes.
std::unique_ptr<Host> make_unequal() {
    auto host = make_site();
    add_volume(*host, "vol-0", 3);
    add_volume(*host, "vol-1", 7);
    host->add_group({"m", GroupMode::static_discovery, "", {{"x", {"10.0.8.1"}}}});
    add_volume(*host, "manual", 0, {}, "m");
    add_target(*host, "iqn.gst", {}, 4);
    return host;
}

// Two group-scoped targets, of whose two arrays one is active: six sessions are required.
std::unique_ptr<Host> make_targets(int sessions) {
    auto host = make_site(2);
    add_target(*host, "iqn.gst1", {"a1"}, sessions);
    add_target(*host, "iqn.gst2", {"a2"}, sessions);
    return host;
}

// A volume of each of these groups, just switched: "a" to automatic (dynamic) mode, "m" to manual (static) mode.
std::unique_ptr<Host> make_switched(const std::string& groups, const Lines& adapters = {},
                                    std::uint32_t discovered = 2) {
    auto host = make_site();
    host->set_discovery_outcome("vmhba64", discovered);
    for (const char name : groups) {
        const bool to_dynamic = name == 'a';
        const GroupMode before = to_dynamic ? GroupMode::static_discovery : GroupMode::dynamic_discovery;
        const std::string net = to_dynamic ? "10.0.8." : "10.0.7.";
        host->add_group({{name}, before, net + "100", {{"1", {net + "1"}}, {"2", {net + "2"}}}});
        add_volume(*host, std::string("vol-") + name, 5, adapters, {name});
        host->switch_mode({name}, to_dynamic ? GroupMode::dynamic_discovery : GroupMode::static_discovery);
    }
    return host;
}

// A volume or target on each of so many adapters, with two NICs.
std::unique_ptr<Host> make_wide(int adapters, GroupMode mode, bool group_scoped) {
    auto host = make_host();
    host->add_group({"g", mode, "10.0.9.100", {{"a1", {"10.0.9.1"}}}});
    for (int a = 0; a < adapters; ++a) {
        const std::string number = std::to_string(a);
        host->add_adapter("vmhba" + number, {"10.0.1." + number, "10.0.2." + number});
        if (group_scoped) {
            host->add_group_scoped_target({"iqn." + number, "g", {}, {"vmhba" + number}});
        }
        add_volume(*host, "vol-" + number, 3, {"vmhba" + number}, "g", group_scoped ? "iqn." + number : "");
    }
    return host;
}

const std::map<std::string, std::function<std::unique_ptr<Host>()>> sites = {
    {"no_volumes", [] { return make_site(); }},
    {"unequal", make_unequal},
    {"targets_growing", [] { return make_targets(4); }},
    {"targets_shrinking", [] { return make_targets(7); }},
    {"to_automatic", [] { return make_switched("a"); }},
    {"to_manual", [] { return make_switched("m"); }},
    {"both_ways", [] { return make_switched("am"); }},
    {"to_automatic_undiscovered", [] { return make_switched("a", {"vmhba64"}, 3); }},
    {"to_manual_undiscovered", [] { return make_switched("m", {"vmhba64"}, 3); }},
};

// "+2 -1 t4": sessions added and removed, static targets removed.
std::string changes_of(const Lines& requests) {
    const auto count = [&](const char* kind) {
        return std::to_string(std::count_if(requests.begin(), requests.end(),
                                            [&](const std::string& line) { return line.starts_with(kind); }));
    };
    return "+" + count("add ") + " -" + count("remove iqn") + " t" + count("remove static");
}

// Lets the PSP's answer to a request be changed.
template <typename Reply>
void alter(Host& host, unsigned long request, std::function<void(Reply&)> change) {
    host.script_psp(request, [=](void* buffer, int result) {
        if (change) {
            change(*static_cast<Reply*>(buffer));
        }
        return result;
    });
}

using Devices = std::function<void(OstrelPspIoctlGetAllDeviceInfoData&)>;
using Targets = std::function<void(OstrelPspIoctlGetAllGroupScopedTargetsData&)>;
using Addresses = std::function<void(OstrelPspIoctlGetTransportAddrsData&)>;

void alter_replies(Host& host, const Devices& devices, const Targets& targets = {}, const Addresses& addresses = {}) {
    alter(host, OSTREL_PSP_IOCTL_GET_ALL_DEVICE_INFO, devices);
    alter(host, OSTREL_PSP_IOCTL_GET_ALL_GROUP_SCOPED_TARGETS, targets);
    alter(host, OSTREL_PSP_IOCTL_GET_TRANSPORT_ADDRS, addresses);
}

}  // namespace

TEST(Passes, LogIsAsItWas) {
    for (const auto& [name, make] : sites) {
        SCOPED_TRACE(name);
        Golden golden("OstrelConnections", "pass_" + name);
        const auto host = make();
        golden.follow(*host);
        for (const std::uint32_t level : {2U, 1U}) {
            log_level = level;
            const double begin = host->now();
            const int result = run_pass({.vol_sessions = 5});
            refresh_target_oids_table();
            golden.add_log(*host);
            golden.heading("result " + std::to_string(result) + ", " +
                           std::to_string(static_cast<int>(host->now() - begin)) + " s\n" + describe(*host));
        }
        expect_nothing_held(*host);
    }
}

TEST(FailingCalls, DecideTheResultAndWhatIsChanged) {
    const struct {
        const char* site;
        simhost::Fault fault;
        std::uint64_t more = 0;  // of the calls that follow, one at a time
    } cases[] = {
        {"unequal", failing("new"), 7},
        {"unequal", errno_fault("psp.open", EMFILE, 3)},
        {"unequal", errno_fault("psp.0", EIO)},
        {"unequal", failing("IMA_GetLhbaOidList")},
        {"unequal", errno_fault("psp.7", EINVAL)},
        {"unequal", status_fault("psp.7", 1)},
        {"unequal", errno_fault("psp.3", EIO)},
        {"unequal", failing("IMA_GetTargetOidList", 3), 4},
        {"unequal", failing("IMA_VMW_AddSession")},
        {"unequal", errno_fault("psp.5", EIO, 2)},
        {"unequal", status_fault("psp.5", 6, 2)},
        {"unequal", status_fault("psp.6", 9)},
        {"targets_growing", errno_fault("psp.7", EIO)},
        {"targets_growing", errno_fault("psp.5", EIO)},
        {"targets_growing", failing("IMA_GetSessionOidList", 4)},  // what couldn't be read counts as missing
        {"targets_shrinking", errno_fault("psp.7", EIO)},
        {"targets_shrinking", errno_fault("psp.6", EIO)},
        {"to_automatic", failing("new", 4), 4},
        {"to_automatic", failing("IMA_GetTargetOidList")},
        {"to_automatic", errno_fault("psp.6", EIO), 3},
        {"to_automatic", failing("IMA_VMW_Rediscover")},
        {"to_automatic", status_fault("psp.5", 6, 2)},
        {"to_automatic", failing("IMA_RemoveStaticDiscoveryTarget")},
        {"to_automatic", lasting(errno_fault("psp.5", EIO))},
        {"to_manual", failing("new", 7)},
        {"to_manual", failing("IMA_GetTargetOidList")},
        {"to_manual", failing("IMA_VMW_RemoveSession")},
        {"to_manual", errno_fault("psp.6", EIO), 3},
        {"to_manual", errno_fault("psp.5", EIO, 2)},
        {"to_manual", failing("IMA_RemoveStaticDiscoveryTarget")},
        {"to_manual", lasting(errno_fault("psp.5", EIO))},
    };
    Golden golden("OstrelConnections", "failing_calls");
    for (const auto& [site, first, more] : cases) {
        for (simhost::Fault fault = first; fault.nth <= first.nth + more; ++fault.nth) {
            const std::string name = std::string(site) + ": " + fault.operation + " " + std::to_string(fault.nth);
            SCOPED_TRACE(name);
            const auto host = sites.at(site)();
            Lines requests;
            record_requests(*host, requests);
            host->count_allocations(true);
            host->fail(fault);
            const int result = run_pass({.vol_sessions = 5});
            host->count_allocations(false);
            EXPECT_GE(host->faults_injected(), 1U);
            expect_nothing_held(*host);
            golden.heading(name + ": result " + std::to_string(result) + ", " + changes_of(requests));
            golden.add_log(*host, "EW");
        }
    }
}

TEST(PollingPass, WhatCannotBeJudgedIsSkipped) {
    const auto first_device = [](auto change) -> Devices { return [=](auto& reply) { change(reply.devices[0]); }; };
    const auto target = [](auto change) -> Targets { return [=](auto& reply) { change(reply.targets[0]); }; };
    const auto paths = [](int number) -> Devices {
        return [=](auto& reply) { reply.devices[0].num_total_paths = number - reply.devices[1].num_total_paths; };
    };
    const simhost::Fault no_nics = lasting(failing("IMA_VMW_GetNicOidList"));
    const struct {
        const char* name;
        int volume_sessions;  // then: the volume lacks one, the target two
        int target_sessions;
        Devices devices = {};
        Targets targets = {};
        Addresses addresses = {};
        simhost::Fault fault = {};
    } cases[] = {
        {"array counts cross", 4, 4, {}, target([](auto& t) { t.num_active_array = 3; })},
        {"no arrays", 4, 4, {}, target([](auto& t) { t.num_active_array = t.num_total_array_in_group = 0; })},
        {"static", 4, 4, {}, target([](auto& t) { t.group_mode = t.mode_changed = 1; })},
        {"impossible adapters", 4, 4, {}, target([](auto& t) { t.num_adapters = 9; })},
        {"no devices", 4, 4, {}, target([](auto& t) { t.num_luns = 0; })},
        {"no NICs of any", 3, 4, {}, {}, [](auto& all) { all.devices[0].num_paths = all.devices[1].num_paths = 0; }},
        {"not listed, and NICs can't be read", 3, 4, {}, {}, [](auto& all) { all.num_devices = 0; }, no_nics},
        {"a static volume", 3, 6, first_device([](auto& lun) { lun.group_mode = 1; })},
        {"a volume of unknown mode", 4, 6, first_device([](auto& lun) { lun.group_mode = 2; })},
        {"a group-scoped one", 3, 6, first_device([](auto& lun) { lun.isGstVolume = 9; })},
        {"one path below the limit", 4, 6, paths(2047)},
        {"paths at the limit", 3, 4, paths(2048)},
    };
    Golden golden("OstrelConnections", "skipped");
    for (const auto& c : cases) {
        golden.heading(c.name);
        SCOPED_TRACE(c.name);
        const auto host = make_site(2);
        const std::string iqn = add_volumes(*host, 1, 3)[0];
        add_target(*host, "iqn.gst", {"a1"}, 4);
        alter_replies(*host, c.devices, c.targets, c.addresses);
        host->fail(c.fault);
        EXPECT_EQ(run_pass({.vol_sessions = 4}), 0);
        EXPECT_EQ(count_sessions(*host, "iqn.gst"), c.target_sessions);
        EXPECT_EQ(count_sessions(*host, iqn), c.volume_sessions);
        golden.add_log(*host, "EWI");
        expect_nothing_held(*host);
    }
}

TEST(PollingPass, PathsTellWhetherAVolumeIsLookedAt) {
    const auto host = make_site();
    const std::string iqn = add_volumes(*host, 1, 3)[0];
    // Five sessions, three paths: as many as required.
    host->add_session(session_of(iqn, "10.0.1.1", "10.0.9.100", "10.0.9.1"));
    host->add_session(session_of(iqn, "10.0.1.1", "10.0.9.100", "10.0.9.1"));
    EXPECT_EQ(run_pass({.vol_sessions = 3}), 0);
    EXPECT_EQ(count_sessions(*host, iqn), 5);
    // With one path more than required the sessions are counted, and there are two too many.
    host->claim_paths();
    EXPECT_EQ(run_pass({.vol_sessions = 3}), 0);
    EXPECT_EQ(count_sessions(*host, iqn), 3);
}

// What is noted of the ninth doesn't fit any more.
TEST(PollingPass, NinthAdapterSendsWhatIsNotedAndGoesOn) {
    for (const bool group_scoped : {false, true}) {
        const auto host = make_wide(12, GroupMode::dynamic_discovery, group_scoped);
        Lines requests;
        record_requests(*host, requests);
        EXPECT_EQ(run_pass({.vol_sessions = 4}), 0);
        std::string order;  // a session is added, an adapter is rescanned
        for (const std::string& line : requests) {
            order += line.starts_with("add") ? "+" : line.substr(12) + ",";
        }
        EXPECT_EQ(order, "+++++++++0,1,2,3,4,5,6,7,+++8,9,10,11,");  // the ninth has its session when eight are sent
        EXPECT_EQ(host->totals().active_paths, 48);
        expect_nothing_held(*host);
    }
}

TEST(PollingPass, ModeChangeOnANinthAdapterIsLeftToTheNextPass) {
    for (const GroupMode now : {GroupMode::dynamic_discovery, GroupMode::static_discovery}) {
        const bool to_dynamic = now == GroupMode::dynamic_discovery;
        const auto host = make_wide(9, to_dynamic ? GroupMode::static_discovery : GroupMode::dynamic_discovery, false);
        host->switch_mode("g", now);
        const std::string last = host->iqn_of("vol-8");
        for (const bool last_is_left : {true, false}) {
            run_pass();
            for (const auto& target : host->targets()) {
                EXPECT_EQ(target.mode_changed, last_is_left && target.iqn == last) << target.iqn;
            }
            EXPECT_EQ(count_lines(host->log(), "More than 8 adapters. The mode change of target " + last +
                                                   " is left to the next pass."),
                      1);
        }
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
        alter_replies(*host, [=](auto& reply) {
            reply.devices[0].num_active_paths = reply.devices[1].num_active_paths = 1;
            reply.devices[1].num_sessions = reply.devices[1].num_dynamic_sessions = psp_count;
        });
        host->fail(failing("IMA_GetSessionOidList", 5));
        EXPECT_EQ(run_pass({.vol_sessions = 4}), -1);
        EXPECT_EQ(count_lines(host->log(), "dynamic(automatic) sessions = " + std::to_string(psp_count)), 1);
        EXPECT_EQ(host->totals().sessions, 8);
        expect_nothing_held(*host);
    }
}

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
        const auto host = make_site(2);
        add_target(*host, "iqn.gst", {"a1"}, c.sessions);
        alter_replies(*host, {}, [&](auto& reply) {
            reply.targets[0].num_active_array = c.active;
            reply.targets[0].num_total_array_in_group = c.total;
        });
        EXPECT_EQ(run_pass({.max_pe_sessions = c.max, .min_pe_sessions = c.min}), 0);
        EXPECT_EQ(count_sessions(*host, "iqn.gst"), c.left) << c.active << " of " << c.total;
        EXPECT_EQ(host->target("iqn.gst").dead_paths, 0);
        golden.heading(std::to_string(c.active) + " of " + std::to_string(c.total));
        golden.add_log(*host, "I");
    }
}
