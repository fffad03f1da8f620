// Renewal of connections: every session is replaced while the volume keeps those of its other addresses, and a
// step that fails leaves a volume that the polling passes repair.
#include "OstrelConnections/renewal/renewal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "common/text.h"
#include "ima/ima.h"
#include "lettered_target.h"
#include "support/engine.h"
#include "support/golden.h"
#include "support/site.h"

using namespace testing_support;
using simhost::Host;

namespace {

enum class Kind { general, enable_digests, disable_digests };

std::uint32_t renew(const Lines& iqns, Kind kind = Kind::general) {
    const std::unique_ptr<TargetIqn[]> targets(new TargetIqn[iqns.size()]);
    for (std::size_t i = 0; i < iqns.size(); ++i) {
        oxr::copy_text(targets[i], iqns[i]);
    }
    const int count = static_cast<int>(iqns.size());
    const oxr::MutexLock lock(conn_renew_mutex);
    return kind == Kind::general ? handleGeneralConnectionRenewal(targets.get(), count)
                                 : handleChangeIscsiDigest(targets.get(), count, kind == Kind::enable_digests);
}

// Four NICs and two arrays, so eight sessions are what a volume has: two over each local address.
std::unique_ptr<Host> make_volumes(int count, double claim_seconds = 30) {
    auto host = make_site(2, simhost::GroupMode::dynamic_discovery, {.root = {}, .claim_seconds = claim_seconds});
    add_volumes(*host, count, 8);
    return host;
}

auto with_digests(const Host& host, const std::string& iqn) {
    const auto sessions = host.sessions(iqn);
    return std::count_if(sessions.begin(), sessions.end(),
                         [](const auto& s) { return s.header_digest && s.data_digest; });
}

void expect_at_rest(const Host& host) {
    EXPECT_EQ(conn_renew_thread.load(), pthread_t{0});
    expect_nothing_held(host);
}

}  // namespace

TEST(Renewal, LogIsAsItWas) {
    const struct {
        const char* kind;
        int connections;
        std::vector<std::string> adapters;
        const char* target = "";
    } cases[] = {{"general", 8, {}}, {"digests", 4, {"vmhba64"}}, {"group_scoped", 2, {"vmhba64"}, "iqn.gst"}};
    for (const auto& c : cases) {
        Golden golden("OstrelConnections", std::string("renewal_") + c.kind);
        const auto host = make_volumes(0, 0.17);
        host->set_login_seconds(0.15);
        if (*c.target != '\0') {
            host->add_group_scoped_target({c.target, "g", {}, c.adapters});
        }
        const std::string iqn = add_volume(*host, "vol", c.connections, c.adapters, "g", c.target);
        host->set_digests("vmhba64", *c.kind == 'd');
        log_level = c.adapters.empty() ? 1 : 2;
        golden.follow(*host);
        EXPECT_EQ(renew({iqn}, *c.kind == 'd' ? Kind::enable_digests : Kind::general), OXD_SUCCESS);
        golden.add_log(*host);
        golden.heading(std::to_string(host->now()) + " s\n" + describe(*host));
        expect_at_rest(*host);
    }
}

