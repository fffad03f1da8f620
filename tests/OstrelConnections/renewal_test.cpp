// Renewal of connections: every session is replaced while the volume keeps those of its other addresses, and a
// step that fails leaves a volume that the polling passes repair.
#include "OstrelConnections/renewal/renewal.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <functional>
#include <map>
#include <memory>
#include <set>

#include "common/text.h"
#include "ima/ima.h"
#include "lettered_target.h"
#include "support/engine.h"
#include "support/golden.h"
#include "support/host_test.h"
#include "support/log_lines.h"
#include "support/site.h"

using namespace testing_support;
using simhost::Event;
using simhost::Host;
using simhost::SessionView;

namespace {

using Isids = std::set<std::string>;

enum class Kind { general, enable_digests, disable_digests };

std::uint32_t renew(const Lines& iqns, Kind kind = Kind::general) {
    std::vector<std::array<char, sizeof(TargetIqn)>> list(iqns.size());
    for (std::size_t i = 0; i < iqns.size(); ++i) {
        oxr::copy_text(*reinterpret_cast<TargetIqn*>(list[i].data()), iqns[i]);
    }
    const auto* const targets = reinterpret_cast<const TargetIqn*>(list.data());
    const int count = static_cast<int>(iqns.size());
    const oxr::MutexLock lock(conn_renew_mutex);
    return kind == Kind::general ? handleGeneralConnectionRenewal(targets, count)
                                 : handleChangeIscsiDigest(targets, count, kind == Kind::enable_digests);
}

// Four NICs and two arrays, so eight sessions are what a volume has: two over each local address.
std::unique_ptr<Host> make_volumes(int count, simhost::HostOptions options = {}, int connections = 8) {
    auto host = make_site(2, simhost::GroupMode::dynamic_discovery, options);
    add_volumes(*host, count, connections);
    return host;
}

Isids isids_of(const Host& host, const std::string& iqn, const std::string& adapter = "") {
    Isids found;
    for (const SessionView& session : host.sessions(iqn)) {
        if (adapter.empty() || session.adapter == adapter) {
            found.insert(session.isid);
        }
    }
    return found;
}

std::map<std::string, int> logged_in_by_address(const Host& host, const std::string& iqn) {
    std::map<std::string, int> counts;
    for (const SessionView& session : host.sessions(iqn)) {
        counts[session.local_ip] += session.state == simhost::LOGGED_IN ? 1 : 0;
    }
    return counts;
}

// A renewal as it goes over a target's local addresses.
struct AddressWatch {
    Lines worked_on;  // addresses, as their sessions go
    int broken = 0;   // moments when more than one of them lacked a session
};

std::shared_ptr<const AddressWatch> watch_addresses(Host& host, const std::string& iqn) {
    const auto watch = std::make_shared<AddressWatch>();
    host.observe([&host, iqn, watch, full = logged_in_by_address(host, iqn)](const Event& event) {
        if (event.target != iqn ||
            (event.kind != Event::Kind::session_removed && event.kind != Event::Kind::session_added)) {
            return;
        }
        auto now = logged_in_by_address(host, iqn);
        int incomplete = 0;
        for (const auto& [address, count] : full) {
            if (now[address] < count) {
                ++incomplete;
                if (watch->worked_on.empty() || watch->worked_on.back() != address) {
                    watch->worked_on.push_back(address);
                }
            }
        }
        watch->broken += incomplete > 1 ? 1 : 0;
    });
    return watch;
}

int with_digests(const Host& host, const std::string& iqn) {
    const auto sessions = host.sessions(iqn);
    return static_cast<int>(std::count_if(sessions.begin(), sessions.end(),
                                          [](const SessionView& s) { return s.header_digest && s.data_digest; }));
}

bool none_kept(const Isids& before, const Isids& after) {
    return std::none_of(after.begin(), after.end(), [&](const std::string& isid) { return before.contains(isid); });
}

void expect_at_rest(const Host& host) {
    // A thread that could not be joined takes itself off.
    for (int waited = 0; conn_renew_thread.load() != 0 && waited < 10'000'000; ++waited) {
        sched_yield();
    }
    EXPECT_EQ(conn_renew_thread.load(), pthread_t{0});
    EXPECT_EQ(shared_mutexes_held(), Lines{});
    EXPECT_EQ(host.blocks_held(), 0);
    expect_nothing_held(host);
}

}  // namespace

