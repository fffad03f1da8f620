// Whole passes over sites that call for each kind of work: their logs, and what comes of it when a call fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <map>

#include "OstrelConnections/polling_pass.h"
#include "OstrelConnections/psp/psp_records.h"
#include "oxd_ima_utility/oid_cache.h"
#include "support/engine.h"
#include "support/golden.h"
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
std::unique_ptr<Host> make_switched(const std::string& groups, const Lines& adapters = {}) {
    auto host = make_site();
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

std::unique_ptr<Host> make_undiscovered(const std::string& groups) {
    auto host = make_switched(groups, {"vmhba64"});
    host->set_discovery_outcome("vmhba64", 3);
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
    {"to_automatic_undiscovered", [] { return make_undiscovered("a"); }},
    {"to_manual_undiscovered", [] { return make_undiscovered("m"); }},
};

// A pass with five sessions for each volume.
int pass() {
    ConfigValues values;
    values.vol_sessions = 5;
    return run_pass(values);
}

// "+2 -1 t4": sessions added and removed, static targets removed.
std::string changes_of(const Lines& requests) {
    std::string changes;
    for (const auto& [kind, sign] : {std::pair("add ", "+"), {"remove iqn", " -"}, {"remove static", " t"}}) {
        const auto count = std::count_if(requests.begin(), requests.end(),
                                         [&, &kind = kind](const std::string& line) { return line.starts_with(kind); });
        changes += sign + std::to_string(count);
    }
    return changes;
}

class Passes : public ::testing::TestWithParam<std::string> {};

TEST_P(Passes, LogIsAsItWas) {
    Golden golden("OstrelConnections", "pass_" + GetParam());
    const auto host = sites.at(GetParam())();
    golden.follow(*host);
    for (const std::uint32_t level : {2U, 1U}) {
        log_level = level;
        const double begin = host->now();
        const int result = pass();
        refresh_target_oids_table();
        golden.add_log(*host);
        golden.heading("result " + std::to_string(result) + ", " +
                       std::to_string(static_cast<int>(host->now() - begin)) + " s\n" + describe(*host));
    }
    expect_nothing_held(*host);
}

INSTANTIATE_TEST_SUITE_P(Every, Passes, ::testing::ValuesIn([] {
                             Lines names;
                             for (const auto& site : sites) {
                                 names.push_back(site.first);
                             }
                             return names;
                         }()),
                         [](const auto& each) { return each.param; });

TEST(FailingCalls, DecideTheResultAndWhatIsChanged) {
    const struct {
        const char* site;
        simhost::Fault fault;
        int result;
        const char* changes;
    } cases[] = {
        {"unequal", failing("new", 1), -1, "+0 -0 t0"},  // volumes, their reply, mode changes, addresses
        {"unequal", failing("new", 2), -1, "+0 -0 t0"},
        {"unequal", failing("new", 3), -1, "+0 -0 t0"},
        {"unequal", failing("new", 4), -1, "+0 -0 t0"},
        {"unequal", failing("new", 5), 0, "+2 -2 t0"},  // group-scoped targets, their reply
        {"unequal", failing("new", 6), 0, "+2 -2 t0"},
        {"unequal", failing("new", 7), 0, "+0 -2 t0"},
        {"unequal", failing("new", 8), 0, "+2 -0 t0"},
        {"unequal", errno_fault("psp.open", ENOENT), -1, "+0 -0 t0"},
        {"unequal", errno_fault("psp.open", EMFILE, 3), 0, "+2 -2 t0"},
        {"unequal", errno_fault("psp.0", EIO), -1, "+0 -0 t0"},
        {"unequal", status_fault("psp.0", 2), -1, "+0 -0 t0"},
        {"unequal", failing("IMA_GetLhbaOidList"), 0, "+2 -2 t0"},
        {"unequal", errno_fault("psp.7", EINVAL), 0, "+2 -2 t0"},
        {"unequal", status_fault("psp.7", 11), 0, "+2 -2 t0"},
        {"unequal", status_fault("psp.7", 1), 0, "+2 -2 t0"},
        {"unequal", errno_fault("psp.3", EIO), 0, "+2 -2 t0"},
        {"unequal", failing("IMA_GetTargetOidList", 3), 0, "+0 -2 t0"},
        {"unequal", failing("IMA_GetTargetOidList", 7), 0, "+2 -0 t0"},
        {"unequal", failing("IMA_VMW_AddSession"), 0, "+0 -2 t0"},
        {"unequal", errno_fault("psp.5", EIO, 2), -1, "+2 -2 t0"},
        {"unequal", status_fault("psp.5", 6, 2), 6, "+2 -2 t0"},
        {"unequal", status_fault("psp.6", 9), 0, "+2 -2 t0"},
        {"targets_growing", errno_fault("psp.7", EIO), -1, "+4 -0 t0"},
        {"targets_growing", errno_fault("psp.5", EIO), 0, "+4 -0 t0"},
        {"targets_growing", failing("IMA_GetSessionOidList", 4), 0,
         "+6 -0 t0"},  // what couldn't be read counts as missing
        {"targets_shrinking", errno_fault("psp.7", EIO), -1, "+0 -0 t0"},
        {"targets_shrinking", errno_fault("psp.6", EIO), 0, "+0 -2 t0"},
        {"to_automatic", failing("new", 4), 0, "+4 -0 t4"},
        {"to_automatic", failing("new", 8), 0, "+4 -0 t4"},
        {"to_automatic", failing("IMA_GetTargetOidList"), 0, "+4 -0 t4"},
        {"to_automatic", errno_fault("psp.6", EIO), 0, "+4 -0 t4"},
        {"to_automatic", failing("IMA_VMW_Rediscover"), 0, "+2 -0 t4"},
        {"to_automatic", errno_fault("psp.5", EIO, 2), 0, "+4 -0 t4"},
        {"to_automatic", status_fault("psp.5", 6, 2), 0, "+4 -0 t4"},
        {"to_automatic", errno_fault("psp.6", EIO, 4), 0, "+4 -0 t4"},
        {"to_automatic", failing("IMA_RemoveStaticDiscoveryTarget"), 0, "+4 -0 t4"},
        {"to_automatic", lasting(errno_fault("psp.5", EIO)), 0, "+4 -0 t2"},
        {"to_manual", failing("new", 7), 0, "+8 -7 t2"},
        {"to_manual", failing("IMA_GetTargetOidList"), 0, "+4 -3 t2"},
        {"to_manual", failing("IMA_VMW_RemoveSession"), 0, "+4 -2 t2"},
        {"to_manual", errno_fault("psp.6", EIO), 0, "+4 -3 t2"},
        {"to_manual", errno_fault("psp.5", EIO, 2), 0, "+8 -7 t2"},
        {"to_manual", failing("IMA_RemoveStaticDiscoveryTarget"), 0, "+4 -3 t2"},
        {"to_manual", errno_fault("psp.6", EIO, 4), 0, "+4 -3 t2"},
        {"to_manual", lasting(errno_fault("psp.5", EIO)), 0, "+8 -7 t0"},
    };
    Golden golden("OstrelConnections", "failing_calls");
    for (const auto& c : cases) {
        const std::string name = std::string(c.site) + ": " + c.fault.operation + " " + std::to_string(c.fault.nth);
        SCOPED_TRACE(name);
        const auto host = sites.at(c.site)();
        Lines requests;
        record_requests(*host, requests);
        host->count_allocations(true);
        host->fail(c.fault);
        const int result = pass();
        EXPECT_EQ(host->blocks_held(), 0);
        host->count_allocations(false);
        EXPECT_GE(host->faults_injected(), 1U);
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(changes_of(requests), c.changes);
        expect_nothing_held(*host);
        golden.heading(name);
        golden.add_log(*host, "EW");
    }
}

}  // namespace
