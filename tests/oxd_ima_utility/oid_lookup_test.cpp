#include "oxd_ima_utility/oid_lookup.h"

#include <cstring>
#include <thread>

#include "OstrelProvider/log.h"
#include "oxd_ima_utility/ima_text.h"
#include "oxd_ima_utility/oid_cache.h"
#include "support/host_test.h"
#include "support/site.h"

namespace {

using testing_support::failing;
using testing_support::ima_error;
using testing_support::Lines;

constexpr char NOT_FOUND[] = "ERROR iscsi_get_hba_oids: Error - adapter not found.";

// Replaces the list that an IMA call hands out by one of these OIDs (null: by no list).
std::function<std::uint32_t(void*, std::uint32_t)> answering(const std::vector<IMA_OID>* oids) {
    return [oids](void* out, std::uint32_t) -> std::uint32_t {
        auto*& list = *static_cast<IMA_OID_LIST**>(out);
        if (oids == nullptr || list == nullptr || list->oidCount < oids->size()) {
            IMA_FreeMemory(list);
            list = nullptr;
            return IMA_STATUS_SUCCESS;
        }
        list->oidCount = oids->size();
        std::copy(oids->begin(), oids->end(), list->oids);
        return IMA_STATUS_SUCCESS;
    };
}

const std::vector<IMA_OID> nothing;

class LookupTest : public testing_support::HostTest {
protected:
    std::string iqn;
    simhost::SessionView session;
    IMA_OID oid{};

