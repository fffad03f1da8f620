#include "OstrelConnections/mode_change/mode_change.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <functional>

#include "OstrelConnections/mode_change/mode_change_parts.h"
#include "ima/ima.h"
#include "oxd_ima_utility/oid_cache.h"
#include "support/engine.h"
#include "support/log_lines.h"
#include "support/site.h"

using namespace testing_support;
using simhost::GroupMode;
using simhost::Host;

namespace {

constexpr char to_automatic[] = "handle_manual_to_automatic_mode_change";
constexpr char to_manual[] = "handle_automatic_to_manual_mode_change";

// Volumes of the group "g" whose mode was switched to `now`: the arguments of the procedures.
struct Switched {
    std::unique_ptr<Host> host;
    std::vector<std::string> iqns;
    std::vector<OxrLun> luns;
    std::vector<mode_change_info> changes;

    Switched(GroupMode now, int volumes, int connections, const simhost::HostOptions& options = {},
             const std::vector<std::string>& adapters = {}) {
        refresh_target_oids_table();
        const bool to_dynamic = now == GroupMode::dynamic_discovery;
        host = make_site(2, to_dynamic ? GroupMode::static_discovery : GroupMode::dynamic_discovery, options);
        for (int v = 0; v < volumes; ++v) {
            simhost::VolumeSpec volume;
            volume.eui = "vol-" + std::to_string(v);
            volume.group = "g";
            volume.adapters = adapters;
            host->add_volume(volume);
            iqns.push_back(host->iqn_of(volume.eui));
            host->connect(iqns.back(), connections);
        }
        host->switch_mode("g", now);
        read();
    }
    void read() {
        luns.clear();
        changes.clear();
        for (const std::string& iqn : iqns) {
            luns.push_back(read_lun(iqn));
            const bool is_static = luns.back().group_mode == OSTREL_GROUP_MODE_STATIC;
            changes.push_back(
                {is_static ? AUTOMATIC_TO_MANUAL : MANUAL_TO_AUTOMATIC, static_cast<int>(changes.size())});
        }
    }
    int to_automatic() {
        return handle_manual_to_automatic_mode_change(changes.data(), static_cast<int>(changes.size()), luns.data());
    }
    int to_manual() {
        return handle_automatic_to_manual_mode_change(changes.data(), static_cast<int>(changes.size()), luns.data());
    }
};

}  // namespace

TEST(ManualToAutomatic, StepsAndMessages) {
    Switched site(GroupMode::dynamic_discovery, 2, 4);
    Lines requests;
    record_requests(*site.host, requests);
    EXPECT_EQ(site.to_automatic(), 0);
    const Lines expected = {
        "INFO Deleting all static targets other than those which have been selected to be deleted later",
        "INFO calling rediscover on adapter vmhba64 ",
        "INFO calling rediscover on adapter vmhba65 ",
        "INFO rescanning all adapters",
        "INFO removing all remaining static targets",
        "INFO deleting dead paths"};
    EXPECT_EQ(messages(*site.host, to_automatic), expected);
    std::erase_if(requests,
                  [](const std::string& line) { return line.starts_with("add ") || line.starts_with("remove "); });
    const Lines asked = {"dead paths vmhba64", "dead paths vmhba65", "rediscover vmhba64", "rediscover vmhba65",
                         "rescan vmhba64",     "rescan vmhba65",     "dead paths vmhba64", "dead paths vmhba65"};
    EXPECT_EQ(requests, asked);
    EXPECT_EQ(site.host->slept(), 4);
    for (const std::string& iqn : site.iqns) {
        EXPECT_EQ(count_static(*site.host, iqn), 0);
        EXPECT_EQ(count_dynamic(*site.host, iqn), 4);
        EXPECT_EQ(site.host->target(iqn).active_paths, 4);
        EXPECT_EQ(site.host->target(iqn).dead_paths, 0);
        EXPECT_FALSE(site.host->target(iqn).mode_changed);
    }
    EXPECT_EQ(site.host->static_targets().size(), 0U);
    expect_nothing_held(*site.host);
    // Once more, as when the PSP still reports the change: nothing is lost.
    EXPECT_EQ(site.to_automatic(), 0);
    EXPECT_EQ(count_dynamic(*site.host, site.iqns[0]), 4);
    expect_nothing_held(*site.host);
}

