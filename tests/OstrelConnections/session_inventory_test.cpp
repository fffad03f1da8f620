#include "OstrelConnections/inventory/session_inventory.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "common/text.h"
#include "ima/ima.h"
#include "oxd_ima_utility/oid_cache.h"
#include "support/engine.h"
#include "support/log_lines.h"
#include "support/site.h"

using namespace testing_support;
using simhost::Host;

namespace {

constexpr char inventory[] = "populate_oxr_sessions";

struct Inventory {
    TargetDtls records[MAX_SESSIONS_PER_TARGET] = {};
    int num_dynamic = 0;
    int num_total = 0;
    int num_login_pending = 0;
    int result = 0;
};

Inventory take(const IscsiProps& props) {
    Inventory taken;
    taken.result =
        populate_oxr_sessions(props, taken.records, taken.num_dynamic, taken.num_total, taken.num_login_pending);
    return taken;
}

// A volume "vol" that these adapters see, without sessions.
std::string add_volume(Host& host, const std::vector<std::string>& adapters) {
    simhost::VolumeSpec volume;
    volume.eui = "vol";
    volume.group = "g";
    volume.adapters = adapters;
    host.add_volume(volume);
    return host.iqn_of("vol");
}

void add_sessions(Host& host, const std::string& iqn, const std::string& local_ip, int count) {
    for (int i = 0; i < count; ++i) {
        host.add_session(session_of(iqn, local_ip, "10.0.9.100", "10.0.9.1"));
    }
}

}  // namespace

TEST(SessionInventory, KindFollowsFromAddressesAndState) {
    const auto host = make_site();
    const std::string iqn = add_volume(*host, {"vmhba64"});
    constexpr std::uint32_t states[] = {0, 1, 2, 3, 4, 5, 6, 7, 8};
    for (const std::uint32_t state : states) {
        host->add_session(session_of(iqn, "10.0.1.1", "10.0.9.100", "10.0.9.1", state));
        host->add_session(session_of(iqn, "10.0.1.2", "10.0.9.1", "10.0.9.1", state));
    }
    const Inventory taken = take(make_props(iqn, {"vmhba64"}));
    ASSERT_EQ(taken.result, 0);
    ASSERT_EQ(taken.num_total, 18);
    EXPECT_EQ(taken.num_dynamic, 9);
    EXPECT_EQ(taken.num_login_pending, 2);
    for (int i = 0; i < taken.num_total; i += 2) {
        const std::uint32_t state = states[i / 2];
        EXPECT_EQ(taken.records[i].session_type, SESSION_DYNAMIC) << "state " << state;
        EXPECT_EQ(taken.records[i + 1].session_type, state == 1 || state == 3 ? SESSION_LOGIN_PENDING : SESSION_STATIC)
            << "state " << state;
        EXPECT_EQ(taken.records[i].session_state, state);
    }
    EXPECT_EQ(count_lines(host->log(), "WARN", inventory, " has status "), 16);
}

TEST(SessionInventory, RecordHoldsWhatImaTells) {
    const auto host = make_site();
    log_level = 2;
    const std::string iqn = add_volume(*host, {"vmhba64"});
    simhost::SessionView session = session_of(iqn, "10.0.1.2", "10.0.9.100", "10.0.9.1");
    session.isid = "00:02:3d:01:00:1f";
    host->add_session(session);
    session = session_of(iqn, "10.0.1.1", "10.0.9.7", "10.0.9.7", simhost::XPT_WAIT);
    session.isid = "00:02:3d:01:00:ff";
    host->add_session(session);
    session = session_of(iqn, "10.0.1.1", "10.0.9.7", "10.0.9.7");
    session.isid = "ab:02:3d:01:00:01";
    host->add_session(session);

    const Inventory taken = take(make_props(iqn, {"vmhba64"}));
    ASSERT_EQ(taken.num_total, 3);
    EXPECT_EQ(taken.records[0].target_iqn, iqn);
    EXPECT_STREQ(taken.records[0].isid, "00:02:3d:01:00:1f");
    EXPECT_STREQ(taken.records[0].initial_remote_ip, "10.0.9.100");
    EXPECT_STREQ(taken.records[0].current_remote_ip, "10.0.9.1");
    EXPECT_STREQ(taken.records[0].current_local_ip, "10.0.1.2");
    EXPECT_STREQ(taken.records[0].vmhba_name, "vmhba64");
    const Lines expected = {
        "DEBUG Session isid = 00:02:3d:01:00:1f , conn_addr = 10.0.9.100 , remote_addr = 10.0.9.1 , session_type is "
        "DYNAMIC(AUTOMATIC)",
        "WARN Session 00:02:3d:01:00:ff has status XPT_WAIT.",
        "DEBUG Session isid = 00:02:3d:01:00:ff , conn_addr = 10.0.9.7 , remote_addr = 10.0.9.7 , session_type is "
        "DYNAMIC(AUTOMATIC) but in either XPT_WAIT or IN_LOGIN state",
        "DEBUG Session isid = ab:02:3d:01:00:01 , conn_addr = 10.0.9.7 , remote_addr = 10.0.9.7 , session_type is "
        "STATIC(MANUAL)"};
    EXPECT_EQ(messages(*host, inventory), expected);
}

