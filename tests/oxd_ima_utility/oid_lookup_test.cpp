#include "oxd_ima_utility/oid_lookup.h"

#include "OstrelProvider/log.h"
#include "oxd_ima_utility/oid_cache.h"
#include "support/golden.h"
#include "support/host_test.h"
#include "support/ima_answers.h"
#include "support/site.h"

namespace {

using testing_support::empty_list;
using testing_support::failing;
using testing_support::Golden;
using testing_support::no_list;

class LookupTest : public testing_support::HostTest {
protected:
    std::string iqn;
    simhost::SessionView session;  // the second one of the second volume on its adapter
    IMA_OID oid{};

    LookupTest() : HostTest(testing_support::make_site()) {
        iqn = testing_support::add_volumes(*host, 2, 4)[1];
        session = host->sessions(iqn)[1];
        EXPECT_EQ(session.adapter, "vmhba64");
        log_level = 2;
    }
    int look_up(const std::string& isid, int bypass = 1) { return look_up("vmhba64", iqn, isid, bypass); }
    int look_up(const std::string& adapter, const std::string& target, const std::string& isid, int bypass) {
        IscsiOidQuery query;
        make_oid_query(query, adapter.c_str(), target.c_str(), isid.c_str());
        return iscsi_get_oids(query, oid, bypass);
    }
    bool is_cached(const std::string& adapter, const std::string& target, const std::string& isid = "") {
        return fetch_target_oid(adapter.c_str(), target.c_str(), isid.c_str(), oid) == 1;
    }
};

TEST_F(LookupTest, NamesMatchInFullAndWithCase) {
    EXPECT_EQ(look_up(session.isid), 0);
    EXPECT_EQ(oid.objectSequenceNumber, session.oid);
    EXPECT_EQ(look_up(""), 0);
    EXPECT_EQ(oid.objectType, IMA_OBJECT_TYPE_TARGET);
    std::string upper = session.isid;
    upper[7] = 'A';
    const std::string& isid = session.isid;
    const struct {
        std::string adapter, target, isid;
    } cases[] = {
        {"vmhba6", iqn, ""},
        {"VMHBA64", iqn, ""},
        {"vmhba640", iqn, ""},
        {"vmhba64", iqn.substr(0, iqn.size() - 1), ""},
        {"vmhba64", iqn + "0", ""},
        {"vmhba64", "I" + iqn.substr(1), ""},
        {"vmhba64", iqn, upper},
        {"vmhba64", iqn, isid + "0"},
        {"vmhba64", iqn, isid.substr(0, 16)},
    };
    Golden golden("oxd_ima_utility", "other_names");
    for (const auto& each : cases) {
        golden.heading(each.adapter + " " + each.target + " " + each.isid);
        EXPECT_EQ(look_up(each.adapter, each.target, each.isid, 0), -1);
        EXPECT_EQ(host->lists_held(), 0U);
        golden.add_log(*host);
    }
    dump_target_oids();  // none of them is kept
    golden.add_log(*host);
}

TEST_F(LookupTest, EveryFailureAndEmptyAnswerIsTold) {
    const struct {
        const char* operation;
        std::uint64_t nth = 1;
        int result = -1;
        bool is_list = true;
    } cases[] = {
        {"IMA_GetPhbaOidList"},
        {"IMA_VMW_GetLhbaOidList"},
        {"IMA_VMW_GetLhbaProperties", 1, -1, false},
        {"IMA_GetTargetOidList"},
        {"IMA_GetTargetProperties", 1, 0, false},
        {"IMA_GetTargetProperties", 2, -1, false},
        {"IMA_GetSessionOidList"},
        {"IMA_GetSessionProperties", 1, 0, false},
        {"IMA_GetSessionProperties", 2, -1, false},
        {"IMA_FreeMemory", 1, 0, false},
    };
    Golden golden("oxd_ima_utility", "lookup_failures");
    for (const auto& each : cases) {
        golden.heading(each.operation + std::string(" ") + std::to_string(each.nth));
        SCOPED_TRACE(each.operation);
        host->fail(failing(each.operation, each.nth));
        EXPECT_EQ(look_up(session.isid), each.result);
        host->clear_faults();
        if (each.is_list) {
            for (const auto answer : {empty_list, no_list}) {
                host->script_ima(each.operation, answer);
                EXPECT_EQ(look_up(session.isid), -1);
            }
            host->script_ima(each.operation, {});
        }
        EXPECT_EQ(host->lists_held(), 0U);
        golden.add_log(*host);
    }
    golden.heading("every session ends between the list and its properties");
    host->script_ima("IMA_GetSessionOidList", [&](void*, std::uint32_t status) {
        host->drop_sessions(iqn, 4);
        return status;
    });
    EXPECT_EQ(look_up(session.isid), -1);
    golden.add_log(*host);
}

// Nothing matches a name that is absent, that fills its record, or that another one begins with. A query whose name
// doesn't fit its field has an empty one.
TEST_F(LookupTest, NamesThatAreEmptyOrFillTheirRecordsMatchNothing) {
    std::size_t length = 11;
    host->script_ima("IMA_VMW_GetLhbaProperties", [&](void* out, std::uint32_t status) {
        std::fill_n(static_cast<IMA_VMW_LHBA_PROPERTIES*>(out)->osDeviceName, length, L'n');
        return status;
    });
    EXPECT_EQ(look_up(std::string(11, 'n'), iqn, "", 1), 0);
    EXPECT_EQ(look_up(std::string(12, 'n'), iqn, "", 1), -1);
    host->script_ima("IMA_VMW_GetLhbaProperties", {});
    host->script_ima("IMA_GetTargetProperties", [&](void* out, std::uint32_t status) {
        auto* const properties = static_cast<IMA_TARGET_PROPERTIES*>(out);
        std::fill(std::begin(properties->name), std::end(properties->name), L'\0');
        std::fill_n(properties->name, length, L'n');
        std::fill(std::begin(properties->alias), std::end(properties->alias), L'n');
        return status;
    });
    for (const std::size_t of_host : {0U, 222U, 223U, 224U}) {
        length = of_host;
        for (const std::size_t wanted : {0U, 222U, 223U, 224U, 225U, 255U, 256U}) {
            const bool equal = length == wanted && 0 < wanted && wanted < 224;
            EXPECT_EQ(look_up("vmhba64", std::string(wanted, 'n'), "", 1), equal ? 0 : -1) << length << " " << wanted;
        }
    }
}

TEST_F(LookupTest, AdaptersAreFoundOneByOneAndAllUpToTheRoomThereIs) {
    IMA_OID logical{};
    IMA_OID physical{};
    EXPECT_EQ(iscsi_get_hba_oids("vmhba65", &logical, &physical), 0);
    EXPECT_EQ(logical.objectType, IMA_OBJECT_TYPE_LHBA);
    EXPECT_EQ(physical.objectType, IMA_OBJECT_TYPE_PHBA);
    host->fail(failing("IMA_VMW_GetLhbaOidList"));  // of the other one
    EXPECT_EQ(iscsi_get_hba_oids("vmhba65", &logical, nullptr), 0);
    EXPECT_EQ(iscsi_get_hba_oids(nullptr, &logical, nullptr), -1);
    EXPECT_EQ(iscsi_get_hba_oids("vmhba65", nullptr, nullptr), -1);

    IMA_OID oids[MAX_LOGICAL_ADAPTERS];
    std::uint32_t count = 77;
    host->fail(failing("IMA_GetLhbaOidList"));
    EXPECT_EQ(iscsi_get_all_hba_oids(oids, count), -1);
    for (const auto answer : {empty_list, no_list}) {
        host->script_ima("IMA_GetLhbaOidList", answer);
        EXPECT_EQ(iscsi_get_all_hba_oids(oids, count), -1);
    }
    host->script_ima("IMA_GetLhbaOidList", {});
    host->fail(failing("IMA_FreeMemory"));
    for (std::uint32_t adapters = 2; adapters <= 40; ++adapters) {
        EXPECT_EQ(iscsi_get_all_hba_oids(oids, count), 0);
        EXPECT_EQ(count, std::min(adapters, 32U));
        host->add_adapter("vmhba" + std::to_string(100 + adapters), {"10.9.0." + std::to_string(adapters)});
    }
    EXPECT_EQ(oids[31].objectType, IMA_OBJECT_TYPE_LHBA);
    Golden("oxd_ima_utility", "adapters").add_log(*host);
}

// --- the cache --------------------------------------------------------------------------------------------

TEST_F(LookupTest, AnAnswerIsKeptUntilItIsForgotten) {
    EXPECT_EQ(look_up(session.isid, 0), 0);
    const auto calls = host->calls("IMA_GetSessionOidList");
    oid = {};
    EXPECT_EQ(look_up(session.isid, 0), 0);
    EXPECT_EQ(oid.objectSequenceNumber, session.oid);
    EXPECT_EQ(host->calls("IMA_GetSessionOidList"), calls);
    EXPECT_FALSE(is_cached("vmhba12", iqn, session.isid));
    EXPECT_EQ(look_up(session.isid, 1), 0);  // a hit is ignored, nothing is stored
    EXPECT_EQ(host->calls("IMA_GetSessionOidList"), calls + 1);
    invalidate_oid_record({14, 1, 999999});
    invalidate_oid_record(oid);
    EXPECT_EQ(look_up(session.isid, 0), 0);
    EXPECT_EQ(look_up("", 0), 0);
    dump_target_oids();
    refresh_target_oids_table();
    dump_target_oids();
    EXPECT_FALSE(is_cached("vmhba64", iqn));
    Golden("oxd_ima_utility", "cache").add_log(*host);
}

TEST_F(LookupTest, AFullCacheReusesForgottenPlacesOnly) {
    IscsiOidQuery query;
    const auto add = [&](std::uint64_t number) {
        make_oid_query(query, "vmhba64", ("iqn." + std::to_string(number)).c_str(), "");
        add_target_oid(query, {9, 1, number + 1});
    };
    const auto kept = [&](std::uint64_t number) {
        return is_cached("vmhba64", "iqn." + std::to_string(number)) && oid.objectSequenceNumber == number + 1;
    };
    for (std::uint64_t i = 0; i < MAX_TARGET_OIDS; ++i) {
        add(i);
    }
    EXPECT_TRUE(kept(0) && kept(MAX_TARGET_OIDS - 1));
    EXPECT_EQ(look_up(session.isid, 0), 0);
    EXPECT_FALSE(is_cached("vmhba64", iqn, session.isid));
    for (const std::uint64_t forgotten : {1023U, 512U}) {
        invalidate_oid_record({9, 1, forgotten + 1});
        EXPECT_FALSE(kept(forgotten));
    }
    add(5000);
    add(5001);
    add(5002);
    EXPECT_TRUE(kept(5000) && kept(5001) && kept(511) && kept(513));
    EXPECT_FALSE(kept(5002));
}

}  // namespace