TEST(Renewal, LogIsAsItWas) {
    simhost::HostOptions options;
    options.login_seconds = 0.15;
    options.claim_seconds = 0.17;
    for (const char* const kind : {"general", "digests", "group_scoped"}) {
        Golden golden("OstrelConnections", std::string("renewal_") + kind);
        const auto host = make_volumes(0, options);
        const bool group_scoped = kind == std::string("group_scoped");
        if (group_scoped) {
            host->add_group_scoped_target({"iqn.gst", "g", {}, {"vmhba64"}});
        }
        const std::string iqn =
            add_volume(*host, "vol", group_scoped ? 2 : 4, {"vmhba64"}, "g", group_scoped ? "iqn.gst" : "");
        host->set_digests("vmhba64", *kind == 'd');
        log_level = 2;
        golden.follow(*host);
        EXPECT_EQ(renew({iqn}, *kind == 'd' ? Kind::enable_digests : Kind::general), OXD_SUCCESS);
        golden.add_log(*host);
        golden.heading(std::to_string(host->now()) + " s\n" + describe(*host));
        expect_at_rest(*host);
    }
}

TEST(Renewal, ReplacesEverySessionOneAddressAtATime) {
    const auto host = make_volumes(2);
    const std::string iqn = host->iqn_of("vol-0");
    const Isids before = isids_of(*host, iqn);
    const Isids of_other = isids_of(*host, host->iqn_of("vol-1"));
    const auto full = logged_in_by_address(*host, iqn);
    const auto watch = watch_addresses(*host, iqn);
    EXPECT_EQ(renew({iqn}), OXD_SUCCESS);
    EXPECT_EQ(watch->broken, 0);
    EXPECT_EQ(watch->worked_on.size(), 4U) << "addresses, none taken up twice";
    EXPECT_EQ(logged_in_by_address(*host, iqn), full);
    EXPECT_TRUE(none_kept(before, isids_of(*host, iqn)));
    EXPECT_EQ(isids_of(*host, host->iqn_of("vol-1")), of_other);
    expect_at_rest(*host);
}