    LookupTest() : HostTest(testing_support::make_site()) {
        iqn = testing_support::add_volumes(*host, 2, 4)[1];
        // The second one on the first adapter.
        int on_adapter = 0;
        for (const simhost::SessionView& each : host->sessions(iqn)) {
            if (each.adapter == "vmhba64" && ++on_adapter == 2) {
                session = each;
            }
        }
        log_level = 2;
    }
    int look_up(const char* isid, int bypass = 1) {
        return look_up(session.adapter.c_str(), iqn.c_str(), isid, bypass);
    }
    int look_up(const char* adapter, const char* target, const char* isid, int bypass) {
        IscsiOidQuery query;
        make_oid_query(query, adapter, target, isid);
        return iscsi_get_oids(query, oid, bypass);
    }
};

TEST_F(LookupTest, FindsSessionsByIsidAndTargetsWithoutOne) {
    EXPECT_EQ(look_up(session.isid.c_str()), 0);
    EXPECT_EQ(oid.objectType, IMA_OBJECT_TYPE_SESSION);
    EXPECT_EQ(oid.objectSequenceNumber, session.oid);
    for (const char* const isid : {"", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(look_up(isid), 0);
        EXPECT_EQ(oid.objectType, IMA_OBJECT_TYPE_TARGET);
    }
    EXPECT_EQ(said(), Lines());
}

TEST_F(LookupTest, NamesMatchInFullAndWithCase) {
    std::string upper = session.isid;
    upper[7] = 'A';
    const std::string no_target = "ERROR iscsi_get_oids: No Matching Target Found";
    const std::string no_session = "DEBUG iscsi_get_oids: get oids : No Matching Session Found";
    const Lines no_adapter{NOT_FOUND,
                           "ERROR iscsi_get_oids: Could not obtain logical and physical hba oid list for the "
                           "args specified."};
    const struct {
        std::string adapter;
        std::string target;
        std::string isid;
        Lines messages;
    } cases[] = {
        {"vmhba6", iqn, "", no_adapter},
        {"VMHBA64", iqn, "", no_adapter},
        {"vmhba640", iqn, "", no_adapter},
        {"vmhba64vmhba64", iqn, "", no_adapter},
        {"", iqn, "", no_adapter},
        {session.adapter, iqn.substr(0, iqn.size() - 1), "", {no_target}},
        {session.adapter, iqn + "0", "", {no_target}},
        {session.adapter, "I" + iqn.substr(1), "", {no_target}},
        {session.adapter, iqn + std::string(300, 'x'), "", {no_target}},
        {session.adapter, "", "", {no_target}},
        {session.adapter, iqn, upper, {no_session}},
        {session.adapter, iqn, session.isid + "0", {no_session}},
        {session.adapter, iqn, session.isid.substr(0, 16), {no_session}},
        {session.adapter, iqn, session.isid + session.isid, {no_session}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.adapter + " " + each.target + " " + each.isid);
        EXPECT_EQ(look_up(each.adapter.c_str(), each.target.c_str(), each.isid.c_str(), 0), -1);
        EXPECT_EQ(said(), each.messages);
        EXPECT_EQ(host->lists_held(), 0U);
    }
}

TEST_F(LookupTest, EveryImaFailureIsToldAndLeavesNoList) {
    const std::string args =
        "ERROR iscsi_get_oids: Could not obtain logical and physical hba oid list for the args specified.";
    const std::string sessions_failed = "ERROR iscsi_get_oids: get oids : IMA_GetSessionOidList returned IMA error ";
    const struct {
        const char* operation;
        std::uint64_t nth;
        int result;
        Lines messages;
    } cases[] = {
        {"IMA_GetPhbaOidList",
         1,
         -1,
         {"ERROR iscsi_get_hba_oids: IMA_GetPhbaOidList returned IMA error", ima_error("iscsi_get_hba_oids"), NOT_FOUND,
          args}},
        {"IMA_VMW_GetLhbaOidList", 1, -1, {NOT_FOUND, args}},
        {"IMA_VMW_GetLhbaProperties", 1, -1, {NOT_FOUND, args}},
        {"IMA_GetTargetOidList",
         1,
         -1,
         {"ERROR iscsi_get_oids: Could not obtain target list", ima_error("iscsi_get_oids")}},
        {"IMA_GetTargetProperties", 1, 0, {}},
        {"IMA_GetTargetProperties", 2, -1, {"ERROR iscsi_get_oids: No Matching Target Found"}},
        {"IMA_GetSessionOidList", 1, -1, {sessions_failed, ima_error("iscsi_get_oids")}},
        {"IMA_GetSessionProperties", 1, 0, {ima_error("iscsi_get_oids")}},
        {"IMA_GetSessionProperties",
         2,
         -1,
         {ima_error("iscsi_get_oids"), "DEBUG iscsi_get_oids: get oids : No Matching Session Found"}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.operation + std::to_string(each.nth));
        host->fail(failing(each.operation, each.nth));
        EXPECT_EQ(look_up(session.isid.c_str()), each.result);
        EXPECT_EQ(said(), each.messages);
        EXPECT_EQ(host->lists_held(), 0U);
        host->clear_faults();
    }
}

TEST_F(LookupTest, EmptyAbsentAndVanishedObjectsAreNotFound) {
    const struct {
        const char* operation;
        const std::vector<IMA_OID>* oids;
        std::string last;
    } cases[] = {
        {"IMA_GetPhbaOidList", nullptr, "ERROR iscsi_get_hba_oids: phba_oid_list is NULL or is empty"},
        {"IMA_GetPhbaOidList", &nothing, "ERROR iscsi_get_hba_oids: phba_oid_list is NULL or is empty"},
        {"IMA_VMW_GetLhbaOidList", nullptr, NOT_FOUND},
        {"IMA_VMW_GetLhbaOidList", &nothing, NOT_FOUND},
        {"IMA_GetTargetOidList", nullptr, "ERROR iscsi_get_oids: No Matching Target Found"},
        {"IMA_GetTargetOidList", &nothing, "ERROR iscsi_get_oids: No Matching Target Found"},
        {"IMA_GetSessionOidList", nullptr, "ERROR iscsi_get_oids: No Sessions Found"},
        {"IMA_GetSessionOidList", &nothing, "ERROR iscsi_get_oids: No Sessions Found"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.operation);
        host->script_ima(each.operation, answering(each.oids));
        EXPECT_EQ(look_up(session.isid.c_str()), -1);
        EXPECT_EQ(said()[0], each.last);
        EXPECT_EQ(host->lists_held(), 0U);
        host->script_ima(each.operation, {});
    }
    // Every session ends between the list and its properties.
    host->script_ima("IMA_GetSessionOidList", [&](void*, std::uint32_t status) {
        host->drop_sessions(iqn, 4);
        return status;
    });
    EXPECT_EQ(look_up(session.isid.c_str()), -1);
    const Lines lines = said();
    EXPECT_EQ(lines[0], ima_error("iscsi_get_oids", "No Such Object"));
    EXPECT_EQ(lines.back(), "DEBUG iscsi_get_oids: get oids : No Matching Session Found");
}

// Nothing matches a name that is absent, that fills its record, or that another one begins with. A query whose name
// doesn't fit its field has an empty one.
TEST_F(LookupTest, NamesThatAreEmptyOrFillTheirRecordsMatchNothing) {
    const auto repeated = [](std::size_t length) { return std::string(length, 'n'); };
    for (const std::size_t length : {0U, 11U, 256U}) {
        SCOPED_TRACE(length);
        host->script_ima("IMA_VMW_GetLhbaProperties", [&](void* out, std::uint32_t status) {
            auto& name = static_cast<IMA_VMW_LHBA_PROPERTIES*>(out)->osDeviceName;
            std::fill_n(name, 256, L'\0');
            std::fill_n(name, length, L'n');
            return status;
        });
        EXPECT_EQ(look_up(repeated(11).c_str(), iqn.c_str(), "", 1), length == 11 ? 0 : -1);
        EXPECT_EQ(look_up(repeated(12).c_str(), iqn.c_str(), "", 1), -1);
        EXPECT_EQ(look_up("", iqn.c_str(), "", 1), -1);
    }
    host->script_ima("IMA_VMW_GetLhbaProperties", {});
    for (const std::size_t length : {0U, 222U, 223U, 224U}) {
        SCOPED_TRACE(length);
        host->script_ima("IMA_GetTargetProperties", [&](void* out, std::uint32_t status) {
            auto* const properties = static_cast<IMA_TARGET_PROPERTIES*>(out);
            std::fill(std::begin(properties->name), std::end(properties->name), L'\0');
            std::fill_n(properties->name, length, L'n');
            std::fill(std::begin(properties->alias), std::end(properties->alias), L'n');
            return status;
        });
        for (const std::size_t wanted : {0U, 222U, 223U, 224U, 225U, 255U, 256U}) {
            const bool equal = length == wanted && 0 < wanted && wanted < 224;
            EXPECT_EQ(look_up(session.adapter.c_str(), repeated(wanted).c_str(), "", 1), equal ? 0 : -1) << wanted;
        }
    }
}

TEST_F(LookupTest, AListThatCannotBeReleasedIsWarnedAbout) {
    host->fail(failing("IMA_FreeMemory"));
    EXPECT_EQ(look_up(""), 0);
    const Lines lines = said();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0], "WARN iscsi_get_hba_oids: Could not free IMA Memory for function iscsi_get_hba_oids at line #");
    host->fail(failing("IMA_FreeMemory"));
    IMA_OID oids[MAX_LOGICAL_ADAPTERS];
    std::uint32_t count = 0;
    EXPECT_EQ(iscsi_get_all_hba_oids(oids, count), 0);
    EXPECT_EQ(said(), Lines{"WARN iscsi_get_all_hba_oids: Could not free IMA Memory for function "
                            "iscsi_get_all_hba_oids at line #"});
}

