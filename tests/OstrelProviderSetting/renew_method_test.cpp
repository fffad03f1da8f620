// The renewal method against the worker's lock file.
#include <gtest/gtest.h>

#include <cerrno>
#include <variant>

#include "OstrelConnections/renewal/renewal.h"
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
        EXPECT_EQ(ask_for_renewal(), OXD_POLLING_PASS_TIMEOUT) << error;
        host->clear_faults();
        EXPECT_EQ(ask_for_renewal(), OXD_DEVICE_NOT_FOUND);
    }
    host->write_file("/etc/ostrel/.lock", "");
    host->at(host->now() + 30, "the pass ends", [](simhost::Host& on) { on.remove_file("/etc/ostrel/.lock"); });
    EXPECT_EQ(ask_for_renewal(), OXD_DEVICE_NOT_FOUND);
}

}  // namespace