TEST(AutomaticToManual, StepsAndMessages) {
    Switched site(GroupMode::static_discovery, 2, 5);
    Lines requests;
    record_requests(*site.host, requests);
    EXPECT_EQ(site.to_manual(), 0);
    const Lines expected = {"INFO Getting session connection details for target iqn - " + site.iqns[0],
                            "INFO removing all dynamic(automatic) sessions but keeping back two",
                            "INFO Getting session connection details for target iqn - " + site.iqns[1],
                            "INFO removing all dynamic(automatic) sessions but keeping back two",
                            "INFO deleting dead paths",
                            "INFO calling rediscover on adapter vmhba64 ",
                            "INFO calling rediscover on adapter vmhba65 ",
                            "INFO rescanning all adapters",
                            "INFO removing all dynamic(automatic) targets",
                            "INFO deleting dead paths"};
    EXPECT_EQ(messages(*site.host, to_manual), expected);
    EXPECT_EQ(messages(*site.host, "remove_all_dynamic_mode_targets"), Lines{"INFO removed all targets"});
    EXPECT_EQ(std::count(requests.begin(), requests.end(), "remove " + site.iqns[0]), 3);
    EXPECT_EQ(std::count(requests.begin(), requests.end(), "rediscover vmhba64"), 1);
    for (const std::string& iqn : site.iqns) {
        EXPECT_EQ(count_dynamic(*site.host, iqn), 0);
        EXPECT_EQ(count_static(*site.host, iqn), 4);  // two arrays on each of two adapters
        EXPECT_EQ(site.host->target(iqn).dead_paths, 0);
    }
    expect_nothing_held(*site.host);
    // Once more: without two dynamic sessions to keep nothing is removed.
    EXPECT_EQ(site.to_manual(), 0);
    EXPECT_EQ(count_static(*site.host, site.iqns[0]), 4);
    EXPECT_EQ(count_lines(site.host->log(), "ERROR", "remove_all_dynamic_sessions_but_two", "atleast two"), 2);
}

TEST(ModeChanges, RunToTheEndOverPassesWithoutLosingTheLastSession) {
    for (const GroupMode now : {GroupMode::dynamic_discovery, GroupMode::static_discovery}) {
        for (const double login_seconds : {0.0, 3.0}) {
            SCOPED_TRACE(testing::Message() << (now == GroupMode::dynamic_discovery) << " " << login_seconds);
            // Discovery takes as long as the logins that it makes.
            simhost::HostOptions options;
            options.login_seconds = options.discovery_seconds = login_seconds;
            Switched site(now, 3, 4, options);
            int fewest = 99;
            site.host->observe([&](const simhost::Event&) {
                for (const std::string& iqn : site.iqns) {
                    const auto all = site.host->sessions(iqn);
                    fewest = std::min(fewest, static_cast<int>(std::count_if(all.begin(), all.end(), [](const auto& s) {
                                          return s.state == simhost::LOGGED_IN;
                                      })));
                }
            });
            for (int passes = 0; passes < 4; ++passes) {
                run_pass();
                site.host->advance(120);
            }
            EXPECT_GE(fewest, 1);
            for (const std::string& iqn : site.iqns) {
                EXPECT_FALSE(site.host->target(iqn).mode_changed);
                const bool dynamic = now == GroupMode::dynamic_discovery;
                EXPECT_EQ(dynamic ? count_static(*site.host, iqn) : count_dynamic(*site.host, iqn), 0);
                EXPECT_GE(count_sessions(*site.host, iqn), 4);
            }
            expect_nothing_held(*site.host);
        }
    }
}

TEST(ModeChanges, OfTheOtherDirectionTouchNothing) {
    for (const GroupMode now : {GroupMode::dynamic_discovery, GroupMode::static_discovery}) {
        Switched site(now, 1, 4);
        const std::uint64_t asked = site.host->calls("IMA_GetPhbaOidList");
        EXPECT_EQ(now == GroupMode::dynamic_discovery ? site.to_manual() : site.to_automatic(), 0);
        EXPECT_EQ(site.host->calls("IMA_GetPhbaOidList"), asked);
        EXPECT_EQ(site.host->calls("psp.5") + site.host->calls("psp.6"), 0U);
        EXPECT_EQ(site.host->log().find("INFO"), std::string::npos);
    }
}

