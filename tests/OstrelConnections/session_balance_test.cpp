#include "OstrelConnections/balancing/session_balance.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "OstrelConnections/balancing/session_list.h"
#include "common/text.h"
#include "oxd_ima_utility/oid_cache.h"
#include "support/engine.h"
#include "support/log_lines.h"
#include "support/site.h"

using namespace testing_support;
using simhost::Host;

namespace {

// A target with sessions over the NICs of make_site(), each session given by its NIC and state, and its records.
struct Site {
    struct Given {
        const char* local_ip;
        std::uint32_t state = simhost::LOGGED_IN;
        bool is_static = false;
    };
    std::unique_ptr<Host> host = make_site();
    std::string iqn = add_volumes(*host, 1, 0)[0];
    std::vector<simhost::SessionView> before;
    TargetDtls records[MAX_SESSIONS_PER_TARGET] = {};
    int num_total = 0;

    explicit Site(const std::vector<Given>& given) {
        refresh_target_oids_table();
        for (const Given& each : given) {
            host->add_session(
                session_of(iqn, each.local_ip, each.is_static ? "10.0.9.1" : "10.0.9.100", "10.0.9.1", each.state));
        }
        before = host->sessions(iqn);
        for (std::size_t i = 0; i < given.size(); ++i) {
            records[i] = make_record(before[i].isid, before[i].local_ip, before[i].current_remote_ip, before[i].state,
                                     given[i].is_static ? SESSION_STATIC : SESSION_DYNAMIC, before[i].adapter);
        }
        num_total = static_cast<int>(given.size());
    }

    // Local addresses of the sessions made since, in order.
    Lines added() const {
        Lines ips;
        for (const auto& session : host->sessions(iqn)) {
            if (session.oid > before.back().oid) {
                ips.push_back(session.local_ip);
            }
        }
        return ips;
    }
    // Which of the given sessions are gone, by position.
    std::vector<int> removed() const {
        std::vector<int> gone;
        for (std::size_t i = 0; i < before.size(); ++i) {
            const auto now = host->sessions(iqn);
            if (std::none_of(now.begin(), now.end(), [&](const auto& s) { return s.oid == before[i].oid; })) {
                gone.push_back(static_cast<int>(i));
            }
        }
        return gone;
    }
};

constexpr char a_1[] = "10.0.1.1";  // on vmhba64
constexpr char a_2[] = "10.0.1.2";  // on vmhba64
constexpr char b_1[] = "10.0.2.1";  // on vmhba65

}  // namespace

TEST(SessionBalance, ComparesRequiredWithDynamicAndPending) {
    struct Case {
        int required;
        int dynamic;
        int pending;
        int host_sessions;
        int result;
        int host_sessions_after;
        int ioctl_required;
    };
    const Case cases[] = {
        {4, 2, 0, 10, 2, 12, RESCAN},
        {4, 2, 1, 10, 1, 11, RESCAN},
        {4, 2, 2, 10, 0, 10, 0},
        {4, 4, 0, 10, 0, 10, 0},
        {4, 3, 2, 10, 0, 10, 0},
        {2, 4, 0, 10, 2, 8, DELETE_DEAD_PATHS},
        {2, 4, 1, 10, 0, 10, 0},
        {2, 4, 0, 1, 2, 0, DELETE_DEAD_PATHS},  // never below 0
        {4, 2, 0, 2038, 2, 2040, RESCAN},
        {4, 2, 0, 2039, 1, 2040, RESCAN},
        {4, 2, 0, 2040, 0, 2040, 0},
        {4, 2, 0, 2100, 0, 2100, 0},
        {2, 4, 0, 2100, 2, 2098, DELETE_DEAD_PATHS},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.required << "/" << c.dynamic << "/" << c.pending << "/"
                                        << c.host_sessions);
        std::vector<Site::Given> given(static_cast<std::size_t>(c.dynamic), Site::Given{a_1});
        Site site(given);
        int host_sessions = c.host_sessions;
        std::int32_t ioctl_required = 0;
        EXPECT_EQ(handle_num_sessions(site.iqn.c_str(), site.records, c.required, host_sessions, c.dynamic, c.dynamic,
                                      c.pending, ioctl_required),
                  c.result);
        EXPECT_EQ(host_sessions, c.host_sessions_after);
        EXPECT_EQ(ioctl_required, c.ioctl_required);
        const int change = c.ioctl_required == RESCAN ? c.result : -c.result;
        EXPECT_EQ(count_sessions(*site.host, site.iqn), c.dynamic + change);
        expect_nothing_held(*site.host);
    }
}

