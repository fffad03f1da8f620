// Passes over whole hosts: they settle, stay below the ceilings, touch nothing that isn't theirs and cost no
// memory.
#include <gtest/gtest.h>

#include <random>

#include "OstrelConnections/polling_pass.h"
#include "OstrelConnections/psp/psp_records.h"
#include "OstrelProvider/log.h"
#include "oxd_ima_utility/oid_cache.h"
#include "support/engine.h"
#include "support/log_lines.h"
#include "support/site.h"

using namespace testing_support;
using simhost::GroupMode;
using simhost::Host;

namespace {

// What the worker does in one cycle, and the time until the next.
void run_cycle(Host& host, const ConfigValues& values) {
    run_pass(values);
    refresh_target_oids_table();
    host.write_file("/var/log/ostrel/oxr.log", "");
    host.advance(values.interval);
}

std::uint64_t changes_made(const Host& host) {
    return host.calls("IMA_VMW_AddSession") + host.calls("IMA_VMW_RemoveSession");
}

// A site with up to four adapters, two groups, group-scoped targets and volumes with sessions of any number.
std::unique_ptr<Host> make_random_site(std::mt19937& random) {
    const auto any = [&](int least, int most) { return std::uniform_int_distribution(least, most)(random); };
    auto host = make_host();
    const int adapters = any(1, 4);
    for (int a = 0; a < adapters; ++a) {
        std::vector<std::string> nics;
        for (int n = any(1, 2); n > 0; --n) {
            nics.push_back("10." + std::to_string(a) + ".1." + std::to_string(n));
        }
        host->add_adapter("vmhba" + std::to_string(64 + a), nics);
    }
    for (int g = 0; g < 2; ++g) {
        simhost::GroupSpec group;
        group.name = "g" + std::to_string(g);
        group.mode = g == 1 && any(0, 3) == 0 ? GroupMode::static_discovery : GroupMode::dynamic_discovery;
        group.discovery_ip = "10.9." + std::to_string(g) + ".100";
        for (int a = any(1, 3); a > 0; --a) {
            group.arrays.push_back({"a" + std::to_string(a), {"10.9." + std::to_string(g) + "." + std::to_string(a)}});
        }
        host->add_group(group);
        const std::string gst = "iqn.gst" + std::to_string(g);
        host->add_group_scoped_target({gst, group.name, {"a1"}, {}});
        for (int v = 0; v < 6; ++v) {
            simhost::VolumeSpec volume;
            volume.eui = group.name + "-" + std::to_string(v);
            volume.group = group.name;
            if (v >= 4) {
                volume.group_scoped_target = gst;
            }
            host->add_volume(volume);
        }
        const bool is_static = group.mode == GroupMode::static_discovery;
        for (int v = 0; v < 5; ++v) {
            // A session on each adapter at least: a target without one there can't be looked at.
            host->connect(host->iqn_of(group.name + "-" + std::to_string(v)), is_static ? 0 : any(2 * adapters, 14));
        }
    }
    return host;
}

}  // namespace

TEST(WholePasses, RandomSitesSettleAndStaySettled) {
    for (unsigned seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 random(seed);
        const auto host = make_random_site(random);
        for (const char* const hazard : {"emptied adapter", "working session removed first"}) {
            host->allow(hazard);
        }
        ConfigValues values;
        values.max_vol_sessions = 12;
        for (int passes = 0; passes < 8; ++passes) {
            run_cycle(*host, values);
            if (passes == 2) {
                // Something happens: a NIC goes, or some sessions.
                random() % 2 == 0 ? host->nic_down("10.0.1.1") : host->drop_sessions(host->iqn_of("g0-0"), 1);
            }
        }
        const std::uint64_t before = changes_made(*host);
        const std::uint64_t asked = host->calls("psp.5") + host->calls("psp.6");
        const int sessions = host->totals().sessions;
        for (int passes = 0; passes < 4; ++passes) {
            run_cycle(*host, values);
        }
        EXPECT_EQ(changes_made(*host), before);
        EXPECT_EQ(host->calls("psp.5") + host->calls("psp.6"), asked);
        EXPECT_EQ(host->totals().sessions, sessions);
        expect_nothing_held(*host);
    }
}

TEST(WholePasses, StaticSessionsAreNeverTouched) {
    const auto host = make_site(2);
    const std::string iqn = add_volumes(*host, 1, 8)[0];
    for (int i = 0; i < 4; ++i) {
        host->add_session(session_of(iqn, i % 2 == 0 ? "10.0.1.1" : "10.0.2.1", "10.0.9.2", "10.0.9.2"));
    }
    host->claim_paths();
    ConfigValues values;
    for (const std::uint32_t wanted : {4U, 2U, 8U, 3U}) {
        values.vol_sessions = wanted;
        for (int passes = 0; passes < 3; ++passes) {
            run_cycle(*host, values);
        }
        EXPECT_EQ(count_static(*host, iqn), 4);
        EXPECT_EQ(count_dynamic(*host, iqn), static_cast<int>(wanted));
    }
    expect_nothing_held(*host);
}