TEST_F(LookupTest, AdapterLookupGivesBothObjects) {
    IMA_OID logical{};
    IMA_OID physical{};
    EXPECT_EQ(iscsi_get_hba_oids("vmhba65", &logical, &physical), 0);
    EXPECT_EQ(logical.objectType, IMA_OBJECT_TYPE_LHBA);
    EXPECT_EQ(physical.objectType, IMA_OBJECT_TYPE_PHBA);
    EXPECT_EQ(iscsi_get_hba_oids("vmhba65", &logical, nullptr), 0);
    EXPECT_EQ(said(), Lines());
    for (const auto& [name, out] : {std::pair<const char*, IMA_OID*>{nullptr, &logical}, {"vmhba65", nullptr}}) {
        EXPECT_EQ(iscsi_get_hba_oids(name, out, nullptr), -1);
        EXPECT_EQ(said(), (Lines{"ERROR iscsi_get_hba_oids: NULL pointer passed in IscsiGetHbaOids()", NOT_FOUND}));
    }
}

TEST_F(LookupTest, AllAdaptersUpToTheRoomThereIs) {
    const auto oids = std::make_unique<IMA_OID[]>(MAX_LOGICAL_ADAPTERS);
    std::uint32_t count = 0;
    for (int adapters = 2; adapters <= 40; ++adapters) {
        EXPECT_EQ(iscsi_get_all_hba_oids(oids.get(), count), 0);
        EXPECT_EQ(count, static_cast<std::uint32_t>(std::min(adapters, 32)));
        EXPECT_EQ(said("WARN").size(), adapters > 32 ? 1U : 0U);
        host->add_adapter("vmhba" + std::to_string(100 + adapters), {"10.9.0." + std::to_string(adapters)});
    }
    EXPECT_EQ(oids[31].objectType, IMA_OBJECT_TYPE_LHBA);

    count = 77;
    host->fail(failing("IMA_GetLhbaOidList"));
    EXPECT_EQ(iscsi_get_all_hba_oids(oids.get(), count), -1);
    EXPECT_EQ(said(), Lines());
    for (const std::vector<IMA_OID>* const list : {static_cast<const std::vector<IMA_OID>*>(nullptr), &nothing}) {
        host->script_ima("IMA_GetLhbaOidList", answering(list));
        EXPECT_EQ(iscsi_get_all_hba_oids(oids.get(), count), -1);
        EXPECT_EQ(said(), Lines{"ERROR iscsi_get_all_hba_oids: lhba_oid_list is NULL or is empty"});
    }
}

