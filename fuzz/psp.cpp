// Replies of the path-selection plug-in: the model's own, changed by the fuzzer's bytes, through each request of the
// client and through a whole pass. Nothing is done to a target that no usable reply named, nor on an adapter that
// wasn't named with it; no session of a group-scoped target goes without transport addresses.
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <map>
#include <set>

#include "OstrelConnections/polling_pass.h"
#include "OstrelConnections/psp/psp_client.h"
#include "OstrelProvider/log_level.h"
#include "common/text.h"
#include "support/host.h"
#include "support/input.h"
#include "support/site.h"

namespace {

using fuzz::Input;
using fuzz::require;

using AllDevices = OstrelPspIoctlGetAllDeviceInfoData;
using AllTargets = OstrelPspIoctlGetAllGroupScopedTargetsData;
using Addresses = OstrelPspIoctlGetTransportAddrsData;

using Lun = OxrLun;
using Target = OstrelPspGroupScopedTarget;
using Device = OstrelPspTransportAddrs;

// Where a request's reply has its records and its count, and where the numbers of a record begin.
struct Layout {
    unsigned long request;
    std::size_t records_at;
    std::size_t record_size;
    unsigned num_records;
    std::size_t count_at;
    std::size_t numbers_at;
};
constexpr std::size_t NO_COUNT = SIZE_MAX;
constexpr Layout LAYOUTS[] = {
    {0, offsetof(AllDevices, devices), sizeof(Lun), OSTREL_MAX_VOLUMES, offsetof(AllDevices, num_devices),
     offsetof(Lun, num_sessions)},
    {3, 0, sizeof(Target), OSTREL_MAX_GROUP_SCOPED_TARGETS, offsetof(AllTargets, num_targets),
     offsetof(Target, num_luns)},
    {7, offsetof(Addresses, devices), sizeof(Device), OSTREL_MAX_VOLUMES, offsetof(Addresses, num_devices),
     offsetof(Device, num_paths)},
    {1, 0, sizeof(Lun), 1, NO_COUNT, offsetof(Lun, num_sessions)},
    {4, 0, sizeof(Target), 1, NO_COUNT, offsetof(Target, num_luns)},
    {5, 0, sizeof(AdapterName), 1, NO_COUNT, 0},
    {6, 0, sizeof(AdapterName), 1, NO_COUNT, 0},
};

// One change of a reply.
struct Change {
    enum Kind { bytes, number, count, result, copy, fill };
    Kind kind;
    unsigned record;
    std::size_t offset = 0;
    std::int32_t value = 0;
    std::string text = {};
};

Change read_change(Input& input, const Layout& layout) {
    Change change{static_cast<Change::Kind>(input.below(6)), input.below(layout.num_records)};
    if (change.kind == Change::bytes) {
        change.offset = input.number<std::uint16_t>() % layout.record_size;
    } else if (change.kind == Change::number) {
        constexpr std::size_t width = sizeof(std::int32_t);
        change.offset = layout.numbers_at + width * (input.byte() % ((layout.record_size - layout.numbers_at) / width));
    }
    if (change.kind == Change::bytes || change.kind == Change::fill) {
        change.text = input.text(64);
    } else if (change.kind == Change::copy) {
        change.value = static_cast<std::int32_t>(input.below(layout.num_records));
    } else {
        change.value = change.kind == Change::result ? input.number<std::int8_t>() : input.number<std::int32_t>();
    }
    return change;
}

void put_number(char* buffer, std::size_t at, std::int32_t value) {
    std::memcpy(buffer + at, &value, sizeof value);
}

void apply(const Change& change, const Layout& layout, char* buffer, int& result) {
    const auto record_at = [&](std::size_t index) { return buffer + layout.records_at + index * layout.record_size; };
    char* const record = record_at(change.record);
    switch (change.kind) {
        case Change::bytes:
        case Change::fill:
            return fuzz::overwrite(record + change.offset, layout.record_size - change.offset, change.text,
                                   change.kind == Change::fill);
        case Change::number:
            return put_number(record, change.offset, change.value);
        case Change::count:
            return layout.count_at != NO_COUNT ? put_number(buffer, layout.count_at, change.value) : void();
        case Change::result:
            result = change.value < 0 ? -EIO : change.value;
            return;
        case Change::copy:
            std::memmove(record, record_at(static_cast<std::size_t>(change.value)), layout.record_size);
    }
}

using Named = std::map<std::string, std::set<std::string>>;  // IQN: adapters

// What the replies of a pass told that may be acted on.
struct Told {
    Named volumes;
    Named group_scoped;
    bool mode_changed = false;
    bool addresses = false;
};

template <std::size_t N>
std::string text_of(const char (&field)[N]) {
    return std::string(oxr::field_view(field));
}

bool possible(std::int32_t value, std::int32_t most = INT32_MAX) {
    return value >= 0 && value <= most;
}

bool is_usable(const Lun& lun) {
    return possible(lun.num_adapters, 8) && possible(lun.num_total_paths) && possible(lun.num_active_paths) &&
           possible(lun.num_dead_paths) && (lun.isVvolPE != 0 || lun.num_of_mem_array >= 1);
}

bool is_usable(const Target& target) {
    return possible(target.num_adapters, 8) && target.num_luns > 0 && possible(target.num_luns, 1024) &&
           target.group_mode != 1;
}

// Whether one of them was switched.
template <typename Record, std::int32_t N>
bool note_records(const Record (&records)[N], std::int32_t count, Named& named) {
    bool mode_changed = false;
    for (std::int32_t i = 0; possible(count, N) && i < count; ++i) {
        const Record& record = records[i];
        if (is_usable(record)) {
            std::set<std::string>& adapters = named[text_of(record.target_iqn)];
            for (int a = 0; a < record.num_adapters; ++a) {
                adapters.insert(text_of(record.vmhba_name_array[a]));
            }
            mode_changed = mode_changed || record.mode_changed == 1;
        }
    }
    return mode_changed;
}

void note_addresses(const Addresses& reply, Told& told) {
    told.addresses = possible(reply.num_devices, 256);
    for (int i = 0; told.addresses && i < reply.num_devices; ++i) {
        told.addresses = possible(reply.devices[i].num_paths, 32);
    }
}

void note(unsigned long request, const void* buffer, int result, Told& told) {
    if (request == 0 && result == 0) {
        const auto& reply = *static_cast<const AllDevices*>(buffer);
        told.mode_changed = note_records(reply.devices, reply.num_devices, told.volumes) || told.mode_changed;
    } else if (request == 3 && result == 0) {
        const auto& reply = *static_cast<const AllTargets*>(buffer);
        (void)note_records(reply.targets, reply.num_targets, told.group_scoped);
    } else if (request == 7 && (result == 0 || result == 1)) {
        note_addresses(*static_cast<const Addresses*>(buffer), told);
    }
}

bool names(const Named& targets, const simhost::Event& what) {
    const auto found = targets.find(what.target);
    return found != targets.end() && found->second.contains(what.adapter);
}

void judge(const fuzz::FuzzedSite& site, const Told& told) {
    using Kind = simhost::Event::Kind;
    for (const simhost::Event& each : site.happenings()) {
        if (each.kind == Kind::session_removed) {
            require(names(told.volumes, each) || (names(told.group_scoped, each) && told.addresses),
                    "a session was removed that no usable reply stands for", each.target + " " + each.text);
        } else if (each.kind == Kind::session_added && !told.mode_changed) {
            require(names(told.volumes, each) || names(told.group_scoped, each),
                    "a session was added that no usable reply stands for", each.target + " " + each.text);
        } else if (each.kind == Kind::static_target_removed || each.kind == Kind::adapter_rediscovered) {
            require(told.mode_changed, "a switch was carried out that no usable reply told", each.target);
        }
    }
}

// --- acts -------------------------------------------------------------------------------------------------------

void ask_for_one(const std::string& name) {
    Lun lun;
    if (getDeviceInfoByTargetIqn(lun, name.c_str()) == 0) {
        require(possible(lun.num_adapters, 8) && possible(lun.num_sessions) && possible(lun.num_dynamic_sessions),
                "a volume with an impossible count came through");
    }
    static Target target;
    if (getGroupScopedTargetInfoByIqn(target, name.c_str()) == 0) {
        require(possible(target.num_adapters, 8) && possible(target.num_luns, 1024), "impossible counts");
    }
    const auto addresses = std::make_unique<Addresses>();
    if (get_transport_addrs_ioctl(*addresses) >= 0) {
        require(possible(addresses->num_devices, 256), "impossible number of devices");
        for (const std::string& eui : {std::string("dyn-0"), name}) {
            const Device* const found = find_transport_addrs(*addresses, eui);
            require(found == nullptr || (possible(found->num_paths, 32) && oxr::field_view(found->device_eui) == eui),
                    "another device was found");
        }
    }
}

ConfigValues read_config(Input& input) {
    ConfigValues values;
    values.vmknic_count = input.below(4);
    values.vol_sessions = input.below(9);
    values.max_vol_sessions = 2 + input.below(31);
    values.min_pe_sessions = 4 + input.below(29);
    return values;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    fuzz::FuzzedSite& site = fuzz::FuzzedSite::of(input.below(fuzz::NUM_SITES));
    const unsigned what = input.below(8);
    log_level = input.below(4) == 1 ? 2 : 0;
    const ConfigValues values = read_config(input);
    const std::string name = input.text(300).c_str();  // up to a terminator
    std::map<const Layout*, std::vector<Change>> changes;
    for (int n = 0; n < 32 && !input.empty(); ++n) {
        const Layout& layout = LAYOUTS[input.below(std::size(LAYOUTS))];
        changes[&layout].push_back(read_change(input, layout));
    }
    Told told;
    for (const Layout& layout : LAYOUTS) {
        site.host().script_psp(layout.request, [&](void* buffer, int result) {
            for (const Change& each : changes[&layout]) {
                apply(each, layout, static_cast<char*>(buffer), result);
            }
            note(layout.request, buffer, result, told);
            return result;
        });
    }
    if (what < 5) {
        ask_for_one(name);
    } else {
        (void)handle_ostrel_connections(values);
    }
    judge(site, told);
    site.finish();
    return 0;
}