TEST(Renewal, EndsWithTheStatusOfTheStepThatFailed) {
    // The session lists are read on two adapters, then in two searches for each of the first address's two sessions.
    constexpr std::uint64_t first_reading_anew = 7;
    const struct {
        const char* what;
        simhost::Fault fault;
        std::uint32_t status;
        const char* target = "";  // empty: the volume
        double claim_seconds = 30;
    } cases[] = {
        {"the volume is unknown", status_fault("psp.1", 3), OXD_DEVICE_NOT_FOUND},
        {"its record is refused", status_fault("psp.1", 2), OXD_FAILED},
        {"no sessions to read", lasting(failing("IMA_GetSessionOidList")), OXD_FAILED},
        {"no thread", errno_fault("pthread_create", EAGAIN), OXD_FAILED},
        {"no request", failing("new", 1), OXD_FAILED},
        {"no volume", failing("new", 3), OXD_FAILED},
        {"no records for the thread", failing("new", 4), OXD_FAILED},
        {"no request to the PSP", failing("new", 5), OXD_PATH_DISCOVERY_FAILED},
        {"a duplicate isn't removed", failing("IMA_VMW_RemoveSession"), OXD_SESSION_REMOVAL_FAILED},
        {"the last one isn't removed", failing("IMA_VMW_RemoveSession", 2), OXD_SESSION_REMOVAL_FAILED},
        {"a removed one stays", status_fault("IMA_VMW_RemoveSession", 0), OXD_SESSION_REMOVAL_FAILED},
        {"no new session", failing("IMA_VMW_AddSession"), OXD_SESSION_CREATION_FAILED},
        {"no new duplicate", failing("IMA_VMW_AddSession", 2), OXD_SESSION_CREATION_FAILED},
        {"it never comes", status_fault("IMA_VMW_AddSession", 0), OXD_SESSION_CREATION_FAILED},
        {"the last never comes", status_fault("IMA_VMW_AddSession", 0, 7), OXD_SESSION_CREATION_FAILED},
        {"they are unreadable", lasting(failing("IMA_GetSessionOidList", first_reading_anew)), OXD_FAILED},
        {"they are unreadable once", failing("IMA_GetSessionOidList", first_reading_anew), OXD_SUCCESS},
        {"the rescan fails", status_fault("psp.5", 7), OXD_PATH_DISCOVERY_FAILED},
        {"a rescan is under way", status_fault("psp.5", 6), OXD_SUCCESS},
        {"paths are late", lasting(status_fault("psp.5", 6)), OXD_PATH_DISCOVERY_FAILED, "", 90},
        {"the volume is unknown meanwhile", status_fault("psp.1", 3, 2), OXD_DEVICE_NOT_FOUND},
        {"the path count is unreadable", status_fault("psp.1", 11, 2), OXD_FAILED},
        // A group-scoped target gets one session an address.
        {"one is enough", {}, OXD_SUCCESS, "iqn.four"},
        {"the paths of the second don't come back", {}, OXD_PATH_DISCOVERY_FAILED, "iqn.eight"},
        {"the target is unknown", status_fault("psp.4", 3), OXD_DEVICE_NOT_FOUND, "iqn.four"},
        {"its path count is unreadable", status_fault("psp.4", 11, 2), OXD_FAILED, "iqn.four"},
        {"no target", failing("new", 3), OXD_FAILED, "iqn.four"},
    };
    Golden golden("OstrelConnections", "renewal_failures");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const auto host = make_volumes(2, c.claim_seconds);
        add_target(*host, "iqn.four", {}, 4, 2);
        add_target(*host, "iqn.eight", {}, 8, 2);
        const std::string iqn = *c.target == '\0' ? host->iqn_of("vol-0") : c.target;
        const std::string later = host->iqn_of("vol-1");
        const std::uint64_t first_of_later = host->sessions(later)[0].oid;
        host->fail(c.fault);
        host->count_allocations(true);
        EXPECT_EQ(renew({iqn, later}), c.status);
        host->count_allocations(false);
        EXPECT_EQ(host->sessions(later)[0].oid == first_of_later, c.status != OXD_SUCCESS);
        golden.heading(std::string(c.what) + ": " + std::to_string(count_sessions(*host, iqn)) + " sessions");
        golden.add_log(*host, "E", 4);  // there may be hundreds of looks
        expect_at_rest(*host);
    }
}

TEST(Renewal, WaitsForASessionToGoAndForOneToLogIn) {
    auto host = make_volumes(1);
    host->fail(status_fault("IMA_VMW_RemoveSession", 0));  // of the first address's other session
    host->at(0.5, "it goes", [](Host& h) { h.drop_session(h.sessions(h.iqn_of("vol-0"))[4].oid); });
    EXPECT_EQ(renew({host->iqn_of("vol-0")}), OXD_SUCCESS);
    host.reset();
    host = make_volumes(1);
    host->fail_logins(true);
    EXPECT_EQ(renew({host->iqn_of("vol-0")}), OXD_SESSION_CREATION_FAILED);
    host.reset();
    // While the last address waits, the list is shorter than it was for the address before.
    LetteredTarget target("d3ddd");
    target.host->set_login_seconds(1);
    EXPECT_EQ(renew({target.iqn}), OXD_SUCCESS);
}