// --- the cache --------------------------------------------------------------------------------------------

std::string oid_text(const IMA_OID& oid) {
    return "[" + std::to_string(oid.objectType) + ", " + std::to_string(oid.ownerId) + ", " +
           std::to_string(oid.objectSequenceNumber) + "]";
}

TEST_F(LookupTest, AnAnswerIsKeptUntilItIsForgotten) {
    const std::string key = "adapter=" + session.adapter + ", target=" + iqn + ", isid=" + session.isid;
    EXPECT_EQ(look_up(session.isid.c_str(), 0), 0);
    const std::string text = oid_text(oid);
    EXPECT_EQ(said(), Lines{"DEBUG iscsi_get_oids: Added new entry to target_oids[0] table, " + key + ", oid" + text});
    const auto calls = host->calls("IMA_GetSessionOidList");
    oid = {};
    EXPECT_EQ(look_up(session.isid.c_str(), 0), 0);
    EXPECT_EQ(said(), Lines{"DEBUG iscsi_get_oids: fetch_target_oid returned OID" + text + " for " + key});
    EXPECT_EQ(oid.objectSequenceNumber, session.oid);
    EXPECT_EQ(host->calls("IMA_GetSessionOidList"), calls);

    EXPECT_EQ(fetch_target_oid("vmhba12", iqn.c_str(), session.isid.c_str(), oid), 0);

    EXPECT_EQ(look_up(session.isid.c_str(), 1), 0);  // a hit is ignored, nothing is stored
    EXPECT_EQ(host->calls("IMA_GetSessionOidList"), calls + 1);
    EXPECT_EQ(said(), Lines());

    invalidate_oid_record({14, 1, 999999});
    EXPECT_EQ(said(), Lines());
    invalidate_oid_record(oid);
    EXPECT_EQ(said(), Lines{"DEBUG invalidate_oid_record: Invalidated record, target_oids[0], isValid=0, " + key +
                            ", oid" + text});
    EXPECT_EQ(look_up(session.isid.c_str(), 0), 0);
    EXPECT_EQ(look_up("", 0), 0);
    (void)said();
    dump_target_oids();
    const Lines dump = said();
    ASSERT_EQ(dump.size(), 3U);
    EXPECT_EQ(dump[0], "ERROR dump_target_oids: target_oids[0], isValid=0, " + key + ", oid" + text);
    EXPECT_EQ(dump[1], "ERROR dump_target_oids: target_oids[1], isValid=1, " + key + ", oid" + text);
    EXPECT_EQ(dump[2], "ERROR dump_target_oids: target_oids[2], isValid=1, adapter=" + session.adapter +
                           ", target=" + iqn + ", isid=, oid" + oid_text(oid));
    refresh_target_oids_table();
    dump_target_oids();
    EXPECT_EQ(said(), Lines());
    EXPECT_EQ(fetch_target_oid(session.adapter.c_str(), iqn.c_str(), "", oid), 0);
}

