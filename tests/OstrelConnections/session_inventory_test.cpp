#include "OstrelConnections/inventory/session_inventory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "common/text.h"
#include "ima/ima.h"
#include "support/engine.h"
#include "support/golden.h"
#include "support/log_lines.h"
#include "support/site.h"

using namespace testing_support;
using simhost::Host;

namespace {

// A volume "vol" that these adapters see, with sessions on the first NIC of each.
std::string add_sessions(Host& host, const Lines& adapters, int sessions, int on_second = 0) {
    const std::string iqn = add_volume(host, "vol", -1, adapters);
    for (int i = 0; i < sessions + on_second; ++i) {
        host.add_session(session_of(iqn, i < sessions ? "10.0.1.1" : "10.0.2.1", "10.0.9.100", "10.0.9.1"));
    }
    return iqn;
}

// What the inventory records of a volume: "ISID type" of each session.
Lines take(OxrLun& lun, int result = 0) {
    TargetDtls records[MAX_SESSIONS_PER_TARGET] = {};
    EXPECT_EQ(obtain_oxr_lun_sessions(lun, records), result);
    Lines taken;
    for (int i = 0; i < MAX_SESSIONS_PER_TARGET && records[i].current_remote_ip[0] != '\0'; ++i) {
        EXPECT_EQ(oxr::field_view(records[i].target_iqn), oxr::field_view(lun.target_iqn));
        taken.push_back(std::string(records[i].isid) + " " + std::to_string(records[i].session_type) + " on " +
                        records[i].vmhba_name + " " + records[i].current_local_ip + " from " +
                        records[i].initial_remote_ip + " to " + records[i].current_remote_ip);
    }
    return taken;
}

// Lets every session have this flag in place of the one that says that an address is there.
std::function<void(Host&, OxrLun&)> flag_at(std::size_t offset, std::uint32_t flag) {
    return [=](Host& host, OxrLun&) {
        host.script_ima("IMA_VMW_GetConnectionStatus", [=](void* out, std::uint32_t status) {
            std::memcpy(static_cast<char*>(out) + offset, &flag, sizeof flag);
            return status;
        });
    };
}

}  // namespace

TEST(SessionInventory, KindFollowsFromAddressesAndState) {
    const auto host = make_site();
    const std::string iqn = add_sessions(*host, {"vmhba64"}, 0);
    for (std::uint32_t state = 0; state <= 8; ++state) {
        host->add_session(session_of(iqn, "10.0.1.1", "10.0.9.100", "10.0.9.1", state));
        host->add_session(session_of(iqn, "10.0.1.2", "10.0.9.7", "10.0.9.7", state));
    }
    simhost::SessionView session = session_of(iqn, "10.0.1.2", "10.0.9.100", "10.0.9.1");
    session.isid = "ab:ff:1f:01:00:0a";
    host->add_session(session);
    log_level = 2;
    Golden golden("OstrelConnections", "inventory");
    OxrLun lun = read_lun(iqn);
    for (const std::string& line : take(lun)) {
        golden.heading(line);
    }
    EXPECT_EQ(lun.num_sessions, 19);
    EXPECT_EQ(lun.num_dynamic_sessions, 10);
    EXPECT_EQ(lun.num_login_pending_sessions, 2);
    golden.add_log(*host);
}

TEST(SessionInventory, AtMost32SessionsAreRecorded) {
    for (const auto& [on_first, on_second] : {std::pair(32, 0), {33, 0}, {20, 20}, {16, 16}, {32, 1}, {31, 1}}) {
        const auto host = make_site();
        OxrLun lun = read_lun(add_sessions(*host, on_second == 0 ? Lines{"vmhba64"} : Lines{}, on_first, on_second));
        const Lines taken = take(lun);
        ASSERT_EQ(taken.size(), 32U);
        EXPECT_EQ(std::count_if(taken.begin(), taken.end(),
                                [](const std::string& line) { return line.find("vmhba64") != std::string::npos; }),
                  std::min(on_first, 32));
        EXPECT_EQ(count_lines(host->log(), "WARN", "", "vol has exceeded 32 sessions"), on_first + on_second > 32);
        EXPECT_EQ(lun.num_dynamic_sessions, 32);
        expect_nothing_held(*host);
    }
}