TEST(Renewal, NeedsSessionsThatCarryTheVolumeMeanwhile) {
    const struct {
        const char* sessions;
        std::uint32_t general;
        std::uint32_t digest;
    } cases[] = {{"d", OXD_SINGLE_SESSION, OXD_SINGLE_SESSION},
                 {"dd", OXD_SINGLE_VMKNIC, OXD_SINGLE_VMKNIC},
                 {"d2i", OXD_SESSIONS_FAILED, OXD_SINGLE_SESSION},
                 {"i2i", OXD_SESSIONS_FAILED, OXD_SESSIONS_FAILED}};
    Golden golden("OstrelConnections", "renewal_refused");
    for (const auto& c : cases) {
        golden.heading(c.sessions);
        LetteredTarget target(c.sessions);
        const std::string full = add_volume(*target.host, "full", 8);
        EXPECT_EQ(renew({target.iqn}), c.general);
        EXPECT_EQ(renew({target.iqn}, Kind::enable_digests), c.digest);
        EXPECT_EQ(renew({"iqn.unknown", target.iqn}), OXD_DEVICE_NOT_FOUND);
        golden.add_log(*target.host, "E");
        EXPECT_EQ(renew({full, target.iqn}), c.general) << "the target before it is forgotten";
        EXPECT_EQ(target.gone() + target.added(), "");
        expect_at_rest(*target.host);
    }
}

TEST(Renewal, TakesSessionsThatTheInventoryLeavesOutForFailed) {
    const auto host = make_volumes(1);
    host->script_ima("IMA_VMW_GetConnectionStatus", [](void* out, std::uint32_t status) {
        static_cast<IMA_VMW_CONNECTION_STATUS*>(out)->localAddress.address.ipv4Address = 0;
        return status;
    });
    EXPECT_EQ(renew({host->iqn_of("vol-0")}), OXD_SESSIONS_FAILED);
}

TEST(DigestChange, RenewsWhatNeedsItAndEndsWhereNothingDoes) {
    const auto host = make_volumes(0);
    host->set_digests("vmhba64", true);
    const Lines iqns = add_volumes(*host, 2, 8);
    Golden golden("OstrelConnections", "digest_changes");
    golden.follow(*host);
    const auto change = [&](const char* what, const Lines& targets, Kind kind, std::uint32_t status, int digests) {
        golden.heading(what);
        EXPECT_EQ(renew(targets, kind), status) << what;
        EXPECT_EQ(with_digests(*host, targets[0]), digests) << what;
        golden.add_log(*host);
    };
    change("one adapter isn't set to use digests", {iqns[0]}, Kind::enable_digests, OXD_FAILED, 4);
    host->set_digests("vmhba65", true);
    change("its sessions are left", {iqns[0]}, Kind::enable_digests, OXD_SUCCESS, 8);
    change("nothing to do: the next one isn't looked at", iqns, Kind::enable_digests, OXD_SUCCESS, 8);
    change("the next one first", {iqns[1], iqns[0]}, Kind::enable_digests, OXD_SUCCESS, 8);
    change("adapters are still set to use them", {iqns[0]}, Kind::disable_digests, OXD_FAILED, 8);
    host->set_digests("vmhba64", false);
    host->set_digests("vmhba65", false);
    host->set_state(host->sessions(iqns[0]).back().oid, simhost::IN_LOGIN);  // stays as it is
    change("a general renewal refuses", {iqns[0]}, Kind::general, OXD_SESSIONS_FAILED, 8);
    change("off again", {iqns[0]}, Kind::disable_digests, OXD_SUCCESS, 1);
    expect_at_rest(*host);
}

// It goes by what is logged in: when that is all at one address, the address is renewed all the same.
TEST(DigestChange, TakesTheOnlyAddressThatIsLoggedIn) {
    LetteredTarget target("dd2ii");
    target.host->allow("digest change");
    target.host->set_digests("vmhba64", true);
    (void)renew({target.iqn}, Kind::enable_digests);
    EXPECT_EQ(target.gone(), "01");
}

TEST(DigestChange, ALookupThatFailsIsToldFromAnAnswer) {
    for (const bool fails : {true, false}) {
        const auto host = make_volumes(1);
        const std::string iqn = host->iqn_of("vol-0");
        host->set_digests("vmhba64", true);
        host->set_digests("vmhba65", true);
        host->script_ima("IMA_GetConnectionProperties", [&](void* out, std::uint32_t status) {
            static_cast<IMA_CONNECTION_PROPERTIES*>(out)->headerDigest = IMA_DIGEST_CRC32C;
            return fails ? 0x80000004U : status;
        });
        EXPECT_EQ(renew({iqn}, Kind::enable_digests), OXD_SUCCESS);
        // One that can't be read counts as on, the header's alone as off.
        EXPECT_EQ(with_digests(*host, iqn), fails ? 0 : 8);
        if (fails) {
            Golden("OstrelConnections", "digest_lookups").add_log(*host, "E");
        }
        expect_at_rest(*host);
    }
}
