#include "support/site.h"

#include <algorithm>
#include <optional>

#include "OstrelProvider/log.h"
#include "oxd_ima_utility/oid_cache.h"
#include "simhost/operations.h"
#include "support/host.h"
#include "tests/support/site.h"

namespace fuzz {

namespace {

using simhost::Event;
using simhost::GroupMode;
using simhost::Host;
using testing_support::add_volume;

void describe(Host& host, int sessions) {
    host.add_adapter("vmhba64", {"10.0.1.1", "10.0.1.2"});
    host.add_adapter("vmhba65", {"10.0.2.1", "10.0.2.2"});
    const simhost::ArraySpec first = {"a1", {"10.9.9.1"}};
    host.add_group({"dyn", GroupMode::dynamic_discovery, "10.9.9.100", {first}});
    host.add_group({"sta", GroupMode::static_discovery, "10.9.9.100", {first, {"a2", {"10.9.9.2"}}}});
    host.add_group_scoped_target({"iqn.gst", "dyn", {"a1"}, {}});
    add_volume(host, "dyn-0", sessions, {}, "dyn");
    add_volume(host, "dyn-1", 4, {}, "dyn");
    add_volume(host, "sta-0", 0, {}, "sta");
    add_volume(host, "pe-0", sessions, {}, "dyn", "iqn.gst");
    add_volume(host, "pe-1", -1, {}, "dyn", "iqn.gst");
    host.claim_paths();
}

bool changes_the_site(Event::Kind kind) {
    using enum Event::Kind;
    constexpr Event::Kind others[] = {adapter_rescanned, dead_paths_requested, mode_switched, pass_begun,
                                      pass_ended,        sleep_begun,          action,        fault_injected};
    return std::find(std::begin(others), std::end(others), kind) == std::end(others);
}

}  // namespace

FuzzedSite::FuzzedSite(unsigned kind) : kind_(kind) {
    simhost::HostOptions options;
    options.claim_seconds = -1;
    host_ = make_host(options);
    constexpr int settled = 4;  // one a NIC
    describe(*host_, kind == 1 ? 2 : kind == 2 ? 7 : settled);
    if (kind == 3) {
        host_->switch_mode("sta", GroupMode::dynamic_discovery);
    } else if (kind == 4) {
        host_->switch_mode("dyn", GroupMode::static_discovery);
    } else if (kind == 5) {
        for (const simhost::SessionView& each : host_->sessions("iqn.gst")) {
            host_->set_state(each.oid, each.oid % 2 == 0 ? simhost::IN_LOGIN : simhost::XPT_WAIT);
        }
        host_->fail_logins(true);
    }
    host_->observe([this](const Event& event) {
        if (changes_the_site(event.kind)) {
            happenings_.push_back(event);
        }
    });
}

FuzzedSite& FuzzedSite::of(unsigned kind) {
    static std::optional<FuzzedSite> site;
    if (!site || site->kind_ != kind || !site->happenings_.empty()) {
        site.reset();
        site.emplace(kind);
    }
    return *site;
}

void FuzzedSite::finish() {
    for (const simhost::Operation& each : simhost::OPERATIONS) {
        host_->script_ima(std::string(each.name), {});
    }
    for (unsigned long request = 0; request < 8; ++request) {
        host_->script_psp(request, {});
    }
    refresh_target_oids_table();
    require_nothing_held(*host_);
}

}  // namespace fuzz