TEST(Renewal, EndsWithTheStatusOfTheStepThatFailed) {
    // The session lists are read on two adapters, then in two searches for each of the first address's two sessions.
    constexpr std::uint64_t first_reading_anew = 7;
    const struct {
        const char* what;
        simhost::Fault fault;
        std::uint32_t status;
        const char* last_retry = "";
        double claim_seconds = 30;
    } cases[] = {
        {"the volume is unknown", status_fault("psp.1", 3), OXD_DEVICE_NOT_FOUND},
        {"its record is refused", status_fault("psp.1", 2), OXD_FAILED},
        {"its record is unreadable", errno_fault("psp.1", EIO), OXD_FAILED},
        {"no sessions to read", lasting(failing("IMA_GetSessionOidList")), OXD_FAILED},
        {"no thread", errno_fault("pthread_create", EAGAIN), OXD_FAILED},
#ifndef __SANITIZE_THREAD__  // which takes the thread for one never joined when the call fails
        {"no end of the thread", errno_fault("pthread_join", EINVAL), OXD_FAILED},
#endif
        {"a duplicate isn't removed", failing("IMA_VMW_RemoveSession"), OXD_SESSION_REMOVAL_FAILED},
        {"the last one isn't removed", failing("IMA_VMW_RemoveSession", 2), OXD_SESSION_REMOVAL_FAILED},
        {"the second address's isn't", failing("IMA_VMW_RemoveSession", 3), OXD_SESSION_REMOVAL_FAILED},
        {"a removed one stays", status_fault("IMA_VMW_RemoveSession", 0), OXD_SESSION_REMOVAL_FAILED, "retries 600"},
        {"no new session", failing("IMA_VMW_AddSession"), OXD_SESSION_CREATION_FAILED},
        {"no new duplicate", failing("IMA_VMW_AddSession", 2), OXD_SESSION_CREATION_FAILED},
        {"it never comes", status_fault("IMA_VMW_AddSession", 0), OXD_SESSION_CREATION_FAILED, "retries 600"},
        {"the last never comes", status_fault("IMA_VMW_AddSession", 0, 7), OXD_SESSION_CREATION_FAILED, "retries 600"},
        {"they are unreadable", lasting(failing("IMA_GetSessionOidList", first_reading_anew)), OXD_FAILED,
         "after 6 retries"},
        {"they are unreadable once", failing("IMA_GetSessionOidList", first_reading_anew), OXD_SUCCESS},
        {"the rescan fails", status_fault("psp.5", 7), OXD_PATH_DISCOVERY_FAILED},
        {"a rescan is under way", status_fault("psp.5", 6), OXD_SUCCESS},
        {"paths are late", lasting(status_fault("psp.5", 6)), OXD_PATH_DISCOVERY_FAILED, "after 600 retries", 90},
        {"the volume is unknown meanwhile", status_fault("psp.1", 3, 2), OXD_DEVICE_NOT_FOUND},
        {"the path count is unreadable", status_fault("psp.1", 11, 2), OXD_FAILED},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        simhost::HostOptions options;
        options.claim_seconds = c.claim_seconds;
        const auto host = make_volumes(2, options);
        const std::string iqn = host->iqn_of("vol-0");
        const std::string later = host->iqn_of("vol-1");
        const Isids of_later = isids_of(*host, later);
        const auto watch = watch_addresses(*host, iqn);
        host->fail(c.fault);
        host->count_allocations(true);
        EXPECT_EQ(renew({iqn, later}), c.status);
        host->count_allocations(false);
        EXPECT_EQ(isids_of(*host, later) == of_later, c.status != OXD_SUCCESS);
        EXPECT_EQ(watch->broken, 0);
        EXPECT_GT(count_lines(host->log(), "ERROR", "renew_iscsi_connections", c.last_retry),
                  c.last_retry[0] == '\0' ? -1 : 0);
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
}

TEST(Renewal, EndsWithoutMemoryAndLosesNone) {
    for (const std::uint64_t nth : {1U, 2U, 3U, 4U, 5U}) {
        const auto host = make_volumes(1);
        host->fail(failing("new", nth));
        host->count_allocations(true);
        EXPECT_EQ(renew({host->iqn_of("vol-0")}), nth < 5 ? OXD_FAILED : OXD_PATH_DISCOVERY_FAILED) << nth;
        host->count_allocations(false);
        expect_at_rest(*host);
    }
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
    const auto host = make_volumes(2, {}, 0);
    const std::string iqn = host->iqn_of("vol-0");
    const std::string later = host->iqn_of("vol-1");
    host->set_digests("vmhba64", true);
    host->connect(iqn, 8);
    host->connect(later, 8);
    const Isids later_before = isids_of(*host, later);
    Golden golden("OstrelConnections", "digest_changes");
    // The other adapter isn't set to use digests: its sessions are renewed in vain.
    EXPECT_EQ(renew({iqn}, Kind::enable_digests), OXD_FAILED);
    EXPECT_EQ(with_digests(*host, iqn), 4);
    host->set_digests("vmhba65", true);
    const Isids kept = isids_of(*host, iqn, "vmhba64");
    const Isids changed = isids_of(*host, iqn, "vmhba65");
    EXPECT_EQ(renew({iqn}, Kind::enable_digests), OXD_SUCCESS);
    EXPECT_EQ(with_digests(*host, iqn), 8);
    EXPECT_EQ(isids_of(*host, iqn, "vmhba64"), kept);
    EXPECT_TRUE(none_kept(changed, isids_of(*host, iqn, "vmhba65")));
    // Nothing to do for the first target: the next one, which needs it, isn't looked at.
    EXPECT_EQ(renew({iqn, later}, Kind::enable_digests), OXD_SUCCESS);
    EXPECT_EQ(isids_of(*host, later), later_before);
    EXPECT_EQ(renew({later, iqn}, Kind::enable_digests), OXD_SUCCESS);
    EXPECT_EQ(with_digests(*host, later), 8);
    // Off again, while one session isn't logged in: it stays as it is, and a general renewal refuses.
    host->set_digests("vmhba64", false);
    host->set_digests("vmhba65", false);
    const SessionView stuck = host->sessions(iqn).back();
    host->set_state(stuck.oid, simhost::IN_LOGIN);
    EXPECT_EQ(renew({iqn}), OXD_SESSIONS_FAILED);
    EXPECT_EQ(renew({iqn}, Kind::disable_digests), OXD_SUCCESS);
    EXPECT_TRUE(isids_of(*host, iqn).contains(stuck.isid));
    EXPECT_EQ(with_digests(*host, iqn), 1);
    golden.add_log(*host, "EI");
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
    const auto host = make_volumes(1);
    host->set_digests("vmhba64", true);
    OxrLun lun = read_lun(host->iqn_of("vol-0"));
    std::vector<TargetDtls> sessions(MAX_SESSIONS_PER_TARGET);
    ASSERT_EQ(obtain_oxr_lun_sessions(lun, sessions.data()), 0);
    EXPECT_EQ(isIscsiDigestEnabled(sessions[0]), 0);
    for (const char* const operation : {"IMA_GetConnectionProperties", "IMA_GetConnectionOidList"}) {
        host->fail(failing(operation));
        EXPECT_LT(isIscsiDigestEnabled(sessions[0]), 0) << operation;
    }
    host->script_ima("IMA_GetConnectionProperties", [](void* out, std::uint32_t status) {
        static_cast<IMA_CONNECTION_PROPERTIES*>(out)->headerDigest = IMA_DIGEST_CRC32C;
        return status;
    });
    EXPECT_EQ(isIscsiDigestEnabled(sessions[0]), 0) << "the header's alone";
    host->script_ima("IMA_GetConnectionProperties", {});
    host->fail(lasting(failing("IMA_GetConnectionProperties")));
    EXPECT_EQ(renew({host->iqn_of("vol-0")}, Kind::enable_digests), OXD_SUCCESS);
    EXPECT_EQ(with_digests(*host, host->iqn_of("vol-0")), 0) << "it counts as on";
    expect_at_rest(*host);
}

TEST(Renewal, GivesAGroupScopedVolumeOneSessionAnAddress) {
    const struct {
        int connections;
        int left;
        std::uint32_t status;
        simhost::Fault fault = {};
    } cases[] = {{4, 4, OXD_SUCCESS},
                 {8, 7, OXD_PATH_DISCOVERY_FAILED},  // the paths of the second one don't come back
                 {4, 4, OXD_DEVICE_NOT_FOUND, status_fault("psp.4", 3)},
                 {4, 4, OXD_FAILED, status_fault("psp.4", 11, 2)}};
    for (const auto& c : cases) {
        const auto host = make_volumes(0);
        add_target(*host, "iqn.gst", {}, c.connections, 2);
        if (!c.fault.operation.empty()) {
            host->fail(c.fault);
        }
        EXPECT_EQ(renew({"iqn.gst"}), c.status);
        EXPECT_EQ(count_sessions(*host, "iqn.gst"), c.left);
        EXPECT_EQ(count_lines(host->log(), "INFO", "",
                              "Initial active path count to target iqn.gst is " + std::to_string(2 * c.connections)),
                  c.status == OXD_DEVICE_NOT_FOUND ? 0 : 1);
        expect_at_rest(*host);
    }
}
