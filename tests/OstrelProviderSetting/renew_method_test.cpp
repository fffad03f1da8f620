// The renewal method against the worker's lock file.
#include <gtest/gtest.h>

#include <cerrno>
#include <variant>

#include "OstrelConnections/psp/psp_records.h"
#include "OstrelConnections/renewal/renewal.h"
#include "OstrelProvider/worker.h"
#include "OstrelProviderSetting/setting_methods.h"
#include "cimserver/broker/objects.h"
#include "support/host_test.h"
#include "support/site.h"

namespace {

using cimserver::NamedList;

// The status that a renewal of an unknown target comes back with: that it is unknown, unless it is held off.
std::uint64_t ask_for_renewal() {
    const cimserver::Request request;
    auto* const in =
        cimserver::make_object<cimserver::ArgsObject>(NamedList{{"targets", cimserver::text_list({"iqn.unknown"})},
                                                                {"paramname", cimserver::null_value(CMPI_string)},
                                                                {"paramvalue", cimserver::null_value(CMPI_string)}});
    auto* const out = cimserver::make_object<cimserver::ArgsObject>(NamedList{});
    (void)OstrelHandleRenewIscsiConnections(nullptr, in, out);
    return std::get<std::uint64_t>(cimserver::find(out->args, "oxd_status")->data);
}

class RenewMethod : public testing_support::HostTest {
protected:
    RenewMethod() { host->write_file("/etc/ostrel/oxr.conf", "use_ostrel_timeouts=1\nostrel_logs_path=\n"); }
};

TEST_F(RenewMethod, ALockFileThatIsThereOrCannotBeSeenHoldsARenewalOff) {
    EXPECT_EQ(ask_for_renewal(), OXD_DEVICE_NOT_FOUND);
    for (const int error : {EIO, EACCES}) {
        simhost::Fault fault = testing_support::failing_with("access", error, ".lock");
        fault.persistent = true;
        host->fail(fault);
        const double slept = host->slept();
        EXPECT_EQ(ask_for_renewal(), OXD_POLLING_PASS_TIMEOUT) << error;
        EXPECT_EQ(host->slept() - slept, 59);
        host->clear_faults();
        EXPECT_EQ(ask_for_renewal(), OXD_DEVICE_NOT_FOUND);
    }
    host->write_file("/etc/ostrel/.lock", "");
    host->at(host->now() + 30, "the pass ends", [](simhost::Host& on) { on.remove_file("/etc/ostrel/.lock"); });
    EXPECT_EQ(ask_for_renewal(), OXD_DEVICE_NOT_FOUND);
}

// A full or read-only folder.
TEST_F(RenewMethod, APassThatCouldNotMakeItsLockFileHoldsItOffToo) {
    simhost::Fault fault = testing_support::failing_with("open", ENOSPC, ".lock");
    fault.persistent = true;
    host->fail(fault);
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