TEST(ManualToAutomatic, KeepsTheBusiestPortalUntilTheEnd) {
    struct Case {
        const char* broken;  // a portal whose first session isn't logged in
        Lines removed_first;
    };
    for (const Case& c : {Case{"", {"10.0.9.2", "10.0.9.3"}}, Case{"10.0.9.1", {"10.0.9.1", "10.0.9.3"}},
                          Case{"10.0.9.3", {"10.0.9.2"}}}) {
        SCOPED_TRACE(c.broken);
        refresh_target_oids_table();
        const auto host = make_site(3, GroupMode::static_discovery);
        simhost::VolumeSpec volume;
        volume.eui = "vol";
        volume.group = "g";
        volume.adapters = {"vmhba64"};
        host->add_volume(volume);
        const std::string iqn = host->iqn_of("vol");
        host->connect(iqn, 0);  // one session for each portal
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
        Lines removed;
        host->observe([&](const simhost::Event& event) {
            if (event.kind == simhost::Event::Kind::static_target_removed) {
                removed.push_back(event.text);
            } else if (event.kind == simhost::Event::Kind::adapter_rediscovered) {
                removed.emplace_back("-");
            }
        });
        OxrLun lun = read_lun(iqn);
        const mode_change_info change{MANUAL_TO_AUTOMATIC, 0};
        EXPECT_EQ(handle_manual_to_automatic_mode_change(&change, 1, &lun), 0);
        EXPECT_EQ(Lines(removed.begin(), std::find(removed.begin(), removed.end(), "-")), c.removed_first);
        expect_nothing_held(*host);
    }
}

TEST(UniqueTargetIps, TakeStaticSessionsOfAnyStateAndPlace) {
    const auto host = make_host();
    log_level = 2;
    TargetDtls sessions[MAX_SESSIONS_PER_TARGET] = {};
    sessions[0] = make_record("a", "A", "P1", SESSION_STATE_FREE, SESSION_STATIC);
    sessions[1] = make_record("b", "A", "P2");  // dynamic
    sessions[2] = make_record("c", "A", "P1", SESSION_STATE_LOGGED_IN, SESSION_STATIC);
    sessions[31] = make_record("d", "A", "P3", SESSION_STATE_LOGGED_IN, SESSION_STATIC);
    UniqueIpAddress list[MAX_UNIQUE_IPS] = {};
    int count = 0;
    get_unique_target_ips(sessions, list, count);
    ASSERT_EQ(count, 2);
    EXPECT_STREQ(list[0], "P1");
    EXPECT_STREQ(list[1], "P3");
    const Lines expected = {"DEBUG target ip P1 is unique", "DEBUG target ip P1 is not unique",
                            "DEBUG target ip P3 is unique"};
    EXPECT_EQ(messages(*host, "get_unique_target_ips"), expected);
}

TEST(TargetSessionCounts, FirstOfTheBusiest) {
    const auto host = make_host();
    log_level = 2;
    UniqueIpAddress list[3] = {"P0", "P1", "P2"};
    struct Case {
        std::vector<std::pair<const char*, std::uint32_t>> sessions;  // address, state; static all
        int counts[3];
        int busiest;  // 9: not written
    };
    constexpr std::uint32_t in = SESSION_STATE_LOGGED_IN;
    const Case cases[] = {
        {{{"P0", in}, {"P1", in}, {"P1", in}, {"P2", in}, {"P2", in}}, {1, 2, 2}, 1},
        {{{"P0", in}, {"P1", in}, {"P2", in}}, {1, 1, 1}, 0},
        {{{"P0", 3}, {"P1", in}, {"P0", 0}}, {0, 1, 0}, 1},
        {{{"P0", 0}, {"P1", 2}}, {0, 0, 0}, 9},
        {{{"P0", in}, {"x", in}, {"P1", in}, {"P1", in}}, {1, 0, 0}, 0},  // "x" ends the list
    };
    for (const Case& c : cases) {
        TargetDtls sessions[MAX_SESSIONS_PER_TARGET] = {};
        for (std::size_t i = 0; i < c.sessions.size(); ++i) {
            sessions[i] = make_record("s", "A", c.sessions[i].first, c.sessions[i].second, SESSION_STATIC);
        }
        TargetSessionCount map[3] = {};
        int busiest = 9;
        get_target_session_count_map(list, 3, sessions, busiest, map);
        EXPECT_EQ(busiest, c.busiest);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(map[i].num_sessions, c.counts[i]);
            EXPECT_STREQ(map[i].target_ip, list[i]);
        }
    }
    const Lines logged = messages(*host, "get_target_session_count_map");
    EXPECT_EQ(logged[0], "DEBUG Finding session count for target P0 ");
    EXPECT_EQ(logged[1], "DEBUG comparing P0 to P0");
    EXPECT_EQ(logged[6], "DEBUG copied session count 1 ");
    EXPECT_EQ(logged[7], "DEBUG copied target ip P0 ");
    EXPECT_EQ(logged[8], "DEBUG This target has maximum sessions yet, session count = 1 ");
}

