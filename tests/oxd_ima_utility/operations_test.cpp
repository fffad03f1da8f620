// Sessions, discovery, static targets and NICs through IMA.
#include <cstring>
#include <memory>

#include "OstrelConnections/psp/psp_client.h"
#include "OstrelProvider/log.h"
#include "common/text.h"
#include "oxd_ima_utility/discovery.h"
#include "oxd_ima_utility/nics.h"
#include "oxd_ima_utility/oid_cache.h"
#include "oxd_ima_utility/oid_lookup.h"
#include "oxd_ima_utility/session_operations.h"
#include "oxd_ima_utility/static_targets.h"
#include "support/host_test.h"
#include "support/site.h"

namespace {

using testing_support::failing;
using testing_support::ima_error;
using testing_support::Lines;

constexpr char NOT_FOUND[] = "ERROR iscsi_get_hba_oids: Error - adapter not found.";

class OperationsTest : public testing_support::HostTest {
protected:
    std::string iqn;
    simhost::SessionView session;

    OperationsTest() : HostTest(testing_support::make_site()) {
        iqn = testing_support::add_volumes(*host, 1, 4)[0];
        session = host->sessions(iqn)[0];
        log_level = 2;
        (void)said();
    }
    int count() { return testing_support::count_sessions(*host, iqn); }
    static std::string no_adapter(const std::string& function, const std::string& name) {
        return "ERROR " + function + ": iscsi_get_hba_oids returned rv = -1. adapter_name = " + name;
    }
};

TEST_F(OperationsTest, SessionsNeedTheirNames) {
    const std::string no_target = "ERROR create_sessions: Missing arguments. target not specified";
    const std::string no_adapter_name = "ERROR create_sessions: Missing arguments. adapter not specified";
    const std::string missing = "ERROR remove_session: Missing arguments. Target or adapter name not specified.";
    EXPECT_EQ(create_sessions("", "", ""), -1);
    EXPECT_EQ(create_sessions("vmhba64", "", ""), -1);
    EXPECT_EQ(create_sessions("", iqn.c_str(), ""), -1);
    EXPECT_EQ(said(), (Lines{no_target, no_target, no_adapter_name}));
    EXPECT_EQ(remove_session("", iqn.c_str(), session.isid.c_str()), -1);
    EXPECT_EQ(remove_session("vmhba64", "", session.isid.c_str()), -1);
    EXPECT_EQ(remove_session("vmhba64", iqn.c_str(), ""), -1);  // would be the target itself
    EXPECT_EQ(remove_session("vmhba64", iqn.c_str(), nullptr), -1);
    EXPECT_EQ(said(), Lines(4, missing));
    EXPECT_EQ(host->calls("IMA_GetPhbaOidList"), 0U);
}

TEST_F(OperationsTest, ASessionIsAddedToATargetOrLikeAnother) {
    EXPECT_EQ(create_sessions(session.adapter.c_str(), iqn.c_str(), session.isid.c_str()), 0);
    EXPECT_EQ(said().back(), "DEBUG create_sessions: AddSession Completed successfully.");
    EXPECT_EQ(host->sessions(iqn).back().local_ip, session.local_ip);
    EXPECT_EQ(create_sessions("vmhba65", iqn.c_str(), nullptr), 0);
    EXPECT_EQ(count(), 6);
    EXPECT_EQ(host->sessions(iqn).back().adapter, "vmhba65");
    (void)said();

    host->fail(failing("IMA_VMW_AddSession"));
    EXPECT_EQ(create_sessions("vmhba65", iqn.c_str(), ""), -1);
    EXPECT_EQ(said("ERROR"), (Lines{"ERROR create_sessions: Add Session failed.", ima_error("create_sessions")}));
    EXPECT_EQ(create_sessions("vmhba65", "iqn.none", "00:00:00:00:00:00"), -1);
    EXPECT_EQ(said("ERROR").back(),
              "ERROR create_sessions: Can not find a matching vmhba or target or session for the input. \n"
              "vmhba=vmhba65,target=iqn.none,session=00:00:00:00:00:00");
    EXPECT_EQ(count(), 6);
}

TEST_F(OperationsTest, ARemovedSessionIsForgottenAndAGoneOneNotFound) {
    const char* const adapter = session.adapter.c_str();
    EXPECT_EQ(create_sessions(adapter, iqn.c_str(), session.isid.c_str()), 0);  // caches it
    host->fail(failing("IMA_VMW_RemoveSession"));
    (void)said();
    EXPECT_EQ(remove_session(adapter, iqn.c_str(), session.isid.c_str()), -1);
    EXPECT_EQ(said(), (Lines{"ERROR remove_session: Remove Session failed.", ima_error("remove_session")}));
    EXPECT_EQ(remove_session(adapter, iqn.c_str(), session.isid.c_str()), 0);
    const Lines lines = said();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_TRUE(lines[0].starts_with("DEBUG invalidate_oid_record: Invalidated record, target_oids[0], isValid=0,"));
    EXPECT_EQ(lines[1], "DEBUG remove_session: RemoveSession Completed successfully.");
    EXPECT_EQ(count(), 4);

    const simhost::SessionView other = host->sessions(iqn)[0];
    EXPECT_EQ(create_sessions(other.adapter.c_str(), iqn.c_str(), other.isid.c_str()), 0);
    host->drop_session(other.oid);
    EXPECT_EQ(remove_session(other.adapter.c_str(), iqn.c_str(), other.isid.c_str()), -1);
    EXPECT_EQ(said().back(), "ERROR remove_session: Cannot find a matching session for the input.");
}

TEST_F(OperationsTest, DiscoveryIsRestartedAndItsOutcomeRead) {
    EXPECT_EQ(rediscover_iscsi_hba("vmhba65"), 0);
    EXPECT_EQ(said(), Lines{"DEBUG rediscover_iscsi_hba: Completed rediscovery on adapter vmhba65"});
    host->fail(failing("IMA_VMW_Rediscover"));
    EXPECT_EQ(rediscover_iscsi_hba("vmhba65"), -1);
    EXPECT_EQ(said(), (Lines{"ERROR rediscover_iscsi_hba: Unable to rediscover on adapter = vmhba65",
                             ima_error("rediscover_iscsi_hba")}));
    EXPECT_EQ(rediscover_iscsi_hba("vmhba1"), -1);
    EXPECT_EQ(said(), (Lines{NOT_FOUND, no_adapter("rediscover_iscsi_hba", "vmhba1")}));

    const std::pair<std::uint32_t, int> outcomes[] = {{0, 3}, {1, 2}, {2, 0}, {3, 1}, {4, 3}, {7, 3}, {UINT32_MAX, 3}};
    for (const auto& [host_status, outcome] : outcomes) {
        host->set_discovery_outcome("vmhba65", host_status);
        EXPECT_EQ(get_discover_iscsi_hba_status("vmhba65"), outcome) << host_status;
    }
    EXPECT_EQ(said(), Lines());
    host->fail(failing("IMA_VMW_GetDiscoveryStatus"));
    EXPECT_EQ(get_discover_iscsi_hba_status("vmhba65"), ISCSI_DISCOVERY_NO_STATUS);
    EXPECT_EQ(said(), (Lines{"ERROR get_discover_iscsi_hba_status: Unable to obtain the discovery status.",
                             ima_error("get_discover_iscsi_hba_status")}));
    EXPECT_EQ(get_discover_iscsi_hba_status("vmhba1"), ISCSI_DISCOVERY_NO_STATUS);
    EXPECT_EQ(said(), (Lines{NOT_FOUND, no_adapter("get_discover_iscsi_hba_status", "vmhba1")}));
}

// --- static targets ---------------------------------------------------------------------------------------

class StaticTargetsTest : public testing_support::HostTest {
protected:
    static constexpr char removal[] = " remove_iscsi_static_targets: ";
    const std::string not_there = std::string("WARN") + removal + "Static target to be removed not found";

