#include "support/site.h"

#include <algorithm>
#include <optional>

#include "OstrelProvider/log.h"
#include "oxd_ima_utility/oid_cache.h"
#include "support/host.h"

namespace fuzz {

namespace {

using simhost::Event;
using simhost::GroupMode;
using simhost::Host;

void add_group(Host& host, const std::string& name, GroupMode mode, int arrays) {
    simhost::GroupSpec group;
    group.name = name;
    group.mode = mode;
    group.discovery_ip = "10.9.9.100";
    for (int a = 1; a <= arrays; ++a) {
        group.arrays.push_back({"a" + std::to_string(a), {"10.9.9." + std::to_string(a)}});
    }
    host.add_group(group);
}

void add_volume(Host& host, const std::string& name, const std::string& group, const std::string& behind,
                int sessions) {
    simhost::VolumeSpec volume;
    volume.eui = name;
    volume.group = group;
    volume.group_scoped_target = behind;
    volume.protocol_endpoint = !behind.empty();
    host.add_volume(volume);
    if (sessions >= 0) {
        host.connect(host.iqn_of(name), sessions);
    }
}

void describe(Host& host, int sessions) {
    host.add_adapter("vmhba64", {"10.0.1.1", "10.0.1.2"});
    host.add_adapter("vmhba65", {"10.0.2.1", "10.0.2.2"});
    add_group(host, "dyn", GroupMode::dynamic_discovery, 1);
    add_group(host, "sta", GroupMode::static_discovery, 2);
    host.add_group_scoped_target({"iqn.gst", "dyn", {"a1"}, {}});
    add_volume(host, "dyn-0", "dyn", "", sessions);
    add_volume(host, "dyn-1", "dyn", "", 4);
    add_volume(host, "sta-0", "sta", "", 0);
    add_volume(host, "pe-0", "dyn", "iqn.gst", sessions);
    add_volume(host, "pe-1", "dyn", "iqn.gst", -1);
    host.claim_paths();
}

bool changes_the_site(Event::Kind kind) {
    switch (kind) {
        case Event::Kind::session_added:
        case Event::Kind::session_removed:
        case Event::Kind::session_lost:
        case Event::Kind::session_state:
        case Event::Kind::path_claimed:
        case Event::Kind::path_died:
        case Event::Kind::dead_path_deleted:
        case Event::Kind::adapter_rediscovered:
        case Event::Kind::static_target_removed:
        case Event::Kind::violation:
            return true;
        default:
            return false;
    }
}

}  // namespace

Site::Site(unsigned kind) : kind_(kind) {
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
            happenings_.push_back({event.kind, event.target, event.adapter, event.text});
        }
    });
}

Site& Site::of(unsigned kind) {
    static std::optional<Site> site;
    if (!site || site->kind_ != kind || !site->happenings_.empty()) {
        site.reset();
        site.emplace(kind);
    }
    return *site;
}

bool Site::any(Event::Kind kind) const {
    return std::any_of(happenings_.begin(), happenings_.end(),
                       [&](const Happening& each) { return each.kind == kind; });
}

void Site::script_psp(unsigned long request, std::function<int(void* buffer, int result)> script) {
    host_->script_psp(request, std::move(script));
    psp_scripts_.push_back(request);
}

void Site::script_ima(const std::string& operation,
                      std::function<std::uint32_t(void* out, std::uint32_t status)> script) {
    host_->script_ima(operation, std::move(script));
    ima_scripts_.push_back(operation);
}

void Site::finish() {
    for (const unsigned long request : psp_scripts_) {
        host_->script_psp(request, {});
    }
    for (const std::string& operation : ima_scripts_) {
        host_->script_ima(operation, {});
    }
    psp_scripts_.clear();
    ima_scripts_.clear();
    refresh_target_oids_table();
    require_nothing_held(*host_);
}

}  // namespace fuzz