TEST(SessionBalance, MessagesOfAddingWithinTheRoom) {
    Site site({{a_1}, {b_1}});
    int host_sessions = 2039;
    std::int32_t ioctl_required = 0;
    handle_num_sessions(site.iqn.c_str(), site.records, 5, host_sessions, 2, 2, 0, ioctl_required);
    const Lines balancing = {
        "INFO number of sessions required = 5, number of dynamic(automatic) sessions = 2, total current sessions = "
        "2number of login pending sessions = 0",
        "INFO total system sessions = 2039. Max sessions which can be created are 1 but required are 3",
        "INFO Creating 1 sessions for this volume - " + site.iqn};
    EXPECT_EQ(messages(*site.host, "handle_num_sessions"), balancing);
    const Lines adding = {"INFO add_isid_sessions : Duplicating session " + site.before[0].isid +
                              " with IP : 10.0.1.1, adapter_name : vmhba64",
                          "INFO Cloned 1 number of sessions successfully."};
    EXPECT_EQ(messages(*site.host, "add_isid_sessions"), adding);

    host_sessions = 2041;
    handle_num_sessions(site.iqn.c_str(), site.records, 5, host_sessions, 2, 2, 0, ioctl_required);
    EXPECT_EQ(messages(*site.host, "handle_num_sessions")[4],
              "INFO system has already reached the max number of sessions supported by oxr");
    EXPECT_EQ(messages(*site.host, "handle_num_sessions")[5],
              "INFO total system sessions = 2041. Max sessions which can be created are 0 but required are 3");
}

TEST(SessionBalance, MessagesOfRemoving) {
    Site site({{a_1}, {a_1}, {b_1}});
    int host_sessions = 3;
    std::int32_t ioctl_required = 0;
    handle_num_sessions(site.iqn.c_str(), site.records, 2, host_sessions, 3, 3, 0, ioctl_required);
    const Lines balancing = {
        "INFO number of sessions required = 2, number of dynamic(automatic) sessions = 3, total current sessions = "
        "3number of login pending sessions = 0",
        "INFO Removing 1 sessions for this volume - " + site.iqn + ".",
        "INFO remove_isid_sessions removed some sessions. Set ioctl call required to DELETE_DEAD_PATHS"};
    EXPECT_EQ(messages(*site.host, "handle_num_sessions"), balancing);
    const Lines removing = {
        "INFO Removing session " + site.before[1].isid + " with IP : 10.0.1.1 , adapter_name : vmhba64 for " + site.iqn,
        "INFO total number of sessions removed  = 1"};
    EXPECT_EQ(messages(*site.host, "remove_isid_sessions"), removing);
}