    StaticTargetsTest() {
        host->add_adapter("vmhba64", {"10.0.1.1"});
        host->add_adapter("vmhba65", {"10.0.2.1"});
    }
    void add(const std::string& iqn, const std::string& ip, std::uint16_t port = 3260,
             const char* adapter = "vmhba64") {
        host->add_static_target({iqn, adapter, ip, port, false, false});
    }
    int remove(const std::vector<std::pair<std::string, std::string>>& wanted,
               std::vector<std::string> adapters = {"vmhba64"}) {
        std::vector<StaticTargetEntry> entries(wanted.size());
        for (std::size_t i = 0; i < wanted.size(); ++i) {
            oxr::copy_field(entries[i].target_iqn, wanted[i].first);
            oxr::copy_field(entries[i].target_ip, wanted[i].second);
        }
        const auto names = std::make_unique<AdapterName[]>(adapters.size());
        for (std::size_t i = 0; i < adapters.size(); ++i) {
            oxr::copy_field(names[i], adapters[i]);
        }
        return remove_iscsi_static_targets(entries.data(), static_cast<int>(entries.size()), 3260, names.get(),
                                           static_cast<int>(adapters.size()));
    }
    std::size_t left() { return host->static_targets().size(); }
    static std::string removed(const std::string& iqn, const std::string& ip) {
        return std::string("INFO") + removal + "Successfully removed static target " + iqn + ", ip = " + ip +
               ", port = 3260";
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
    EXPECT_EQ(remove({{"iqn.a", "10.0.9.1"}, {"", "10.0.9.1"}}), 0);
    EXPECT_EQ(said(), Lines(2, not_there));
    EXPECT_EQ(left(), std::size(others));
    add("iqn.a", "10.0.9.1");
    // A host name whose bytes read like the address.
    host->script_ima("IMA_VMW_GetStaticDiscoveryTargetProperties", [](void* out, std::uint32_t status) {
        static_cast<IMA_STATIC_DISCOVERY_TARGET_PROPERTIES*>(out)->staticTarget.targetAddress.hostnameInUse = 1;
        return status;
    });
    EXPECT_EQ(remove({{"iqn.a", "10.0.9.1"}}), 0);
    EXPECT_EQ(said(), Lines{not_there});
    host->script_ima("IMA_VMW_GetStaticDiscoveryTargetProperties", {});
    EXPECT_EQ(remove({{"iqn.a", "10.0.9.1"}, {"iqn.a", "10.0.9.1"}}), 0);
    EXPECT_EQ(said(), (Lines{removed("iqn.a", "10.0.9.1"), not_there}));
    EXPECT_EQ(left(), std::size(others));
    EXPECT_EQ(remove({}), 0);
    EXPECT_EQ(remove({{"iqn.a", "10.0.9.1"}}, {}), 0);
    EXPECT_EQ(said(), Lines());
}

TEST_F(StaticTargetsTest, ARemovedOneIsForgotten) {
    add("iqn.a", "10.0.9.1");
    IscsiOidQuery query{};
    oxr::copy_text(query.adapter_name, "vmhba64");
    oxr::copy_text(query.target_name, "iqn.a");
    host->script_ima("IMA_VMW_GetStaticDiscoveryTargetOidList", [&](void* out, std::uint32_t status) {
        add_target_oid(query, (*static_cast<IMA_OID_LIST**>(out))->oids[0]);
        return status;
    });
    EXPECT_EQ(remove({{"iqn.a", "10.0.9.1"}}), 0);
    IMA_OID oid{};
    EXPECT_EQ(fetch_target_oid("vmhba64", "iqn.a", "", oid), 0);
}

TEST_F(StaticTargetsTest, CredentialsAreWarnedAboutButGo) {
    host->add_static_target({"iqn.a", "vmhba64", "10.0.9.1", 3260, true, false});
    host->add_static_target({"iqn.b", "vmhba64", "10.0.9.1", 3260, true, false});
    host->fail(failing("IMA_VMW_GetInitiatorAuthParms", 2));
    EXPECT_EQ(remove({{"iqn.a", "10.0.9.1"}, {"iqn.b", "10.0.9.1"}}), 0);
    EXPECT_EQ(said(), (Lines{std::string("WARN") + removal +
                                 "CHAP is set for this static target name:iqn.a, "
                                 "portal_ip:10.0.9.1. It is going to be deleted and credentials will be lost.",
                             removed("iqn.a", "10.0.9.1"), removed("iqn.b", "10.0.9.1")}));
}

TEST_F(StaticTargetsTest, OneFailureMarksTheResultAndTheWorkGoesOn) {
    add("iqn.a", "10.0.9.1");
    add("iqn.b", "10.0.9.1");
    host->fail(failing("IMA_VMW_GetStaticDiscoveryTargetProperties"));
    EXPECT_EQ(remove({{"iqn.b", "10.0.9.1"}}), -1);
    EXPECT_EQ(said(), (Lines{std::string("ERROR") + removal + "Unable to get the static target properties",
                             ima_error("remove_iscsi_static_targets"), removed("iqn.b", "10.0.9.1")}));
    add("iqn.b", "10.0.9.1", 3260, "vmhba65");
    host->fail(failing("IMA_RemoveStaticDiscoveryTarget"));
    EXPECT_EQ(remove({{"iqn.a", "10.0.9.1"}, {"iqn.b", "10.0.9.1"}}, {"vmhba64", "vmhba65"}), -1);
    EXPECT_EQ(said(),
              (Lines{std::string("ERROR") + removal + "Unable to remove the static target",
                     ima_error("remove_iscsi_static_targets"), not_there, not_there, removed("iqn.b", "10.0.9.1")}));
    EXPECT_EQ(left(), 1U);
}

TEST_F(StaticTargetsTest, AnAdapterThatCannotBeHadEndsTheCall) {
    for (const char* const adapter : {"vmhba64", "vmhba65"}) {
        add("iqn.a", "10.0.9.1", 3260, adapter);
    }
    EXPECT_EQ(remove({{"iqn.a", "10.0.9.1"}}, {"vmhba64", "vmhba12", "vmhba65"}), -1);
    EXPECT_EQ(said(),
              (Lines{removed("iqn.a", "10.0.9.1"), NOT_FOUND,
                     std::string("ERROR") + removal + "iscsi_get_hba_oids returned rv = -1. adapter_name = vmhba12"}));
    host->fail(failing("IMA_VMW_GetStaticDiscoveryTargetOidList"));
    EXPECT_EQ(remove({{"iqn.a", "10.0.9.1"}}, {"vmhba65", "vmhba65"}), -1);
    EXPECT_EQ(said(), Lines{std::string("ERROR") + removal + "Unable to get static target list."});
    EXPECT_EQ(left(), 1U);
    host->script_ima("IMA_VMW_GetStaticDiscoveryTargetOidList", [](void* out, std::uint32_t status) {
        auto*& list = *static_cast<IMA_OID_LIST**>(out);
        IMA_FreeMemory(list);
        list = nullptr;
        return status;
    });
    EXPECT_EQ(remove({{"iqn.a", "10.0.9.1"}}, {"vmhba65"}), 0);
    EXPECT_EQ(said(), Lines{not_there});
}

TEST_F(StaticTargetsTest, AnyNumberOfThemAndNamesOfFullWidth) {
    for (int i = 0; i < 1100; ++i) {
        add("iqn." + std::to_string(i), "10.0.9.1");
    }
    EXPECT_EQ(remove({{"iqn.1099", "10.0.9.1"}, {"iqn.1024", "10.0.9.1"}, {"iqn.1023", "10.0.9.1"}}), 0);
    EXPECT_EQ(left(), 1097U);
    (void)said();
    host->script_ima("IMA_VMW_GetStaticDiscoveryTargetProperties", [](void* out, std::uint32_t status) {
        auto& target = static_cast<IMA_STATIC_DISCOVERY_TARGET_PROPERTIES*>(out)->staticTarget;
        std::fill(std::begin(target.targetName), std::end(target.targetName), L'n');
        target.targetAddress.hostnameInUse = 0x6e;
        return status;
    });
    EXPECT_EQ(remove({{std::string(224, 'n'), "10.0.9.1"}, {std::string(256, 'n'), std::string(20, '1')}}), 0);
    EXPECT_EQ(said(), Lines(2, not_there));
}

// --- NICs -------------------------------------------------------------------------------------------------

class NicsTest : public OperationsTest {
protected:
    const std::unique_ptr<OstrelPspIoctlGetTransportAddrsData> addrs =
        std::make_unique<OstrelPspIoctlGetTransportAddrsData>();
    std::vector<std::string> adapters = {"vmhba64", "vmhba65"};

