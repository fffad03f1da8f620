#include "OstrelConnections/mode_change/mode_change.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "OstrelConnections/mode_change/mode_change_parts.h"
#include "lettered_target.h"
#include "support/engine.h"
#include "support/golden.h"
#include "support/host_test.h"
#include "support/site.h"

using namespace testing_support;
using simhost::GroupMode;

TEST(ManualToAutomatic, KeepsTheBusiestPortalUntilTheEnd) {
    Golden golden("OstrelConnections", "busiest_portal");
    // A portal whose first session isn't logged in; that of the third has no other.
    for (const std::string broken : {"none", "10.0.9.1", "10.0.9.3"}) {
        golden.heading(broken);
        const auto host = make_site(3, GroupMode::static_discovery);
        const std::string iqn = add_volume(*host, "vol", 0, {"vmhba64"});  // one session for each portal
        for (const char* const portal : {"10.0.9.1", "10.0.9.1", "10.0.9.2", "10.0.9.2"}) {
            host->add_session(session_of(iqn, "10.0.1.1", portal, portal));
        }
        const auto sessions = host->sessions(iqn);
        const auto found = std::find_if(sessions.begin(), sessions.end(),
                                        [&](const auto& session) { return session.current_remote_ip == broken; });
        if (found != sessions.end()) {
            host->set_state(found->oid, simhost::FREE);
        }
        for (int i = 0; i < 2; ++i) {  // dynamic ones don't count
            host->add_session(session_of(iqn, "10.0.1.1", "10.0.9.100", "10.0.9.2"));
        }
        host->switch_mode("g", GroupMode::dynamic_discovery);
        log_level = 2;
        golden.follow(*host);
        EXPECT_EQ(run_pass(), 0);
        expect_nothing_held(*host);
    }
}

TEST(SessionsButTwo, KeepTheFirstTwoLoggedInDynamicOnes) {
    Golden golden("OstrelConnections", "but_two");
    for (const std::string sessions : {"", "d", "dbps", "dd", "dddd", "bbdd", "sbdpdd", "dddd fails"}) {
        const bool fails = sessions.ends_with("fails");
        LetteredTarget target(sessions.substr(0, sessions.find(' ')),
                              fails ? failing("IMA_VMW_RemoveSession") : simhost::Fault());
        target.host->switch_mode("g", GroupMode::static_discovery);
        log_level = 2;
        const int result = remove_all_dynamic_sessions_but_two(target.records, target.iqn.c_str());
        EXPECT_EQ(target.host->violations(), Lines{});
        golden.heading(sessions + ": " + std::to_string(result) + ", gone " + target.gone());
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
