// Sessions, discovery, static targets and NICs through IMA.
#include <cstring>
#include <memory>

#include "OstrelConnections/psp/psp_client.h"
#include "OstrelProvider/log.h"
#include "common/text.h"
#include "oxd_ima_utility/discovery.h"
#include "oxd_ima_utility/nics.h"
#include "oxd_ima_utility/oid_cache.h"
#include "oxd_ima_utility/session_operations.h"
#include "oxd_ima_utility/static_targets.h"
#include "support/golden.h"
#include "support/host_test.h"
#include "support/ima_answers.h"
#include "support/site.h"

namespace {

using namespace testing_support;

class OperationsTest : public testing_support::HostTest {
protected:
    std::string iqn;
    simhost::SessionView session;

    OperationsTest() : HostTest(testing_support::make_site()) {
        iqn = testing_support::add_volumes(*host, 1, 4)[0];
        session = host->sessions(iqn)[0];
        log_level = 2;
    }
    int create(const std::string& adapter, const std::string& target, const std::string& isid) {
        return create_sessions(adapter.c_str(), target.c_str(), isid.c_str());
    }
    int remove(const std::string& adapter, const std::string& target, const std::string& isid) {
        return remove_session(adapter.c_str(), target.c_str(), isid.c_str());
    }
};

TEST_F(OperationsTest, SessionsNeedTheirNames) {
    EXPECT_EQ(create("", "", ""), -1);
    EXPECT_EQ(create("vmhba64", "", ""), -1);
    EXPECT_EQ(create("", iqn, ""), -1);
    EXPECT_EQ(remove("", iqn, session.isid), -1);
    EXPECT_EQ(remove("vmhba64", "", session.isid), -1);
    EXPECT_EQ(remove("vmhba64", iqn, ""), -1);  // would be the target itself
    EXPECT_EQ(remove_session("vmhba64", iqn.c_str(), nullptr), -1);
    EXPECT_EQ(host->calls("IMA_GetPhbaOidList"), 0U);
    Golden("oxd_ima_utility", "missing_names").add_log(*host);
}

TEST_F(OperationsTest, SessionsAreAddedToATargetOrLikeAnotherAndRemoved) {
    Golden golden("oxd_ima_utility", "sessions");
    golden.follow(*host);
    EXPECT_EQ(create("vmhba64", iqn, session.isid), 0);
    EXPECT_EQ(create_sessions("vmhba65", iqn.c_str(), nullptr), 0);
    host->fail(failing("IMA_VMW_AddSession"));
    EXPECT_EQ(create("vmhba65", iqn, ""), -1);
    EXPECT_EQ(create("vmhba65", "iqn.none", "00:00:00:00:00:00"), -1);
    // One that is removed is forgotten, one that went by itself isn't found.
    host->fail(failing("IMA_VMW_RemoveSession"));
    EXPECT_EQ(remove("vmhba64", iqn, session.isid), -1);
    EXPECT_EQ(remove("vmhba64", iqn, session.isid), 0);
    const simhost::SessionView other = host->sessions(iqn)[0];
    EXPECT_EQ(create(other.adapter, iqn, other.isid), 0);
    host->drop_session(other.oid);
    EXPECT_EQ(remove(other.adapter, iqn, other.isid), -1);
    golden.add_log(*host);
}

TEST_F(OperationsTest, DiscoveryIsRestartedAndItsOutcomeRead) {
    EXPECT_EQ(rediscover_iscsi_hba("vmhba65"), 0);
    host->fail(failing("IMA_VMW_Rediscover"));
    EXPECT_EQ(rediscover_iscsi_hba("vmhba65"), -1);
    EXPECT_EQ(rediscover_iscsi_hba("vmhba1"), -1);
    const std::pair<std::uint32_t, int> outcomes[] = {{0, 3}, {1, 2}, {2, 0}, {3, 1}, {4, 3}, {7, 3}, {UINT32_MAX, 3}};
    for (const auto& [host_status, outcome] : outcomes) {
        host->set_discovery_outcome("vmhba65", host_status);
        EXPECT_EQ(get_discover_iscsi_hba_status("vmhba65"), outcome) << host_status;
    }
    host->fail(failing("IMA_VMW_GetDiscoveryStatus"));
    EXPECT_EQ(get_discover_iscsi_hba_status("vmhba65"), ISCSI_DISCOVERY_NO_STATUS);
    EXPECT_EQ(get_discover_iscsi_hba_status("vmhba1"), ISCSI_DISCOVERY_NO_STATUS);
    Golden("oxd_ima_utility", "discovery").add_log(*host);
}

// --- static targets ---------------------------------------------------------------------------------------

class StaticTargetsTest : public testing_support::HostTest {
protected:
    StaticTargetsTest() {
        host->add_adapter("vmhba64", {"10.0.1.1"});
        host->add_adapter("vmhba65", {"10.0.2.1"});
    }
    void add(const std::string& iqn, const char* adapter = "vmhba64", bool chap = false) {
        host->add_static_target({iqn, adapter, "10.0.9.1", 3260, chap, false});
    }
    // Lets each static target be read as changed.
    void alter(std::function<void(IMA_STATIC_DISCOVERY_TARGET&)> change) {
        host->script_ima("IMA_VMW_GetStaticDiscoveryTargetProperties", [change](void* out, std::uint32_t status) {
            change(static_cast<IMA_STATIC_DISCOVERY_TARGET_PROPERTIES*>(out)->staticTarget);
            return status;
        });
    }
    int remove(const Lines& iqns, const Lines& adapters = {"vmhba64"}, const std::string& ip = "10.0.9.1") {
        std::vector<StaticTargetEntry> entries(iqns.size());
        for (std::size_t i = 0; i < iqns.size(); ++i) {
            oxr::copy_field(entries[i].target_iqn, iqns[i]);
            oxr::copy_field(entries[i].target_ip, ip);
        }
        return remove_iscsi_static_targets(entries.data(), static_cast<int>(iqns.size()), 3260,
                                           names_of(adapters).get(), static_cast<int>(adapters.size()));
    }
};

TEST_F(StaticTargetsTest, OnlyTheSameNameAddressAndPortGo) {
    const simhost::StaticTargetView others[] = {
        {"iqn.a", "vmhba64", "10.0.9.1", 3261, false, false}, {"iqn.a", "vmhba64", "10.0.9.10", 3260, false, false},
        {"iqn.a", "vmhba64", "10.0.9.1", 3260, false, true},  {"iqn.ab", "vmhba64", "10.0.9.1", 3260, false, false},
        {"iqn.A", "vmhba64", "10.0.9.1", 3260, false, false}, {"iqn.a", "vmhba65", "10.0.9.1", 3260, false, false},
        {"", "vmhba64", "10.0.9.1", 3260, false, false},
    };
    for (const auto& each : others) {
        host->add_static_target(each);
    }
    EXPECT_EQ(remove({"iqn.a", ""}), 0);
    EXPECT_EQ(host->static_targets().size(), std::size(others));
    add("iqn.a");
    alter([](auto& target) { target.targetAddress.hostnameInUse = 1; });  // whose bytes read like the address
    EXPECT_EQ(remove({"iqn.a"}), 0);
    alter([](auto&) {});
    EXPECT_EQ(remove({"iqn.a", "iqn.a"}), 0);
    EXPECT_EQ(remove({}), 0);
    EXPECT_EQ(remove({"iqn.a"}, {}), 0);
    EXPECT_EQ(host->static_targets().size(), std::size(others));
    Golden("oxd_ima_utility", "static_targets").add_log(*host);
}

TEST_F(StaticTargetsTest, ARemovedOneIsForgotten) {
    add("iqn.a");
    IscsiOidQuery query;
    make_oid_query(query, "vmhba64", "iqn.a", "");
    host->script_ima("IMA_VMW_GetStaticDiscoveryTargetOidList", [&](void* out, std::uint32_t status) {
        add_target_oid(query, (*static_cast<IMA_OID_LIST**>(out))->oids[0]);
        return status;
    });
    EXPECT_EQ(remove({"iqn.a"}), 0);
    IMA_OID oid{};
    EXPECT_EQ(fetch_target_oid("vmhba64", "iqn.a", "", oid), 0);
}

TEST_F(StaticTargetsTest, FailuresMarkTheResultAndTheWorkGoesOnWhileThereIsAnAdapter) {
    Golden golden("oxd_ima_utility", "static_target_failures");
    const auto expect = [&](const char* what, int result, int expected, std::size_t left) {
        EXPECT_EQ(result, expected) << what;
        EXPECT_EQ(host->static_targets().size(), left) << what;
        golden.heading(what);
        golden.add_log(*host);
    };
    add("iqn.a", "vmhba64", true);
    add("iqn.b", "vmhba64", true);
    add("iqn.c");
    add("iqn.c", "vmhba65");
    host->fail(failing("IMA_VMW_GetInitiatorAuthParms"));
    expect("credentials unreadable", remove({"iqn.a"}), 0, 3);
    expect("credentials", remove({"iqn.b"}), 0, 2);
    add("iqn.d");
    host->fail(failing("IMA_VMW_GetStaticDiscoveryTargetProperties"));
    expect("properties", remove({"iqn.d"}), -1, 2);
    host->fail(failing("IMA_RemoveStaticDiscoveryTarget"));
    expect("removal", remove({"iqn.c", "iqn.d"}, {"vmhba64", "vmhba65"}), -1, 1);
    add("iqn.c", "vmhba65");
    expect("no such adapter", remove({"iqn.c"}, {"vmhba64", "vmhba12", "vmhba65"}), -1, 1);
    host->fail(failing("IMA_VMW_GetStaticDiscoveryTargetOidList"));
    expect("list", remove({"iqn.c"}, {"vmhba65", "vmhba65"}), -1, 1);
    host->script_ima("IMA_VMW_GetStaticDiscoveryTargetOidList", no_list);
    expect("no list", remove({"iqn.c"}, {"vmhba65"}), 0, 1);
}

TEST_F(StaticTargetsTest, AnyNumberOfThemAndNamesOfFullWidth) {
    for (int i = 0; i < 1100; ++i) {
        add("iqn." + std::to_string(i));
    }
    EXPECT_EQ(remove({"iqn.1099", "iqn.1024", "iqn.1023"}), 0);
    EXPECT_EQ(host->static_targets().size(), 1097U);
    alter([](auto& target) {
        std::fill(std::begin(target.targetName), std::end(target.targetName), L'n');
        target.targetAddress.hostnameInUse = 0x6e;
    });
    EXPECT_EQ(remove({std::string(224, 'n')}), 0);
    EXPECT_EQ(remove({std::string(256, 'n')}, {"vmhba64"}, std::string(20, '1')), 0);
    EXPECT_EQ(host->static_targets().size(), 1097U);
}

// --- NICs -------------------------------------------------------------------------------------------------

TEST_F(OperationsTest, NicsAreCountedBySettingPathsOrAdapters) {
    const auto addrs = std::make_unique<OstrelPspIoctlGetTransportAddrsData>();
    const auto count = [&](const std::string& eui, std::uint32_t setting = 0, bool with_addrs = true,
                           const Lines& adapters = {"vmhba64", "vmhba65"}) {
        char device_eui[OSTREL_EUI_SIZE];
        oxr::copy_field(device_eui, eui);
        return get_num_nic(device_eui, names_of(adapters).get(), static_cast<int>(adapters.size()), setting,
                           with_addrs ? addrs.get() : nullptr);
    };
    ASSERT_EQ(get_transport_addrs_ioctl(*addrs), 0);
    EXPECT_EQ(count("vol-0", 3), 3);
    EXPECT_EQ(count("none", 1, false), 1);
    EXPECT_EQ(host->calls("IMA_GetPhbaOidList"), 0U);
    EXPECT_EQ(count("vol-0"), 4);
    OstrelPspTransportAddrs& device = addrs->devices[0];
    std::memcpy(device.paths[3].initiator_addr, device.paths[1].initiator_addr, sizeof device.paths[1].initiator_addr);
    EXPECT_EQ(count("vol-0"), 3);
    device.num_paths = 0;  // found, so nobody else is asked
    EXPECT_EQ(count("vol-0"), 0);
    device.num_paths = OSTREL_MAX_PATHS_PER_DEVICE;
    for (int i = 0; i < OSTREL_MAX_PATHS_PER_DEVICE; ++i) {
        std::memset(&device.paths[i], 'A' + i, sizeof device.paths[i]);  // every text fills its field
    }
    EXPECT_EQ(count("vol-0"), 32);
    std::memset(device.device_eui, 'e', sizeof device.device_eui);
    EXPECT_EQ(count(std::string(40, 'e')), 32);

    EXPECT_EQ(count("vol-00"), 4);
    host->nic_down("10.0.1.1");
    EXPECT_EQ(count("vol-0", 0, false), 3);
    EXPECT_EQ(count("vol-0", 0, false, {}), 0);
    EXPECT_EQ(count("vol-0", 0, false, {"vmhba64", "vmhba12"}), -1);
    host->script_ima("IMA_VMW_GetNicOidList", ima_failure);  // with a list
    EXPECT_EQ(count("vol-0", 0, false, {"vmhba64"}), -1);
    Golden("oxd_ima_utility", "nics").add_log(*host);
}

}  // namespace