TEST(SessionInventory, AtMost32SessionsAreRecorded) {
    struct Case {
        int on_first;
        int on_second;
        int recorded_on_second;
        int warnings;
    };
    for (const Case& c : {Case{32, 0, 0, 0}, Case{33, 0, 0, 1}, Case{20, 20, 12, 1}, Case{16, 16, 16, 0},
                          Case{32, 1, 0, 1}, Case{31, 1, 1, 0}}) {
        SCOPED_TRACE(std::to_string(c.on_first) + " + " + std::to_string(c.on_second));
        refresh_target_oids_table();
        const auto host = make_site();
        const std::string iqn = add_volume(*host, {});
        add_sessions(*host, iqn, "10.0.1.1", c.on_first);
        add_sessions(*host, iqn, "10.0.2.1", c.on_second);
        std::vector<std::string> adapters = {"vmhba64"};
        if (c.on_second > 0) {
            adapters.emplace_back("vmhba65");
        }
        const Inventory taken = take(make_props(iqn, adapters));
        EXPECT_EQ(taken.result, 0);
        EXPECT_EQ(taken.num_total, std::min(c.on_first, 32) + c.recorded_on_second);
        EXPECT_EQ(taken.num_dynamic, taken.num_total);
        for (int i = 0; i < taken.num_total; ++i) {
            EXPECT_STREQ(taken.records[i].vmhba_name, i < c.on_first ? "vmhba64" : "vmhba65");
        }
        const Lines expected(static_cast<std::size_t>(c.warnings),
                             "WARN volume: target_iqn = " + iqn + " has exceeded 32 sessions");
        EXPECT_EQ(messages(*host, inventory), expected);
        expect_nothing_held(*host);
    }
}

