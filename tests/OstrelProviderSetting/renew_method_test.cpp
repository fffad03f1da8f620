// The renewal method against the worker's lock file.
#include <gtest/gtest.h>

#include <cerrno>
#include <variant>

#include "OstrelConnections/psp/psp_records.h"
#include "OstrelConnections/renewal/renewal.h"
#include "OstrelProvider/worker.h"
#include "OstrelProviderSetting/setting_methods.h"
#include "cimserver/broker/objects.h"
#include "support/engine.h"
#include "support/host_test.h"

namespace {

using cimserver::NamedList;
using testing_support::failing_with;
using testing_support::HostTest;

// The status that a renewal of an unknown target comes back with: that it is unknown, unless it is held off.
std::uint64_t ask_for_renewal() {
    const cimserver::Request request;
    const auto none = cimserver::null_value(CMPI_string);
    auto* const in = cimserver::make_object<cimserver::ArgsObject>(
        NamedList{{"targets", cimserver::text_list({"iqn.unknown"})}, {"paramname", none}, {"paramvalue", none}});
    auto* const out = cimserver::make_object<cimserver::ArgsObject>(NamedList{});
    (void)OstrelHandleRenewIscsiConnections(nullptr, in, out);
    return std::get<std::uint64_t>(cimserver::find(out->args, "oxd_status")->data);
}

TEST_F(HostTest, ALockFileThatCannotBeSeenHoldsARenewalOff) {
    host->write_file("/etc/ostrel/oxr.conf", "#\n");
    host->fail(testing_support::lasting(failing_with("access", EIO, ".lock")));
    EXPECT_EQ(ask_for_renewal(), OXD_POLLING_PASS_TIMEOUT);
    EXPECT_EQ(host->slept(), 59);
    host->clear_faults();
    EXPECT_EQ(ask_for_renewal(), OXD_DEVICE_NOT_FOUND);
}

// A full or read-only folder.
TEST_F(HostTest, APassThatCouldNotMakeItsLockFileHoldsItOffToo) {
    host->write_file("/etc/ostrel/oxr.conf", "#\n");
    host->fail(testing_support::lasting(failing_with("open", ENOSPC, ".lock")));
    std::uint64_t in_mid_pass = 0;
    host->script_psp(OSTREL_PSP_IOCTL_GET_ALL_DEVICE_INFO, [&](void*, int result) {
        in_mid_pass = ask_for_renewal();
        return result;
    });
    ConfigValues values;
    run_worker_cycle(values);
    EXPECT_EQ(in_mid_pass, OXD_POLLING_PASS_TIMEOUT);
    EXPECT_EQ(ask_for_renewal(), OXD_DEVICE_NOT_FOUND);
}

}  // namespace
