#include "OstrelConnections/mode_change/mode_change.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "OstrelConnections/mode_change/mode_change_parts.h"
#include "lettered_target.h"
#include "support/engine.h"
#include "support/golden.h"
#include "support/host_test.h"
#include "support/log_lines.h"
#include "support/site.h"

using namespace testing_support;
using simhost::GroupMode;
using simhost::Host;

TEST(ManualToAutomatic, KeepsTheBusiestPortalUntilTheEnd) {
    const struct {
        const char* broken;  // a portal whose first session isn't logged in
        Lines removed_first;
    } cases[] = {{"", {"10.0.9.2", "10.0.9.3"}}, {"10.0.9.1", {"10.0.9.1", "10.0.9.3"}}, {"10.0.9.3", {"10.0.9.2"}}};
    for (const auto& c : cases) {
        const auto host = make_site(3, GroupMode::static_discovery);
        const std::string iqn = add_volume(*host, "vol", 0, {"vmhba64"});  // one session for each portal
        for (const char* const portal : {"10.0.9.1", "10.0.9.1", "10.0.9.2", "10.0.9.2"}) {
            host->add_session(session_of(iqn, "10.0.1.1", portal, portal));
        }
        for (const auto& session : host->sessions(iqn)) {
            if (session.current_remote_ip == c.broken) {
                host->set_state(session.oid, simhost::FREE);
                break;
            }
        }
        host->switch_mode("g", GroupMode::dynamic_discovery);
        Lines requests;
        record_requests(*host, requests);
        EXPECT_EQ(run_pass(), 0);
        Lines expected;
        for (const std::string& portal : c.removed_first) {
            expected.push_back("remove static target " + portal);
        }
        requests.resize(static_cast<std::size_t>(std::find(requests.begin(), requests.end(), "dead paths vmhba64") -
                                                 requests.begin()));
        EXPECT_EQ(requests, expected) << c.broken;
        expect_nothing_held(*host);
    }
}

TEST_F(HostTest, SessionsOfEachPortalAreCounted) {
    const struct {
        std::vector<std::pair<const char*, char>> sessions;  // portals and letters, as sessions are written
        std::string counts;
        int busiest;  // 9: not written
    } cases[] = {
        {{{"P0", 's'}, {"P1", 's'}, {"P1", 's'}, {"P2", 's'}, {"P2", 's'}}, "P0 1, P1 2, P2 2, ", 1},
        {{{"P0", 's'}, {"P1", 's'}, {"P2", 'd'}, {"P0", 's'}, {"", 'd'}, {"P3", 's'}}, "P0 2, P1 1, P3 0, ", 0},
        {{{"P0", 'b'}, {"P1", 's'}, {"P0", 'b'}}, "P0 0, P1 1, ", 1},
        {{{"P0", 'b'}, {"P1", 'b'}}, "P0 0, P1 0, ", 9},
        {{{"P0", 's'}, {"x", 's'}, {"P1", 's'}, {"P1", 's'}}, "P0 1, x 0, P1 0, ", 0},  // a short one ends the list
    };
    log_level = 2;
    Golden golden("OstrelConnections", "portals");
    for (const auto& c : cases) {
        TargetDtls sessions[MAX_SESSIONS_PER_TARGET] = {};
        for (std::size_t i = 0; i < c.sessions.size(); ++i) {
            const auto& [portal, letter] = c.sessions[i];
            sessions[i] =
                make_record("s", "A", portal, state_of(letter), letter == 'd' ? SESSION_DYNAMIC : SESSION_STATIC);
        }
        UniqueIpAddress list[MAX_UNIQUE_IPS] = {};
        TargetSessionCount map[MAX_UNIQUE_IPS] = {};
        int count = 0;
        int busiest = 9;
        get_unique_target_ips(sessions, list, count);
        get_target_session_count_map(list, count, sessions, busiest, map);
        std::string counts;
        for (int i = 0; i < count; ++i) {
            counts += std::string(map[i].target_ip) + " " + std::to_string(map[i].num_sessions) + ", ";
        }
        EXPECT_EQ(counts, c.counts);
        EXPECT_EQ(busiest, c.busiest) << c.counts;
        golden.heading(counts);
        golden.add_log(*host);
    }
}