TEST(SessionInventory, FailureOnAnyAdapterVoidsItAll) {
    struct Case {
        const char* name;
        std::function<void(Host&, OxrLun&)> spoil;
        const char* message;
    };
    const auto without = [](std::size_t offset, std::uint32_t flag) {
        return [=](Host& host, OxrLun&) {
            host.script_ima("IMA_VMW_GetConnectionStatus", [=](void* out, std::uint32_t status) {
                std::memcpy(static_cast<char*>(out) + offset, &flag, sizeof flag);
                return status;
            });
        };
    };
    const Case cases[] = {
        {"no name", [](Host&, OxrLun& lun) { lun.target_iqn[0] = '\0'; }, "ERROR missing target name."},
        {"no adapters", [](Host&, OxrLun& lun) { lun.num_adapters = 0; }, "ERROR No adapters found"},
        {"fewer than none", [](Host&, OxrLun& lun) { lun.num_adapters = -1; }, "ERROR No adapters found"},
        {"empty adapter name", [](Host&, OxrLun& lun) { lun.vmhba_name_array[1][0] = '\0'; },
         "ERROR missing adapter name [1]."},
        {"target unknown", [](Host&, OxrLun& lun) { oxr::copy_field(lun.target_iqn, "iqn.none"); },
         "ERROR iscsi_get_oids returned -1"},
        {"adapter unknown", [](Host&, OxrLun& lun) { oxr::copy_field(lun.vmhba_name_array[1], "vmhba99"); },
         "ERROR iscsi_get_oids returned -1"},
        {"second adapter empty", [](Host& host, OxrLun&) { host.drop_sessions(host.iqn_of("vol"), 2); },
         "ERROR No sessions."},
        {"list unreadable", [](Host& host, OxrLun&) { host.fail(fault("IMA_GetSessionOidList", 2)); }, nullptr},
        {"connection address", without(0, 0), "ERROR Connection Address invalid"},
        {"remote address", without(24, 0), "ERROR Remote Address invalid"},
        {"local address", without(48, 0), "ERROR Local Address invalid"},
        {"flag neither 0 nor 1", without(48, 2), "ERROR Local Address invalid"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        refresh_target_oids_table();
        const auto host = make_site();
        const std::string iqn = add_volume(*host, {});
        add_sessions(*host, iqn, "10.0.1.1", 2);
        add_sessions(*host, iqn, "10.0.2.1", 2);
        OxrLun lun = read_lun(iqn);
        lun.num_sessions = 7;
        lun.num_dynamic_sessions = 5;
        lun.num_login_pending_sessions = 1;
        c.spoil(*host, lun);
        TargetDtls records[MAX_SESSIONS_PER_TARGET] = {};
        EXPECT_EQ(obtain_oxr_lun_sessions(lun, records), -1);
        EXPECT_EQ(lun.num_sessions, 7);
        EXPECT_EQ(lun.num_dynamic_sessions, 5);
        EXPECT_EQ(lun.num_login_pending_sessions, 1);
        EXPECT_EQ(messages(*host, inventory), c.message == nullptr ? Lines{} : Lines{c.message});
        expect_nothing_held(*host);
    }
}

TEST(SessionInventory, UnreadableListIsLoggedAsImaErrorOfThisOperation) {
    const auto host = make_site();
    const std::string iqn = add_volume(*host, {});
    add_sessions(*host, iqn, "10.0.1.1", 1);
    host->fail(status_fault("IMA_GetSessionOidList", IMA_ERROR_SYNC_TIMEOUT));
    EXPECT_EQ(take(make_props(iqn, {"vmhba64"})).result, -1);
    EXPECT_EQ(count_lines(host->log(), "ERROR", "do_print_ima_error_msg", "At function populate_oxr_sessions at line"),
              1);
    EXPECT_EQ(count_lines(host->log(), "", "", "of file OstrelConnections - got IMA Error: Timed Out waiting"), 1);
}

TEST(SessionInventory, UnreadableSessionIsSkippedWithoutGap) {
    const auto empty_list = [](void* out, std::uint32_t status) {
        (*static_cast<IMA_OID_LIST**>(out))->oidCount = 0;
        return status;
    };
    const auto no_list = [](void* out, std::uint32_t status) {
        auto** const list = static_cast<IMA_OID_LIST**>(out);
        IMA_FreeMemory(*list);
        *list = nullptr;
        return status;
    };
    struct Case {
        const char* operation;
        std::function<std::uint32_t(void*, std::uint32_t)> second_answer;  // empty: a failure
        Lines expected;
    };
    const Case cases[] = {
        {"IMA_GetSessionProperties", {}, {"ERROR IMA_GetSessionProperties failed."}},
        {"IMA_GetConnectionOidList", {}, {"ERROR IMA_GetConnectionOidList failed."}},
        {"IMA_GetConnectionOidList", empty_list, {"ERROR ptr_ConnOidList is NULL or empty."}},
        {"IMA_GetConnectionOidList", no_list, {"ERROR ptr_ConnOidList is NULL or empty."}},
        {"IMA_VMW_GetConnectionStatus", {}, {"ERROR IMA_VMW_GetConnectionStatus failed."}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.expected[0]);
        refresh_target_oids_table();
        const auto host = make_site();
        const std::string iqn = add_volume(*host, {"vmhba64"});
        add_sessions(*host, iqn, "10.0.1.1", 3);
        int calls = 0;
        if (c.second_answer) {
            host->script_ima(c.operation, [&](void* out, std::uint32_t status) {
                return ++calls == 2 ? c.second_answer(out, status) : status;
            });
        } else {
            host->fail(fault(c.operation, 2));
        }
        const Inventory taken = take(make_props(iqn, {"vmhba64"}));
        EXPECT_EQ(taken.result, 0);
        ASSERT_EQ(taken.num_total, 2);
        EXPECT_EQ(taken.num_dynamic, 2);
        const auto sessions = host->sessions(iqn);
        EXPECT_EQ(taken.records[0].isid, sessions[0].isid);
        EXPECT_EQ(taken.records[1].isid, sessions[2].isid);
        EXPECT_EQ(messages(*host, inventory), c.expected);
        expect_nothing_held(*host);
    }
}

TEST(SessionInventory, SessionWithIpv6AddressIsLeftOut) {
    for (const std::size_t slot : {0U, 24U, 48U}) {
        SCOPED_TRACE(slot);
        refresh_target_oids_table();
        const auto host = make_site();
        const std::string iqn = add_volume(*host, {"vmhba64"});
        add_sessions(*host, iqn, "10.0.1.1", 2);
        int calls = 0;
        host->script_ima("IMA_VMW_GetConnectionStatus", [&calls, slot](void* out, std::uint32_t status) {
            IMA_IP_ADDRESS v6{0, {}};
            std::memset(v6.ipAddress, 0xfe, sizeof v6.ipAddress);
            if (++calls == 2) {
                std::memcpy(static_cast<char*>(out) + slot + 4, &v6, sizeof v6);
            }
            return status;
        });
        const Inventory taken = take(make_props(iqn, {"vmhba64"}));
        EXPECT_EQ(taken.result, 0);
        EXPECT_EQ(taken.num_total, 1);
        // Readers that scan to the end of the list find nothing in the place that was begun.
        EXPECT_STREQ(taken.records[1].current_remote_ip, "");
        const char* const name = slot == 0 ? "Connection" : slot == 24 ? "Remote" : "Local";
        const Lines expected = {"WARN Session " + host->sessions(iqn)[1].isid + " has a " + name +
                                " address that is not IPv4. Leaving this session out."};
        EXPECT_EQ(messages(*host, inventory), expected);
    }
}

TEST(SessionInventory, ListThatCannotBeReleasedIsOnlyWarnedAbout) {
    const auto host = make_site();
    const std::string iqn = add_volume(*host, {"vmhba64"});
    add_sessions(*host, iqn, "10.0.1.1", 1);
    host->fail(lasting(fault("IMA_FreeMemory")));
    log_level = 2;
    EXPECT_EQ(take(make_props(iqn, {"vmhba64"})).num_total, 1);
    // One for the connections once they are classified, one for the sessions; lookups warn under their own names.
    Lines warned_after;
    std::string before;
    for (const LogLine& line : parse_log(host->log())) {
        if (line.operation == inventory && line.level == "WARN") {
            EXPECT_TRUE(line.text.starts_with("Could not free IMA Memory for function populate_oxr_sessions at line "));
            warned_after.push_back(line.module + " " + before);
        }
        before = line.level;
    }
    EXPECT_EQ(warned_after, (Lines{"OstrelConnections DEBUG", "OstrelConnections WARN"}));
    EXPECT_EQ(host->lists_held(), 0U);
}

TEST(SessionInventory, VolumeGetsItsCounts) {
    const auto host = make_site();
    const std::string iqn = add_volume(*host, {"vmhba64"});
    add_sessions(*host, iqn, "10.0.1.1", 3);
    host->add_session(session_of(iqn, "10.0.1.2", "10.0.9.1", "10.0.9.1", simhost::IN_LOGIN));
    host->add_session(session_of(iqn, "10.0.1.2", "10.0.9.1", "10.0.9.1"));
    OxrLun lun = read_lun(iqn);
    TargetDtls records[MAX_SESSIONS_PER_TARGET] = {};
    EXPECT_EQ(obtain_oxr_lun_sessions(lun, records), 0);
    EXPECT_EQ(lun.num_sessions, 5);
    EXPECT_EQ(lun.num_dynamic_sessions, 3);
    EXPECT_EQ(lun.num_login_pending_sessions, 1);
}

TEST(SessionInventory, StateTexts) {
    const char* const texts[] = {"FREE",      "XPT_WAIT",  "XPT_UP",           "IN_LOGIN",
                                 "LOGGED_IN", "IN_LOGOUT", "LOGOUT_REQUESTED", "CLEANUP_WAIT"};
    for (std::uint32_t state = 0; state < 8; ++state) {
        EXPECT_STREQ(OxrSessionStateStr(state), texts[state]);
    }
    EXPECT_STREQ(OxrSessionStateStr(8), "INVALID_STATE");
    EXPECT_STREQ(OxrSessionStateStr(static_cast<std::uint32_t>(-1)), "INVALID_STATE");
}

TEST(IscsiProps, NamesThatFillTheirFieldsAreKeptWhole) {
    char iqn[256];
    std::memset(iqn, 'q', sizeof iqn);
    AdapterName adapters[9];
    std::memset(adapters, 'a', sizeof adapters);
    IscsiProps props;
    std::memset(&props, 0x55, sizeof props);
    create_iscsi_props(iqn, 2, adapters, props);
    EXPECT_EQ(std::memcmp(props.target_iqn, iqn, sizeof iqn), 0);
    EXPECT_EQ(props.num_adapters, 2);
    EXPECT_EQ(oxr::field_view(props.vmhba_name_array[1]), "aaaaaaaaaaaa");
    EXPECT_EQ(oxr::field_view(props.vmhba_name_array[2]), "");
    create_iscsi_props(iqn, 9, adapters, props);
    EXPECT_EQ(props.num_adapters, OSTREL_MAX_ADAPTERS);
}

TEST(HostSessions, AreCountedOverAllAdapters) {
    const auto host = make_site();
    host->add_adapter("vmhba66", {"10.0.3.1"});
    const std::string iqn = add_volume(*host, {});
    add_sessions(*host, iqn, "10.0.1.1", 4);
    add_sessions(*host, iqn, "10.0.3.1", 6);
    log_level = 2;
    int count = 99;
    EXPECT_EQ(get_all_system_sessions(count, 2), 0);
    EXPECT_EQ(count, 10);
    EXPECT_EQ(host->slept(), 2);
    const Lines expected = {"DEBUG oid count = 3", "WARN No sessions present for adapter number 1",
                            "INFO total number of system sessions = 10"};
    EXPECT_EQ(messages(*host, "get_all_system_sessions"), expected);

    EXPECT_EQ(get_all_system_sessions(count, 0), 0);
    EXPECT_EQ(get_all_system_sessions(count, -1), 0);
    EXPECT_EQ(host->sleeps(), 1U);
    expect_nothing_held(*host);
}

TEST(HostSessions, UnreadableAdapterCountsNothing) {
    const auto host = make_site();
    const std::string iqn = add_volume(*host, {});
    add_sessions(*host, iqn, "10.0.1.1", 4);
    add_sessions(*host, iqn, "10.0.2.1", 3);
    host->fail(fault("IMA_GetSessionOidList"));
    int count = 99;
    EXPECT_EQ(get_all_system_sessions(count, 0), 0);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(count_lines(host->log(), "ERROR", "do_print_ima_error_msg", "At function get_all_system_sessions"), 1);
    EXPECT_EQ(count_lines(host->log(), "WARN", "get_all_system_sessions", "No sessions present for adapter number 0"),
              1);

    host->fail(fault("IMA_GetLhbaOidList"));
    count = 99;
    EXPECT_EQ(get_all_system_sessions(count, 0), -1);
    EXPECT_EQ(count, 99);
    EXPECT_EQ(count_lines(host->log(), "ERROR", "get_all_system_sessions",
                          "Could not obtain logical and physical hba oid list for the args specified."),
              1);
    expect_nothing_held(*host);
}

TEST(HostSessions, AdaptersBeyond32AreNotLookedAt) {
    const auto host = make_host();
    host->add_group({"g", simhost::GroupMode::dynamic_discovery, "10.0.9.100", {{"a1", {"10.0.9.1"}}}});
    for (int a = 0; a < 33; ++a) {
        host->add_adapter("vmhba" + std::to_string(a), {"10.0.1." + std::to_string(a)});
    }
    const std::string iqn = add_volume(*host, {});
    for (int a = 0; a < 33; ++a) {
        add_sessions(*host, iqn, "10.0.1." + std::to_string(a), 1);
    }
    int count = 0;
    EXPECT_EQ(get_all_system_sessions(count, 0), 0);
    EXPECT_EQ(count, 32);
    EXPECT_EQ(count_lines(host->log(), "WARN", "", "33 logical adapters found. Only the first 32 are looked at."), 1);
}