TEST(SessionsButTwo, KeepTheFirstTwoLoggedInDynamicOnes) {
    struct Case {
        const char* kinds;  // d: dynamic, b: dynamic but broken, p: login pending, s: static
        const char* left;   // positions
        int result;
    };
    for (const Case& c : {Case{"d", "0", -1}, Case{"dbps", "0123", -1}, Case{"dd", "01", 0}, Case{"dddd", "01", 0},
                          Case{"sbdpdd", "24", 0}, Case{"bbdd", "23", 0}, Case{"", "", -1}}) {
        SCOPED_TRACE(c.kinds);
        refresh_target_oids_table();
        const auto host = make_site();
        const std::string iqn = add_volumes(*host, 1, 0)[0];
        TargetDtls records[MAX_SESSIONS_PER_TARGET] = {};
        int n = 0;
        for (const char* kind = c.kinds; *kind != '\0'; ++kind, ++n) {
            const std::uint32_t state = *kind == 'b'   ? SESSION_STATE_FREE
                                        : *kind == 'p' ? SESSION_STATE_XPT_WAIT
                                                       : SESSION_STATE_LOGGED_IN;
            const bool dynamic = *kind == 'd' || *kind == 'b';
            host->add_session(session_of(iqn, "10.0.1.1", dynamic ? "10.0.9.100" : "10.0.9.1", "10.0.9.1", state));
            records[n] = make_record(host->sessions(iqn).back().isid, "10.0.1.1", "10.0.9.1", state,
                                     dynamic        ? SESSION_DYNAMIC
                                     : *kind == 'p' ? SESSION_LOGIN_PENDING
                                                    : SESSION_STATIC);
        }
        const auto before = host->sessions(iqn);
        host->switch_mode("g", GroupMode::static_discovery);
        EXPECT_EQ(remove_all_dynamic_sessions_but_two(records, iqn.c_str()), c.result);
        std::string left;
        for (std::size_t i = 0; i < before.size(); ++i) {
            for (const auto& session : host->sessions(iqn)) {
                left += session.oid == before[i].oid ? std::to_string(i) : "";
            }
        }
        EXPECT_EQ(left, c.left);
        if (c.result < 0) {
            EXPECT_EQ(messages(*host, "remove_all_dynamic_sessions_but_two"),
                      Lines{"ERROR atleast two dynamic(automatic) sessions are required per device"});
        }
        EXPECT_EQ(host->violations(), Lines{});
    }
}

TEST(SessionsButTwo, FailureIsWarnedAboutAndTheListEndsAtAnEmptyAddress) {
    const auto host = make_site();
    log_level = 2;
    const std::string iqn = add_volumes(*host, 1, 5)[0];
    const auto sessions = host->sessions(iqn);
    TargetDtls records[MAX_SESSIONS_PER_TARGET] = {};
    for (int i = 0; i < 5; ++i) {
        const auto& session = sessions[static_cast<std::size_t>(i)];
        records[i] = make_record(session.isid, session.local_ip, i == 4 ? "1" : "10.0.9.1", SESSION_STATE_LOGGED_IN,
                                 SESSION_DYNAMIC, session.adapter);
    }
    host->fail(fault("IMA_VMW_RemoveSession"));
    EXPECT_EQ(remove_all_dynamic_sessions_but_two(records, iqn.c_str()), 0);
    const std::string kept = "DEBUG Not deleting sessions with isid " + sessions[0].isid + " and " + sessions[1].isid;
    const Lines expected = {kept, kept,
                            "WARN wasn't able to remove session with isid " + sessions[2].isid + " and iqn " + iqn,
                            "INFO successfully removed session with isid " + sessions[3].isid + " and iqn " + iqn};
    EXPECT_EQ(messages(*host, "remove_all_dynamic_sessions_but_two"), expected);
    EXPECT_EQ(count_sessions(*host, iqn), 4);
}