TEST(SessionInventory, FailureOnAnyAdapterVoidsItAll) {
    const struct {
        const char* name;
        std::function<void(Host&, OxrLun&)> spoil;
    } cases[] = {
        {"no name", [](Host&, OxrLun& lun) { lun.target_iqn[0] = '\0'; }},
        {"no adapters", [](Host&, OxrLun& lun) { lun.num_adapters = 0; }},
        {"fewer than none", [](Host&, OxrLun& lun) { lun.num_adapters = -1; }},
        {"empty adapter name", [](Host&, OxrLun& lun) { lun.vmhba_name_array[1][0] = '\0'; }},
        {"target unknown", [](Host&, OxrLun& lun) { oxr::copy_field(lun.target_iqn, "iqn.none"); }},
        {"adapter unknown", [](Host&, OxrLun& lun) { oxr::copy_field(lun.vmhba_name_array[1], "vmhba99"); }},
        {"second adapter empty", [](Host& host, OxrLun&) { host.drop_sessions(host.iqn_of("vol"), 2); }},
        {"list unreadable", [](Host& host, OxrLun&) { host.fail(failing("IMA_GetSessionOidList", 2)); }},
        {"connection address", flag_at(0, 0)},
        {"remote address", flag_at(24, 0)},
        {"local address", flag_at(48, 0)},
        {"flag neither 0 nor 1", flag_at(48, 2)},
    };
    Golden golden("OstrelConnections", "inventory_void");
    for (const auto& c : cases) {
        golden.heading(c.name);
        SCOPED_TRACE(c.name);
        const auto host = make_site();
        OxrLun lun = read_lun(add_sessions(*host, {}, 2, 2));
        lun.num_sessions = 7;
        lun.num_dynamic_sessions = 5;
        lun.num_login_pending_sessions = 1;
        c.spoil(*host, lun);
        take(lun, -1);
        EXPECT_EQ(lun.num_sessions, 7);
        EXPECT_EQ(lun.num_dynamic_sessions, 5);
        EXPECT_EQ(lun.num_login_pending_sessions, 1);
        golden.add_log(*host);
        expect_nothing_held(*host);
    }
}

TEST(SessionInventory, UnreadableSessionIsSkippedWithoutGap) {
    const auto fails = [](void*, std::uint32_t) { return 0x80000004U; };
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
    const auto ipv6_at = [](std::size_t slot) {
        return [slot](void* out, std::uint32_t status) {
            IMA_IP_ADDRESS v6{0, {}};
            std::memset(v6.ipAddress, 0xfe, sizeof v6.ipAddress);
            std::memcpy(static_cast<char*>(out) + slot + 4, &v6, sizeof v6);
            return status;
        };
    };
    const struct {
        const char* operation;
        std::function<std::uint32_t(void*, std::uint32_t)> second_answer;
    } cases[] = {
        {"IMA_GetSessionProperties", fails},          {"IMA_GetConnectionOidList", fails},
        {"IMA_GetConnectionOidList", empty_list},     {"IMA_GetConnectionOidList", no_list},
        {"IMA_VMW_GetConnectionStatus", fails},       {"IMA_VMW_GetConnectionStatus", ipv6_at(0)},
        {"IMA_VMW_GetConnectionStatus", ipv6_at(24)}, {"IMA_VMW_GetConnectionStatus", ipv6_at(48)},
    };
    Golden golden("OstrelConnections", "inventory_skipping");
    for (const auto& c : cases) {
        for (const int sessions : {3, 2}) {
            golden.heading(std::string(c.operation) + ", the second of " + std::to_string(sessions));
            const auto host = make_site();
            OxrLun lun = read_lun(add_sessions(*host, {"vmhba64"}, sessions));
            const Lines all = take(lun);
            int calls = 0;
            host->script_ima(c.operation, [&](void* out, std::uint32_t status) {
                return ++calls == 2 ? c.second_answer(out, status) : status;
            });
            EXPECT_EQ(take(lun), sessions == 3 ? (Lines{all[0], all[2]}) : Lines{all[0]});
            EXPECT_EQ(lun.num_sessions, sessions - 1);
            EXPECT_EQ(lun.num_dynamic_sessions, sessions - 1);
            golden.add_log(*host);
            expect_nothing_held(*host);
        }
    }
}

TEST(SessionInventory, ListThatCannotBeReleasedIsOnlyWarnedAbout) {
    const auto host = make_site();
    OxrLun lun = read_lun(add_sessions(*host, {"vmhba64"}, 1));
    host->fail(lasting(failing("IMA_FreeMemory")));
    log_level = 2;
    EXPECT_EQ(take(lun).size(), 1U);
    Golden("OstrelConnections", "inventory_lists_kept").add_log(*host);
    EXPECT_EQ(host->lists_held(), 0U);
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

TEST(HostSessions, AreCountedOverAdaptersUpTo32) {
    const auto host = make_host();
    host->add_group({"g", simhost::GroupMode::dynamic_discovery, "10.0.9.100", {{"a1", {"10.0.9.1"}}}});
    for (int a = 1; a <= 3; ++a) {
        host->add_adapter("vmhba" + std::to_string(a), {"10.0." + std::to_string(a) + ".1"});
    }
    add_sessions(*host, {}, 4, 3);
    log_level = 2;
    Golden golden("OstrelConnections", "host_sessions");
    int count = 99;
    const auto expect_count = [&](int delay, int result, int expected) {
        const double slept = host->slept();
        EXPECT_EQ(get_all_system_sessions(count, delay), result);
        EXPECT_EQ(count, expected);
        EXPECT_EQ(host->slept() - slept, std::max(delay, 0));
        golden.add_log(*host);
    };
    expect_count(2, 0, 7);
    host->fail(failing("IMA_GetSessionOidList"));
    expect_count(-1, 0, 3);
    host->fail(failing("IMA_GetLhbaOidList"));
    expect_count(0, -1, 3);
    for (int a = 4; a <= 33; ++a) {
        host->add_adapter("vmhba" + std::to_string(a), {"10.0." + std::to_string(a) + ".1"});
        host->add_session(
            session_of(host->iqn_of("vol"), "10.0." + std::to_string(a) + ".1", "10.0.9.100", "10.0.9.1"));
    }
    expect_count(0, 0, 36);
    expect_nothing_held(*host);
}