TEST_F(LookupTest, AFailedLookupIsNotKept) {
    EXPECT_EQ(look_up("00:00:00:00:00:00", 0), -1);
    dump_target_oids();
    EXPECT_EQ(said("ERROR"), Lines());
}

TEST_F(LookupTest, AFullCacheReusesForgottenPlacesOnly) {
    log_level = 1;
    IscsiOidQuery query;
    const auto add = [&](int number) {
        make_oid_query(query, "vmhba64", ("iqn." + std::to_string(number)).c_str(), "");
        add_target_oid(query, {9, 1, static_cast<std::uint64_t>(number + 1)});
    };
    const auto kept = [&](int number) {
        IMA_OID found{};
        return fetch_target_oid("vmhba64", ("iqn." + std::to_string(number)).c_str(), "", found) == 1 &&
               found.objectSequenceNumber == static_cast<std::uint64_t>(number + 1);
    };
    for (int i = 0; i < MAX_TARGET_OIDS; ++i) {
        add(i);
    }
    EXPECT_TRUE(kept(0) && kept(MAX_TARGET_OIDS - 1));
    EXPECT_EQ(look_up(session.isid.c_str(), 0), 0);
    EXPECT_EQ(fetch_target_oid(session.adapter.c_str(), iqn.c_str(), session.isid.c_str(), oid), 0);
    for (const int forgotten : {1023, 512}) {
        invalidate_oid_record({9, 1, static_cast<std::uint64_t>(forgotten + 1)});
        EXPECT_FALSE(kept(forgotten));
    }
    log_level = 2;
    add(5000);
    add(5001);
    add(5002);
    EXPECT_EQ(said(), Lines());
    dump_target_oids();
    const Lines dump = said();
    ASSERT_EQ(dump.size(), static_cast<std::size_t>(MAX_TARGET_OIDS));
    EXPECT_NE(dump[512].find("isValid=1, adapter=vmhba64, target=iqn.5000,"), std::string::npos);
    EXPECT_NE(dump[1023].find("target=iqn.5001,"), std::string::npos);
    EXPECT_FALSE(kept(5002));
}

TEST_F(LookupTest, TheCacheServesThreadsAtOnce) {
    log_level = 0;
    const auto use = [this] {
        for (int i = 0; i < 200; ++i) {
            IMA_OID found{};
            IscsiOidQuery query;
            make_oid_query(query, session.adapter.c_str(), iqn.c_str(), session.isid.c_str());
            EXPECT_EQ(iscsi_get_oids(query, found, 0), 0);
            EXPECT_EQ(found.objectSequenceNumber, session.oid);
            invalidate_oid_record(found);
        }
    };
    std::thread other(use);
    for (int i = 0; i < 200; ++i) {
        refresh_target_oids_table();
    }
    use();
    other.join();
}

}  // namespace