TEST(Rediscovery, OutcomeDecides) {
    struct Case {
        int unreadable;  // reads that fail before the outcome
        std::uint32_t outcome;
        int result;
        double slept;
        const char* last;
    };
    const char done[] = "INFO Rediscovery completed on adapter vmhba64";
    const char failure[] = "ERROR Rediscovery failed with error code ISCSI_DISCOVERY_FAILURE";
    const char unknown[] = "ERROR Rediscovery failed with error code ISCSI_DISCOVERY_UNKNOWN";
    const Case cases[] = {
        {0, 2, 0, 0, done},
        {0, 3, -1, 0, failure},
        {0, 1, -1, 0, "ERROR Rediscovery failed with error code ISCSI_DISCOVERY_TIMEOUT"},
        {0, 0, -1, 0, unknown},
        {0, 7, -1, 0, unknown},
        {1, 2, 0, 2, done},
        {4, 2, 0, 8, done},
        {5, 2, 0, 10, done},
        {5, 3, -1, 10, failure},
        {6, 3, 0, 10, done},
        {99, 2, 0, 10, done},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.unreadable << " then " << c.outcome);
        const auto host = make_site();
        log_level = 2;
        host->set_discovery_outcome("vmhba64", c.outcome);
        for (int i = 1; i <= c.unreadable; ++i) {
            host->fail(fault("IMA_VMW_GetDiscoveryStatus", static_cast<std::uint64_t>(i)));
        }
        EXPECT_EQ(do_rediscover_on_adapter("vmhba64"), c.result);
        EXPECT_EQ(host->slept(), c.slept);
        const int rereads = std::min(c.unreadable, 5);
        EXPECT_EQ(host->calls("IMA_VMW_GetDiscoveryStatus"), static_cast<std::uint64_t>(rereads + 1));
        Lines expected(static_cast<std::size_t>(rereads),
                       "DEBUG sleeping before trying to get rediscovery status of adapter vmhba64 again");
        if (rereads == 5) {
            expected.emplace_back(
                "WARN retry attempts for getting rediscovery status of adapter vmhba64 have been exhausted");
        }
        expected.emplace_back(c.last);
        EXPECT_EQ(messages(*host, "do_rediscover_on_adapter"), expected);
    }
    // Whether the request itself could be made is not asked.
    const auto host = make_site();
    host->fail(fault("IMA_VMW_Rediscover"));
    EXPECT_EQ(do_rediscover_on_adapter("vmhba64"), 0);
}

TEST(ManualToAutomatic, WithoutDynamicSessionsTheStaticTargetsStay) {
    Switched site(GroupMode::dynamic_discovery, 1, 4);
    site.host->set_discovery_outcome("vmhba64", 3);
    site.host->set_discovery_outcome("vmhba65", 3);
    EXPECT_EQ(run_pass(), 0);
    EXPECT_EQ(count_static(*site.host, site.iqns[0]), 2);  // of the busiest portal, on both adapters
    const Lines all = messages(*site.host, "handle_ostrel_connections");
    EXPECT_EQ(all[2], "WARN manual to automatic mode change failed. Retrying once more.");
    EXPECT_EQ(all[3], "ERROR manual to automatic mode change failed twice.");
    EXPECT_EQ(count_lines(site.host->log(), "WARN", to_automatic, "rediscovery failed."), 4);
    EXPECT_EQ(count_lines(site.host->log(), "ERROR", to_automatic, "all static targets were not removed"), 2);
    EXPECT_EQ(count_lines(site.host->log(), "ERROR", "remove_all_static_targets",
                          "no dynamic(automatic) session present for target " + site.iqns[0]),
              2);
    expect_nothing_held(*site.host);
}