TEST(SessionBalance, WithoutDynamicSessionsNothingIsDone) {
    Site site({{a_1, simhost::LOGGED_IN, true}, {b_1, simhost::LOGGED_IN, true}, {b_1, simhost::LOGGED_IN, true}});
    int host_sessions = 2100;
    std::int32_t ioctl_required = 0;
    EXPECT_EQ(handle_num_sessions("iqn.x", site.records, 5, host_sessions, 0, 3, 0, ioctl_required), 0);
    EXPECT_EQ(handle_num_sessions("iqn.x", site.records, 5, host_sessions, 0, 0, 0, ioctl_required), 0);
    EXPECT_EQ(host_sessions, 2100);
    EXPECT_EQ(ioctl_required, 0);
    const Lines logged = messages(*site.host, "handle_num_sessions");
    EXPECT_EQ(logged[2], "WARN No dynamic(automatic) sessions present for iqn.x");
    EXPECT_EQ(logged[4], "WARN No sessions present for iqn.x");
    EXPECT_EQ(site.host->calls("IMA_VMW_AddSession") + site.host->calls("IMA_VMW_RemoveSession"), 0U);
}

TEST(AddingSessions, GoesToTheLeastUsedAddressAndItsFirstSession) {
    struct Case {
        const char* name;
        std::vector<Site::Given> given;
        int to_add;
        Lines added;
    };
    constexpr std::uint32_t in = simhost::LOGGED_IN;
    const Case cases[] = {
        {"fewest first", {{a_1}, {a_1}, {a_1}, {b_1}}, 2, {b_1, b_1}},
        {"the first on a tie", {{a_1}, {b_1}}, 3, {a_1, b_1, a_1}},
        {"new ones count", {{a_1}, {a_1}, {b_1}, {a_2}}, 3, {b_1, a_2, a_1}},
        {"XPT_WAIT is no template and doesn't count", {{a_1, simhost::XPT_WAIT}, {a_1}, {b_1}, {b_1}}, 1, {a_1}},
        {"IN_LOGIN is one", {{a_1, simhost::IN_LOGIN}, {b_1}, {b_1}}, 1, {a_1}},
        {"static ones aren't there", {{a_2, in, true}, {a_1}, {a_1}}, 1, {a_1}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Site site(c.given);
        EXPECT_EQ(add_isid_sessions(c.to_add, site.iqn.c_str(), site.num_total, site.records), c.to_add);
        EXPECT_EQ(site.added(), c.added);
    }
    // Every duplicate is one of the entry's first session.
    Site site({{a_1}, {a_1}});
    add_isid_sessions(2, site.iqn.c_str(), 2, site.records);
    EXPECT_EQ(count_lines(site.host->log(), "INFO", "add_isid_sessions", "Duplicating session " + site.before[0].isid),
              2);
}

TEST(AddingSessions, StopsAtTheFirstFailure) {
    Site site({{a_1}, {b_1}});
    site.host->fail(fault("IMA_VMW_AddSession", 2));
    int host_sessions = 2;
    std::int32_t ioctl_required = 0;
    EXPECT_EQ(handle_num_sessions(site.iqn.c_str(), site.records, 5, host_sessions, 2, 2, 0, ioctl_required), 1);
    EXPECT_EQ(host_sessions, 3);
    EXPECT_EQ(ioctl_required, RESCAN);
    EXPECT_EQ(site.host->calls("IMA_VMW_AddSession"), 2U);
    EXPECT_EQ(messages(*site.host, "add_isid_sessions")[2], "ERROR create_sessions failed with retval = -1");
    EXPECT_EQ(messages(*site.host, "add_isid_sessions")[3], "INFO Cloned 1 number of sessions successfully.");
    EXPECT_EQ(messages(*site.host, "handle_num_sessions").back(),
              "ERROR add_isid_sessions was able to create 1 out of requested 3 sessions");
    expect_nothing_held(*site.host);
}

TEST(AddingSessions, WithoutTemplateNothingIsCreated) {
    Site site({{a_1, simhost::XPT_WAIT}});
    EXPECT_EQ(add_isid_sessions(2, site.iqn.c_str(), 1, site.records), 0);
    const Lines expected = {"INFO add_isid_sessions : Duplicating session  with IP : , adapter_name : ",
                            "ERROR create_sessions failed with retval = -1",
                            "INFO Cloned 0 number of sessions successfully."};
    EXPECT_EQ(messages(*site.host, "add_isid_sessions"), expected);
    EXPECT_EQ(site.host->calls("IMA_VMW_AddSession"), 0U);
}

TEST(RemovingSessions, GoesFromTheMostUsedAddressBrokenOnesFirst) {
    struct Case {
        const char* name;
        std::vector<Site::Given> given;
        int to_remove;
        std::vector<int> removed;
    };
    constexpr std::uint32_t in = simhost::LOGGED_IN;
    const Case cases[] = {
        {"last of each on a tie", {{a_1}, {a_1}, {a_1}, {b_1}, {b_1}, {b_1}}, 2, {2, 5}},
        {"the most used", {{a_1}, {b_1}, {b_1}, {b_1}}, 2, {2, 3}},
        {"not logged in first", {{a_1, simhost::FREE}, {a_1}, {a_1}, {b_1}}, 1, {0}},
        {"XPT_WAIT too", {{a_1}, {a_1, simhost::XPT_WAIT}, {a_1}}, 1, {1}},
        {"never a static one", {{a_1, in, true}, {a_1, in, true}, {b_1}, {b_1}}, 1, {3}},
        {"more than there are", {{a_1}, {a_1, in, true}, {b_1}, {b_1}}, 3, {0, 2, 3}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Site site(c.given);
        EXPECT_EQ(remove_isid_sessions(c.to_remove, site.iqn.c_str(), site.num_total, site.records),
                  static_cast<int>(c.removed.size()));
        EXPECT_EQ(site.removed(), c.removed);
    }
}

TEST(RemovingSessions, EndsWhenNothingIsLeft) {
    Site site({{a_1}, {b_1}, {b_1}});
    int host_sessions = 3;
    std::int32_t ioctl_required = 0;
    // Counts that came with a PSP record may exceed the sessions there are.
    EXPECT_EQ(handle_num_sessions(site.iqn.c_str(), site.records, 1, host_sessions, 5, 3, 0, ioctl_required), 3);
    EXPECT_EQ(host_sessions, 0);
    EXPECT_EQ(messages(*site.host, "remove_isid_sessions").back(), "ERROR Cannot remove session.");
    EXPECT_EQ(messages(*site.host, "handle_num_sessions")[2],
              "ERROR remove_isid_sessions was able to delete 3 out of requested 4 sessions");
    // Without entries there is nothing to say.
    TargetDtls none[1] = {make_record("i", "", "")};
    EXPECT_EQ(remove_isid_sessions(1, site.iqn.c_str(), 1, none), 0);
    EXPECT_EQ(messages(*site.host, "remove_isid_sessions").back(), "ERROR Cannot remove session.");
}

TEST(RemovingSessions, FailedOneIsNotTriedAgain) {
    Site site({{a_1}, {a_1}, {a_1}, {b_1}});
    site.host->fail(fault("IMA_VMW_RemoveSession"));
    EXPECT_EQ(remove_isid_sessions(2, site.iqn.c_str(), 4, site.records), 1);
    EXPECT_EQ(site.removed(), std::vector<int>{1});
    EXPECT_EQ(messages(*site.host, "remove_isid_sessions")[1], "ERROR removing session failed.");
    EXPECT_EQ(messages(*site.host, "remove_isid_sessions").back(), "INFO total number of sessions removed  = 1");
    // Sessions that went by themselves are asked of IMA anew, and left alone.
    site.host->drop_session(site.before[0].oid);
    EXPECT_EQ(remove_isid_sessions(1, site.iqn.c_str(), 1, site.records), 0);
    EXPECT_EQ(site.host->calls("IMA_VMW_RemoveSession"), 2U);
    expect_nothing_held(*site.host);
}

TEST(SessionBalance, WithoutMemoryNothingIsDone) {
    struct Case {
        int required;
        const char* operation;
        const char* message;
    };
    for (const Case& c : {Case{4, "add_isid_sessions", "ERROR failed while adding sessions"},
                          Case{1, "remove_isid_sessions", "ERROR failed while removing sessions"}}) {
        Site site({{a_1}, {b_1}});
        site.host->count_allocations(true);
        site.host->fail(fault("new"));
        int host_sessions = 7;
        std::int32_t ioctl_required = 0;
        EXPECT_LT(
            handle_num_sessions(site.iqn.c_str(), site.records, c.required, host_sessions, 2, 2, 0, ioctl_required), 0);
        site.host->count_allocations(false);
        EXPECT_EQ(host_sessions, 7);
        EXPECT_EQ(ioctl_required, 0);
        EXPECT_EQ(messages(*site.host, c.operation), Lines{"ERROR calloc failed"});
        EXPECT_EQ(messages(*site.host, "handle_num_sessions").back(), c.message);
        EXPECT_EQ(count_sessions(*site.host, site.iqn), 2);
    }
}

TEST(SessionList, GroupsByLocalAddress) {
    const auto host = make_host();
    log_level = 2;
    const TargetDtls records[] = {
        make_record("s0", "A", "R", SESSION_STATE_LOGGED_IN, SESSION_STATIC),
        make_record("d1", "B", "R"),
        make_record("d2", "A", "R", SESSION_STATE_XPT_WAIT),
        make_record("d3", "", ""),
        make_record("p4", "A", "R", SESSION_STATE_IN_LOGIN, SESSION_LOGIN_PENDING),
        make_record("d5", "B", "R", SESSION_STATE_LOGGED_IN, SESSION_DYNAMIC, "vmhba65"),
        make_record("d6", "", "R"),
        make_record("d7", "", "R"),
    };
    ip_session_list list[MAX_SESSION_LIST_ENTRIES] = {};
    int entries = 0;
    create_session_list(list, entries, 8, records, 1);
    ASSERT_EQ(entries, 3);
    EXPECT_STREQ(list[0].local_ip, "B");
    ASSERT_EQ(list[0].count, 2);
    EXPECT_STREQ(list[0].isid[1], "d5");
    EXPECT_STREQ(list[0].vmhba_name[1], "vmhba65");
    EXPECT_STREQ(list[1].local_ip, "A");
    EXPECT_EQ(list[1].count, 1);
    EXPECT_STREQ(list[1].isid[0], "p4");
    EXPECT_STREQ(list[2].local_ip, "");
    EXPECT_EQ(list[2].count, 2);
    const std::string skipped =
        " is of STATIC(MANUAL) type or in XPT_WAIT state and ignore XPT_WAIT sessions flag is set to true. Skipping "
        "this session.";
    const Lines expected = {"INFO session s0" + skipped,
                            "DEBUG Copying session - d1 to ip_session_list[0]->0",
                            "DEBUG ip_session_list[0]->isid[0] = d1",
                            "INFO session d2" + skipped,
                            "DEBUG Ignoring active array sessions during removal. session id d3 vmhba vmhba64",
                            "DEBUG Copying session - p4 to ip_session_list[1]->0",
                            "DEBUG ip_session_list[1]->isid[0] = p4",
                            "DEBUG Copying session - d6 to ip_session_list[2]->0",
                            "DEBUG ip_session_list[2]->isid[0] = d6"};
    EXPECT_EQ(messages(*host, "create_session_list"), expected);

    ip_session_list with_waiting[MAX_SESSION_LIST_ENTRIES] = {};
    create_session_list(with_waiting, entries, 8, records, 0);
    EXPECT_STREQ(with_waiting[1].isid[0], "d2");
    EXPECT_EQ(with_waiting[1].count, 2);
}

TEST(SessionList, LooksAtNoMoreRecordsThanThereAre) {
    const auto host = make_host();
    const std::vector<TargetDtls> records(MAX_SESSIONS_PER_TARGET + 1, make_record("d", "A", "R"));
    ip_session_list list[MAX_SESSION_LIST_ENTRIES] = {};
    int entries = 0;
    create_session_list(list, entries, MAX_SESSIONS_PER_TARGET + 1, records.data(), 1);
    EXPECT_EQ(list[0].count, MAX_SESSIONS_PER_TARGET);
}

TEST(SessionList, SortPutsLoggedInFirst) {
    struct Case {
        std::vector<std::uint32_t> states;
        const char* order;  // positions as they stood before
    };
    const Case cases[] = {
        {{1, 4, 3, 4}, "3120"},
        {{4, 4, 4}, "012"},
        {{}, ""},
        {{1}, "0"},
        {{1, 3}, "01"},
        {{4, 1}, "01"},
        {{1, 4}, "10"},
        {{1, 4, 4}, "210"},
        {{4, 1, 1, 4, 4}, "04321"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.order);
        ip_session_list list[1] = {};
        for (const std::uint32_t state : c.states) {
            const int k = list[0].count++;
            list[0].session_state[k] = state;
            list[0].isid[k][0] = list[0].vmhba_name[k][0] = static_cast<char>('0' + k);
        }
        sort_ip_session_list(list, 1);
        std::string order;
        for (int k = 0; k < list[0].count; ++k) {
            order += list[0].isid[k];
            EXPECT_STREQ(list[0].isid[k], list[0].vmhba_name[k]);
            EXPECT_EQ(list[0].session_state[k], c.states[static_cast<std::size_t>(list[0].isid[k][0] - '0')]);
        }
        EXPECT_EQ(order, c.order);
    }
}

TEST(ActivePaths, ProtectSessionsOfTheirArrayAddress) {
    const auto host = make_host();
    log_level = 2;
    const auto target = std::make_unique<OstrelPspGroupScopedTarget>();
    const auto addrs = std::make_unique<OstrelPspIoctlGetTransportAddrsData>();
    const std::string full_eui(OSTREL_EUI_SIZE, 'e');
    oxr::copy_field(target->luns[0].device_eui, "unknown");
    oxr::copy_field(target->luns[1].device_eui, full_eui);
    target->num_luns = 2;
    const auto add = [&](int device, const char* remote, int active) {
        OstrelPspTransportAddrs& entry = addrs->devices[device];
        OstrelPspTransportPath& path = entry.paths[entry.num_paths++];
        oxr::copy_field(path.target_addr, remote);
        path.is_active = active;
    };
    oxr::copy_field(addrs->devices[0].device_eui, "other");
    oxr::copy_field(addrs->devices[1].device_eui, full_eui);
    oxr::copy_field(addrs->devices[2].device_eui, full_eui);  // only the first entry of a device counts
    addrs->num_devices = 3;
    add(0, "10.0.9.2", 1);
    add(1, "10.0.9.1", 7);
    add(1, "10.0.9.3", 0);
    add(2, "10.0.9.4", 1);
    TargetDtls records[] = {make_record("r0", "A", "10.0.9.1"),  make_record("r1", "A", "10.0.9.2"),
                            make_record("r2", "B", "10.0.9.3"),  make_record("r3", "B", "10.0.9.4"),
                            make_record("r4", "B", "10.0.9.11"), make_record("r5", "B", "10.0.9.1")};
    exclude_active_array_sessions_from_remove(*target, *addrs, records, 5);
    EXPECT_STREQ(records[0].current_local_ip, "");
    EXPECT_STREQ(records[0].current_remote_ip, "");
    for (int r = 1; r < 6; ++r) {
        EXPECT_STRNE(records[r].current_remote_ip, "") << "r" << r;  // r5 is beyond the count
    }
    const Lines expected = {
        "DEBUG Got matching device from transport address list " + full_eui,
        "DEBUG Marking active sessions for device " + full_eui + " with local_ip A and remote ip 10.0.9.1 as NULL"};
    EXPECT_EQ(messages(*host, "exclude_active_array_sessions_from_remove"), expected);
}