    int count_nics(const char* eui, std::uint32_t setting = 0, bool with_addrs = true) {
        char device_eui[OSTREL_EUI_SIZE];
        oxr::copy_field(device_eui, eui);
        const auto names = std::make_unique<AdapterName[]>(adapters.size());
        for (std::size_t i = 0; i < adapters.size(); ++i) {
            oxr::copy_field(names[i], adapters[i]);
        }
        return get_num_nic(device_eui, names.get(), static_cast<int>(adapters.size()), setting,
                           with_addrs ? addrs.get() : nullptr);
    }
};

TEST_F(NicsTest, TheSettingWinsOverEverything) {
    EXPECT_EQ(count_nics("vol-0", 4), 4);
    EXPECT_EQ(count_nics("none", 1, false), 1);
    EXPECT_EQ(host->calls("IMA_GetPhbaOidList"), 0U);
    EXPECT_EQ(said(), Lines());
}

TEST_F(NicsTest, PathsTellTheLocalAddresses) {
    ASSERT_EQ(get_transport_addrs_ioctl(*addrs), 0);
    (void)said();
    log_level = 1;
    EXPECT_EQ(count_nics("vol-0"), 4);
    EXPECT_EQ(said(), Lines{"INFO get_num_nic: Found 4 vmknics by looking at the initiator ips."});
    OstrelPspTransportAddrs& device = addrs->devices[0];
    std::memcpy(device.paths[3].initiator_addr, device.paths[1].initiator_addr, sizeof device.paths[1].initiator_addr);
    log_level = 2;
    EXPECT_EQ(count_nics("vol-0"), 3);
    const Lines lines = said();
    EXPECT_EQ(lines[1], "DEBUG add_to_unique_ip_address_list: ip address " + session.local_ip +
                            " added to unique ip address list");
    EXPECT_EQ(lines[7].substr(lines[7].size() - 15), " already exists");
    device.num_paths = 0;  // found, so nobody else is asked
    EXPECT_EQ(count_nics("vol-0"), 0);
    EXPECT_EQ(said(), (Lines{"INFO get_num_nic: Found 0 vmknics by looking at the initiator ips.",
                             "ERROR get_num_nic: No nics found for this adapter."}));
    device.num_paths = OSTREL_MAX_PATHS_PER_DEVICE;
    for (int i = 0; i < OSTREL_MAX_PATHS_PER_DEVICE; ++i) {
        std::memset(&device.paths[i], 'a' + i, sizeof device.paths[i]);  // every text fills its field
    }
    EXPECT_EQ(count_nics("vol-0"), 32);
    std::memset(device.device_eui, 'e', sizeof device.device_eui);
    EXPECT_EQ(count_nics(std::string(40, 'e').c_str()), 32);
}

TEST_F(NicsTest, ADeviceThatIsNotListedIsCountedByItsAdapters) {
    ASSERT_EQ(get_transport_addrs_ioctl(*addrs), 0);
    (void)said();
    const std::string unlisted = "INFO get_num_nic: Could not find device vol-00 in the transport address list.";
    const std::string found = " vmknics bound to the iSCSI adapters.";
    EXPECT_EQ(count_nics("vol-00"), 4);
    EXPECT_EQ(said(), (Lines{unlisted, "INFO get_num_nic: Found 4" + found}));
    host->nic_down("10.0.1.1");
    EXPECT_EQ(count_nics("vol-0", 0, false), 3);
    EXPECT_EQ(said("INFO"), Lines{"INFO get_num_nic: Found 3" + found});
    adapters = {};
    EXPECT_EQ(count_nics("vol-0", 0, false), 0);
    EXPECT_EQ(said(),
              (Lines{"INFO get_num_nic: Found 0" + found, "ERROR get_num_nic: No nics found for this adapter."}));
    adapters = {"vmhba64", "vmhba12"};
    EXPECT_EQ(count_nics("vol-0", 0, false), -1);
    EXPECT_EQ(said(), (Lines{NOT_FOUND, no_adapter("get_num_nic", "vmhba12")}));
    adapters = {"vmhba64"};
    host->script_ima("IMA_VMW_GetNicOidList", [](void*, std::uint32_t) { return 0x80000004U; });  // with a list
    EXPECT_EQ(count_nics("vol-0", 0, false), -1);
    EXPECT_EQ(said(),
              (Lines{"ERROR get_num_nic: Unable to get nic list. Adapter name = vmhba64", ima_error("get_num_nic")}));
}

}  // namespace