TEST(AutomaticToManual, WithoutStaticSessionsTheDynamicTargetsStay) {
    Switched site(GroupMode::static_discovery, 1, 4, {}, {"vmhba64"});
    site.host->set_discovery_outcome("vmhba64", 3);
    EXPECT_EQ(site.to_manual(), -1);
    EXPECT_EQ(count_dynamic(*site.host, site.iqns[0]), 2);
    EXPECT_EQ(count_lines(site.host->log(), "ERROR", to_manual, "rediscover failed."), 1);
    EXPECT_EQ(messages(*site.host, "remove_all_dynamic_mode_targets")[0],
              "ERROR no static(manual) sessions exist for this lun. Will not delete the target");
    EXPECT_EQ(messages(*site.host, to_manual).back(), "ERROR all dynamic(automatic) targets were not removed");
    expect_nothing_held(*site.host);
}

TEST(ModeChanges, FailuresOfSteps) {
    struct Case {
        const char* name;
        GroupMode now;
        simhost::Fault fault;
        int result;
        const char* operation;
        const char* message;
        bool new_kind_only;  // afterwards
    };
    constexpr GroupMode automatic = GroupMode::dynamic_discovery;
    constexpr GroupMode manual = GroupMode::static_discovery;
    const Case cases[] = {
        {"list memory", automatic, fault("new"), -1, to_automatic, "ERROR can not allocate memory for TargetDtls.",
         false},
        {"sessions", automatic, fault("IMA_GetTargetOidList"), -1, to_automatic,
         "ERROR populate_oxr_sessions returned -1. Can't get sessions for this target", false},
        {"dead paths", automatic, errno_fault("psp.6", EIO), 0, to_automatic,
         "ERROR ioctl for deleting dead paths failed.", true},
        {"rediscovery", automatic, status_fault("IMA_VMW_Rediscover", 1), 0, to_automatic, nullptr, true},
        {"rescan", automatic, errno_fault("psp.5", EIO, 2), -1, to_automatic, "ERROR ioctl for adapter rescan failed.",
         false},
        {"rescan, status", automatic, status_fault("psp.5", 6, 2), 0, to_automatic, nullptr, true},
        {"last dead paths", automatic, errno_fault("psp.6", EIO, 4), 0, to_automatic,
         "WARN failed to delete dead paths", true},
        {"sessions", manual, fault("IMA_GetTargetOidList"), -1, to_manual,
         "ERROR obtain_oxr_lun_sessions returned -1 = ", false},
        {"dead paths", manual, errno_fault("psp.6", EIO), 0, to_manual, "ERROR ioctl for deleting dead paths failed.",
         true},
        {"rescan", manual, errno_fault("psp.5", EIO, 2), -1, to_manual, "ERROR ioctl for adapter rescan failed.",
         false},
        {"final memory", manual, fault("new", 3), -1, "remove_all_dynamic_mode_targets",
         "ERROR can not allocate memory for TargetDtls.", false},
        {"removal", manual, fault("IMA_RemoveStaticDiscoveryTarget"), -1, "remove_all_dynamic_mode_targets",
         "ERROR Can't remove all targets", true},  // by the second entry of the same name
        {"last dead paths", manual, errno_fault("psp.6", EIO, 4), 0, to_manual,
         "ERROR ioctl for deleting dead paths failed.", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.operation << ": " << c.name);
        Switched site(c.now, 1, 4);
        site.host->count_allocations(true);
        site.host->fail(c.fault);
        EXPECT_EQ(c.now == automatic ? site.to_automatic() : site.to_manual(), c.result);
        EXPECT_EQ(site.host->blocks_held(), 0);
        site.host->count_allocations(false);
        EXPECT_EQ(site.host->faults_injected(), 1U);
        const Lines logged = messages(*site.host, c.operation);
        if (c.message != nullptr) {
            EXPECT_EQ(std::count(logged.begin(), logged.end(), c.message), 1);
        }
        const int of_old_kind =
            c.now == automatic ? count_static(*site.host, site.iqns[0]) : count_dynamic(*site.host, site.iqns[0]);
        EXPECT_EQ(of_old_kind == 0, c.new_kind_only);
        expect_nothing_held(*site.host);
        // The retry brings it to an end, as far as two dynamic sessions are left to tell from.
        site.host->advance(60);
        EXPECT_EQ(c.now == automatic ? site.to_automatic() : site.to_manual(), 0);
        EXPECT_EQ(c.now == automatic ? count_static(*site.host, site.iqns[0]) : count_dynamic(*site.host, site.iqns[0]),
                  0);
        expect_nothing_held(*site.host);
    }
}

