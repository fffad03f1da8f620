#include "OstrelConnections/inventory/session_inventory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>

#include "common/text.h"
#include "ima/ima.h"
#include "support/engine.h"
#include "support/golden.h"
#include "support/ima_answers.h"
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

// What the inventory records of a volume: a line for each session, and the counts.
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
    taken.push_back(std::to_string(lun.num_sessions) + " sessions, " + std::to_string(lun.num_dynamic_sessions) +
                    " dynamic, " + std::to_string(lun.num_login_pending_sessions) + " log in");
    return taken;
}

using ImaScript = std::function<std::uint32_t(void*, std::uint32_t)>;
using Spoil = std::function<void(Host&, OxrLun&)>;

// The n-th answer of this operation, or each one when n is 0.
Spoil answered(const std::string& operation, const ImaScript& script, int nth = 0) {
    return [=](Host& host, OxrLun&) {
        const auto calls = std::make_shared<int>(0);
        host.script_ima(operation, [=](void* out, std::uint32_t status) {
            return nth == 0 || ++*calls == nth ? script(out, status) : status;
        });
    };
}

// Puts a value into the record that is answered.
template <typename Value>
ImaScript put(std::size_t offset, const Value& value) {
    return [=](void* out, std::uint32_t status) {
        std::memcpy(static_cast<char*>(out) + offset, &value, sizeof value);
        return status;
    };
}

// Each session of a volume that has two over each of two adapters, and what is said meanwhile.
void expect_inventory(Golden& golden, const std::string& name, const Spoil& spoil, int result) {
    golden.heading(name);
    SCOPED_TRACE(name);
    const auto host = make_site();
    OxrLun lun = read_lun(add_sessions(*host, {}, 2, 2));
    lun.num_sessions = 7;
    lun.num_dynamic_sessions = 5;
    lun.num_login_pending_sessions = 1;
    spoil(*host, lun);
    for (const std::string& line : take(lun, result)) {
        golden.heading(line);
    }
    golden.add_log(*host);
    expect_nothing_held(*host);
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
    golden.add_log(*host);
}

TEST(SessionInventory, AtMost32SessionsAreRecorded) {
    for (const auto& [on_first, on_second] : {std::pair(33, 0), {20, 20}, {16, 16}, {32, 1}}) {
        const auto host = make_site();
        OxrLun lun = read_lun(add_sessions(*host, on_second == 0 ? Lines{"vmhba64"} : Lines{}, on_first, on_second));
        const Lines taken = take(lun);
        EXPECT_EQ(taken.back(), "32 sessions, 32 dynamic, 0 log in");
        EXPECT_EQ(std::count_if(taken.begin(), taken.end(),
                                [](const std::string& line) { return line.find("vmhba64") != std::string::npos; }),
                  std::min(on_first, 32));
        EXPECT_EQ(count_lines(host->log(), "vol has exceeded 32 sessions"), on_first + on_second > 32);
        expect_nothing_held(*host);
    }
}

TEST(SessionInventory, FailureOnAnyAdapterVoidsItAll) {
    const auto flag_at = [](std::size_t offset, std::uint32_t flag) {  // that says whether an address is there
        return answered("IMA_VMW_GetConnectionStatus", put(offset, flag));
    };
    const std::pair<const char*, Spoil> cases[] = {
        {"no name", [](Host&, OxrLun& lun) { lun.target_iqn[0] = '\0'; }},
        {"no adapters", [](Host&, OxrLun& lun) { lun.num_adapters = 0; }},
        {"fewer than none", [](Host&, OxrLun& lun) { lun.num_adapters = -1; }},
        {"empty adapter name", [](Host&, OxrLun& lun) { lun.vmhba_name_array[1][0] = '\0'; }},
        {"adapter unknown", [](Host&, OxrLun& lun) { oxr::copy_field(lun.vmhba_name_array[1], "vmhba99"); }},
        {"second adapter empty", [](Host& host, OxrLun&) { host.drop_sessions(host.iqn_of("vol"), 2); }},
        {"list unreadable", [](Host& host, OxrLun&) { host.fail(failing("IMA_GetSessionOidList", 2)); }},
        {"connection address", flag_at(0, 0)},
        {"remote address", flag_at(24, 0)},
        {"local address", flag_at(48, 0)},
        {"flag neither 0 nor 1", flag_at(48, 2)},
    };
    Golden golden("OstrelConnections", "inventory_void");
    for (const auto& [name, spoil] : cases) {
        expect_inventory(golden, name, spoil, -1);
    }
}

TEST(SessionInventory, UnreadableSessionIsSkippedWithoutGap) {
    IMA_IP_ADDRESS v6{0, {}};
    std::memset(v6.ipAddress, 0xfe, sizeof v6.ipAddress);
    const std::pair<const char*, ImaScript> cases[] = {
        {"IMA_GetSessionProperties", ima_failure},    {"IMA_GetConnectionOidList", ima_failure},
        {"IMA_GetConnectionOidList", empty_list},     {"IMA_GetConnectionOidList", no_list},
        {"IMA_VMW_GetConnectionStatus", ima_failure}, {"IMA_VMW_GetConnectionStatus", put(4, v6)},
        {"IMA_VMW_GetConnectionStatus", put(28, v6)}, {"IMA_VMW_GetConnectionStatus", put(52, v6)}};
    Golden golden("OstrelConnections", "inventory_skipping");
    for (const auto& [operation, script] : cases) {
        for (const int nth : {2, 4}) {
            expect_inventory(golden, operation + (" of session " + std::to_string(nth)),
                             answered(operation, script, nth), 0);
        }
    }
}

TEST(HostSessions, AreCountedOverAdapters) {
    const auto host = make_site();
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
    expect_nothing_held(*host);
}