TEST(SessionsButTwo, KeepTheFirstTwoLoggedInDynamicOnes) {
    const struct {
        const char* sessions;
        const char* gone;
        int result;
        simhost::Fault fault = {};
    } cases[] = {
        {"", "", -1},      {"d", "", -1},     {"dbps", "", -1},      {"dd", "", 0},
        {"dddd", "23", 0}, {"bbdd", "01", 0}, {"sbdpdd", "0135", 0}, {"dddd", "3", 0, failing("IMA_VMW_RemoveSession")},
    };
    Golden golden("OstrelConnections", "but_two");
    for (const auto& c : cases) {
        LetteredTarget target(c.sessions, c.fault);
        target.host->switch_mode("g", GroupMode::static_discovery);
        log_level = 2;
        EXPECT_EQ(remove_all_dynamic_sessions_but_two(target.records, target.iqn.c_str()), c.result);
        EXPECT_EQ(target.gone(), c.gone) << c.sessions;
        EXPECT_EQ(target.host->violations(), Lines{});
        golden.heading(c.sessions);
        golden.add_log(*target.host);
    }
}

TEST(Rediscovery, OutcomeDecides) {
    const struct {
        int unreadable;  // reads that fail before the outcome
        std::uint32_t outcome;
        int result;
    } cases[] = {{0, 2, 0}, {0, 3, -1}, {0, 1, -1}, {0, 0, -1}, {0, 7, -1}, {1, 2, 0}, {5, 3, -1}, {6, 3, 0}};
    Golden golden("OstrelConnections", "rediscovery");
    for (const auto& c : cases) {
        golden.heading("unreadable " + std::to_string(c.unreadable) + ", then " + std::to_string(c.outcome));
        const auto host = make_site();
        log_level = 2;
        host->set_discovery_outcome("vmhba64", c.outcome);
        for (int i = 1; i <= c.unreadable; ++i) {
            host->fail(failing("IMA_VMW_GetDiscoveryStatus", static_cast<std::uint64_t>(i)));
        }
        EXPECT_EQ(do_rediscover_on_adapter("vmhba64"), c.result);
        EXPECT_EQ(host->slept(), 2 * std::min(c.unreadable, 5));
        golden.add_log(*host);
    }
}

TEST(ModeChanges, BeyondEightAdaptersAreLeftToTheNextPass) {
    for (const GroupMode now : {GroupMode::dynamic_discovery, GroupMode::static_discovery}) {
        const bool dynamic = now == GroupMode::dynamic_discovery;
        const auto host = make_host();
        host->add_group({"g",
                         dynamic ? GroupMode::static_discovery : GroupMode::dynamic_discovery,
                         "10.0.9.100",
                         {{"a1", {"10.0.9.1"}}, {"a2", {"10.0.9.2"}}}});
        std::string last;
        for (int v = 0; v < 9; ++v) {
            const std::string number = std::to_string(v);
            host->add_adapter("vmhba" + number, {"10.0.1." + number, "10.0.2." + number});
            last = add_volume(*host, "vol-" + number, 3, {"vmhba" + number});
        }
        host->switch_mode("g", now);
        run_pass();
        EXPECT_TRUE(host->target(last).mode_changed);
        EXPECT_EQ(dynamic ? count_static(*host, last) : count_dynamic(*host, last), 3);
        EXPECT_FALSE(host->target(host->iqn_of("vol-7")).mode_changed);
        EXPECT_EQ(
            count_lines(host->log(), "WARN",
                        dynamic ? "handle_manual_to_automatic_mode_change" : "handle_automatic_to_manual_mode_change",
                        "More than 8 adapters. The mode change of target " + last + " is left to the next pass."),
            1);
        run_pass();
        EXPECT_FALSE(host->target(last).mode_changed);
        expect_nothing_held(*host);
    }
}

TEST(AutomaticToManual, IsNotDoneWhileAVolumeHasNoStaticSession) {
    const auto host = make_site();
    const std::string iqn = add_volume(*host, "vol", 2, {"vmhba64"});
    OxrLun lun = read_lun(iqn);
    const mode_change_info change{AUTOMATIC_TO_MANUAL, 0};
    EXPECT_EQ(remove_all_dynamic_mode_targets(&change, 1, &lun, lun.vmhba_name_array, lun.num_adapters), -1);
    EXPECT_EQ(count_sessions(*host, iqn), 2);
}

TEST_F(HostTest, ListsOfASwitchAreFullOrEmpty) {
    RemoveList list;
    for (int i = 0; i < 2049; ++i) {
        list.add("some_operation", "iqn.x", "10.0.9." + std::to_string(i));
    }
    EXPECT_EQ(list.count(), 2048);
    EXPECT_EQ(remove_all_static_targets(nullptr, 0, nullptr, nullptr, 0), 0);
    EXPECT_EQ(remove_all_dynamic_mode_targets(nullptr, 0, nullptr, nullptr, 0), 0);
    Golden("OstrelConnections", "switch_lists").add_log(*host);
}