TEST(ModeChanges, BeyondEightAdaptersAreLeftToTheNextPass) {
    for (const GroupMode now : {GroupMode::dynamic_discovery, GroupMode::static_discovery}) {
        refresh_target_oids_table();
        const bool dynamic = now == GroupMode::dynamic_discovery;
        const auto host = make_host();
        host->add_group({"g",
                         dynamic ? GroupMode::static_discovery : GroupMode::dynamic_discovery,
                         "10.0.9.100",
                         {{"a1", {"10.0.9.1"}}, {"a2", {"10.0.9.2"}}}});
        for (int v = 0; v < 9; ++v) {
            simhost::VolumeSpec volume;
            const std::string adapter = "vmhba" + std::to_string(v);
            host->add_adapter(adapter, {"10.0.1." + std::to_string(v), "10.0.2." + std::to_string(v)});
            volume.eui = "vol-" + std::to_string(v);
            volume.group = "g";
            volume.adapters = {adapter};
            host->add_volume(volume);
            host->connect(host->iqn_of(volume.eui), 3);
        }
        host->switch_mode("g", now);
        const std::string last = host->iqn_of("vol-8");
        run_pass();
        EXPECT_TRUE(host->target(last).mode_changed);
        EXPECT_EQ(dynamic ? count_static(*host, last) : count_dynamic(*host, last), 3);
        EXPECT_FALSE(host->target(host->iqn_of("vol-7")).mode_changed);
        EXPECT_EQ(count_lines(host->log(), "WARN", dynamic ? to_automatic : to_manual,
                              "More than 8 adapters. The mode change of target " + last + " is left to the next pass."),
                  1);
        run_pass();
        EXPECT_FALSE(host->target(last).mode_changed);
        expect_nothing_held(*host);
    }
}

TEST(RemoveList, FullListLeavesTheRestToTheNextPass) {
    const auto host = make_host();
    RemoveList list;
    for (int i = 0; i < 2049; ++i) {
        list.add("some_operation", "iqn.x", "10.0.9." + std::to_string(i));
    }
    EXPECT_EQ(list.count(), 2048);
    EXPECT_EQ(
        messages(*host, "some_operation"),
        Lines{"WARN 2048 static targets are to be removed already. Target iqn.x, ip 10.0.9.2048 is left to the next "
              "pass."});
}

TEST(FinalRemovals, WithoutEntriesThereIsNothingToDo) {
    const auto host = make_host();
    EXPECT_EQ(remove_all_static_targets(nullptr, 0, nullptr, nullptr, 0), 0);
    EXPECT_EQ(remove_all_dynamic_mode_targets(nullptr, 0, nullptr, nullptr, 0), 0);
    EXPECT_EQ(messages(*host, "remove_all_static_targets"), Lines{"INFO No static targets to remove"});
    EXPECT_EQ(messages(*host, "remove_all_dynamic_mode_targets"), Lines{"INFO No targets to remove"});
}

TEST(AdapterList, NamesStandOnceAndNeverBeyondEight) {
    const auto host = make_host();
    log_level = 2;
    UniqueAdapters adapters{};
    AdapterName names[9] = {"h0", "h1", "h2", "h3", "h4", "h5", "h6", "h7", "h8"};
    EXPECT_TRUE(add_to_unique_adapter_list(adapters.names, names[0], adapters.count));
    EXPECT_TRUE(add_to_unique_adapter_list(adapters.names, names[0], adapters.count));
    const Lines expected = {"DEBUG adapter h0 added to unique adapter array",
                            "DEBUG adapter h0 already exists in unique adapter array"};
    EXPECT_EQ(messages(*host, "add_to_unique_adapter_list"), expected);
    EXPECT_FALSE(add_all_adapters(adapters, names, 9));
    EXPECT_EQ(adapters.count, 1);
    EXPECT_TRUE(add_all_adapters(adapters, names, 8));
    EXPECT_EQ(adapters.count, 8);
    EXPECT_FALSE(add_to_unique_adapter_list(adapters.names, names[8], adapters.count));
    EXPECT_TRUE(add_to_unique_adapter_list(adapters.names, names[7], adapters.count));
    EXPECT_EQ(adapters.count, 8);
}
