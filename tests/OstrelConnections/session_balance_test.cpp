#include "OstrelConnections/balancing/session_balance.h"

#include <gtest/gtest.h>

#include <span>

#include "OstrelConnections/balancing/required_sessions.h"
#include "OstrelConnections/balancing/session_list.h"
#include "lettered_target.h"
#include "support/engine.h"
#include "support/golden.h"
#include "support/site.h"

using namespace testing_support;

TEST(RequiredSessions, OfVolumesFollowNicsArraysAndLimits) {
    const struct {
        std::uint32_t vol, min, max;
        int nics, arrays;
        std::uint32_t required;
    } cases[] = {{0, 2, 8, 1, 1, 2},           {0, 2, 8, 3, 2, 6},           {0, 2, 8, 4, 3, 8},
                 {0, 2, 8, 2, 0, 2},           {5, 2, 8, 4, 3, 5},           {9, 2, 8, 1, 1, 8},
                 {1, 2, 8, 4, 3, 2},           {0, 10, 8, 2, 2, 8},          {0, 0, 8, 3, 0, 0},
                 {0, 2, 4294967295U, 2, 3, 6}, {4294967295U, 2, 8, 1, 1, 8}, {0, 2, 8, 1, -1, 8},
                 {0, 2, 8, 3, INT32_MIN, 8},   {0, 2, 8, 8, INT32_MAX, 8}};
    for (const auto& c : cases) {
        const ConfigValues values{.vol_sessions = c.vol, .min_vol_sessions = c.min, .max_vol_sessions = c.max};
        EXPECT_EQ(required_volume_sessions(values, c.nics, c.arrays), c.required)
            << c.vol << " " << c.min << " " << c.max << " " << c.nics << " " << c.arrays;
    }
}

TEST(RequiredSessions, OfTargetsFollowNicsAndArrays) {
    const struct {
        int nics, active, total, required;
    } cases[] = {{2, 1, 1, 4}, {6, 2, 3, 14}, {1, 0, 2, 4}, {4, 1, 1, 4}, {5, 1, 1, 5}, {3, 3, 4, 14}, {8, 4, 4, 32}};
    for (const auto& c : cases) {
        EXPECT_EQ(required_target_sessions(c.nics, c.active, c.total), c.required);
    }
}

// The log tells what is added and removed, and where. `dynamic`: as a PSP record has it; otherwise as they are.
void balance(Golden& golden, const char* sessions, int required, int host_sessions, const simhost::Fault& fault = {},
             int dynamic = -1) {
    const std::string name = std::string(sessions) + ", required " + std::to_string(required) + " of " +
                             std::to_string(host_sessions) + " " + fault.operation;
    SCOPED_TRACE(name);
    LetteredTarget target(sessions, fault);
    int host_sessions_after = host_sessions;
    std::int32_t ioctl_required = 0;
    target.host->count_allocations(true);
    const int result =
        handle_num_sessions(target.iqn.c_str(), target.records, required, host_sessions_after,
                            dynamic < 0 ? target.lun.num_dynamic_sessions : dynamic, target.lun.num_sessions,
                            target.lun.num_login_pending_sessions, ioctl_required);
    target.host->count_allocations(false);
    const int added = static_cast<int>(target.added().size());
    const int gone = static_cast<int>(target.gone().size());
    EXPECT_EQ(host_sessions_after, std::max(host_sessions + added - gone, 0));
    EXPECT_EQ(ioctl_required, added > 0 ? RESCAN : gone > 0 ? DELETE_DEAD_PATHS : 0);
    expect_nothing_held(*target.host);
    golden.heading(name + ": " + std::to_string(result) + ", added over " + target.added() + ", gone " + target.gone());
    golden.add_log(*target.host);
}

TEST(SessionBalance, AddsAndRemovesWhatIsMissingOrTooMuch) {
    struct Case {
        const char* sessions;
        int required, host_sessions;
    };
    const Case how_many[] = {{"dd", 4, 10},   {"ddp", 4, 10},   {"ddpp", 4, 10},   {"dddd", 4, 10},   {"dddpp", 4, 10},
                             {"dddd", 2, 10}, {"ddddp", 2, 10}, {"dddd", 2, 1},    {"dd", 4, 2038},   {"dd", 4, 2039},
                             {"dd", 4, 2040}, {"dd", 4, 2100},  {"dddd", 2, 2100}, {"ss3s", 5, 2100}, {"", 5, 2100}};
    // To the least used address, the first of equal ones, new ones count.
    const Case where_added[] = {{"ddd3d", 6, 4}, {"d3d", 5, 2},   {"dd3d2d", 7, 4}, {"xd3dd", 5, 4},
                                {"i3dd", 4, 3},  {"2s1dd", 3, 3}, {"x", 3, 1}};
    // Of the most used address, those that don't work first, never a static one.
    const Case which_removed[] = {{"ddd3ddd", 4, 6}, {"d3ddd", 2, 4}, {"bdd3d", 3, 4}, {"dxd", 2, 3}, {"ss3dd", 1, 4}};
    Golden golden("OstrelConnections", "balancing");
    for (const std::span<const Case> cases : {std::span<const Case>(how_many), {where_added}, {which_removed}}) {
        for (const Case& c : cases) {
            balance(golden, c.sessions, c.required, c.host_sessions);
        }
    }
    balance(golden, "ds3dd", 1, 4, {}, 5);
    balance(golden, "d3d", 5, 2, failing("IMA_VMW_AddSession", 2));
    balance(golden, "ddd3d", 2, 4, failing("IMA_VMW_RemoveSession"));
    balance(golden, "d3d", 4, 7, failing("new"));
    balance(golden, "d3d", 1, 7, failing("new"));
}

TEST(SessionList, LooksAtNoMoreRecordsThanThereAre) {
    TargetDtls record{};
    record.session_type = SESSION_DYNAMIC;
    record.current_local_ip[0] = 'A';
    const std::vector<TargetDtls> records(MAX_SESSIONS_PER_TARGET + 1, record);
    ip_session_list list[MAX_SESSION_LIST_ENTRIES] = {};
    int entries = 0;
    create_session_list(list, entries, MAX_SESSIONS_PER_TARGET + 1, records.data(), 1);
    EXPECT_EQ(list[0].count, MAX_SESSIONS_PER_TARGET);
}

TEST(SessionList, SortPutsLoggedInFirstAndMovesWholeSessions) {
    ip_session_list list{};
    for (const auto state :
         {SESSION_STATE_XPT_WAIT, SESSION_STATE_LOGGED_IN, SESSION_STATE_IN_LOGIN, SESSION_STATE_LOGGED_IN}) {
        list.isid[list.count][0] = list.vmhba_name[list.count][0] = static_cast<char>('0' + list.count);
        list.session_state[list.count++] = state;
    }
    sort_ip_session_list(&list, 1);
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(list.isid[k][0], "3120"[k]);
        EXPECT_EQ(list.vmhba_name[k][0], "3120"[k]);
    }
    EXPECT_EQ(list.session_state[1], SESSION_STATE_LOGGED_IN);
}