TEST(WholePasses, HostNeverExceeds2040Sessions) {
    const auto host = make_site(2);
    const auto iqns = add_volumes(*host, 255, 0);
    for (const std::string& iqn : iqns) {
        host->connect(iqn, 6);
    }
    ConfigValues values;
    values.vol_sessions = 9;
    values.max_vol_sessions = 9;
    run_cycle(*host, values);
    EXPECT_EQ(host->totals().sessions, 2040);
    EXPECT_EQ(count_sessions(*host, iqns[169]), 9);  // 1530 and three for each of 170
    EXPECT_EQ(count_sessions(*host, iqns[170]), 6);
    run_cycle(*host, values);
    EXPECT_EQ(host->totals().sessions, 2040);
    expect_nothing_held(*host);
    // Fewer are asked for: removal isn't held back by the ceiling.
    values.vol_sessions = 4;
    run_cycle(*host, values);
    EXPECT_EQ(host->totals().sessions, 4 * 255);
    expect_nothing_held(*host);
}

TEST(WholePasses, AnyFailingCallLeavesNothingHeldAndNoVolumeCutOff) {
    const auto make = [] {
        refresh_target_oids_table();
        auto host = make_unbalanced_site(GroupMode::dynamic_discovery);
        host->write_file("/etc/ostrel/.lock", "");
        return host;
    };
    std::vector<std::string> operations;
    {
        const auto host = make();
        host->count_allocations(true);
        run_pass();
        host->count_allocations(false);
        for (const std::string& each : host->operations_called()) {
            if (each.starts_with("IMA_") || each.starts_with("psp.") || each == "new") {
                operations.push_back(each);
            }
        }
    }
    ASSERT_GE(operations.size(), 25U);
    for (const std::string& operation : operations) {
        // The first calls one by one, later ones with growing steps.
        for (std::uint64_t nth = 1;; nth += 1 + nth / 6) {
            SCOPED_TRACE(testing::Message() << operation << ", call " << nth);
            const auto host = make();
            host->count_allocations(true);
            host->fail(fault(operation, nth));
            run_pass();
            const std::uint64_t injected = host->faults_injected();
            EXPECT_EQ(host->blocks_held(), 0);
            host->count_allocations(false);
            expect_nothing_held(*host);
            if (injected == 0) {
                break;
            }
            run_pass();  // and the next pass works
            for (const auto& target : host->targets()) {
                EXPECT_GE(target.active_paths, 2) << target.iqn;
            }
        }
    }
}

TEST(WholePasses, SettledPassAllocatesOnlyItsBuffers) {
    const auto host = make_site(2);
    add_volumes(*host, 40, 8);
    for (int passes = 0; passes < 2; ++passes) {
        run_pass();
    }
    for (const std::uint32_t level : {1U, 2U}) {
        log_level = level;
        const std::uint64_t before = host->allocations();
        const std::uint64_t bytes = host->allocated_bytes();
        host->count_allocations(true);
        run_pass();
        host->count_allocations(false);
        // Volumes and the reply they come in, mode changes, addresses, group-scoped targets and their reply.
        EXPECT_EQ(host->allocations() - before, 6U);
        EXPECT_EQ(host->allocated_bytes() - bytes, 256 * sizeof(OxrLun) + sizeof(OstrelPspIoctlGetAllDeviceInfoData) +
                                                       256 * 8 + sizeof(OstrelPspIoctlGetTransportAddrsData) +
                                                       32 * sizeof(OstrelPspGroupScopedTarget) +
                                                       sizeof(OstrelPspIoctlGetAllGroupScopedTargetsData));
        EXPECT_EQ(host->blocks_held(), 0);
    }
    // A pass that works allocates one list more for each target it balances, and a request for each kind.
    ConfigValues values;
    values.vol_sessions = 7;
    const std::uint64_t before = host->allocations();
    host->count_allocations(true);
    run_pass(values);
    host->count_allocations(false);
    EXPECT_EQ(host->allocations() - before, 6U + 40U + 1U);
}

TEST(WholePasses, MemoryDoesNotGrow) {
    const auto host = make_site(2);
    add_volumes(*host, 20, 8);
    ConfigValues values;
    for (int passes = 0; passes < 20; ++passes) {
        run_cycle(*host, values);
    }
    const long before = resident_kib();
    for (int passes = 0; passes < 300; ++passes) {
        run_cycle(*host, values);
    }
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LE(resident_kib() - before, 256);
#else
    (void)before;  // the sanitizers keep what is freed for a while
#endif
    expect_nothing_held(*host);
}
