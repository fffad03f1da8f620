// Replies of the path-selection plug-in: the model's own, changed by the fuzzer's bytes, through each request of the
// client and through a whole pass. Nothing is done to a target that no usable reply named, nor on an adapter that
// wasn't named with it; no session of a group-scoped target goes without transport addresses.
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <map>
#include <set>
#include <span>

#include "OstrelConnections/polling_pass.h"
#include "OstrelConnections/psp/psp_client.h"
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

// Numbers in the records, from which a byte picks.
using Lun = OxrLun;
using Target = OstrelPspGroupScopedTarget;
using Device = OstrelPspTransportAddrs;
constexpr std::size_t LUN_NUMBERS[] = {offsetof(Lun, num_sessions),
                                       offsetof(Lun, num_dynamic_sessions),
                                       offsetof(Lun, num_login_pending_sessions),
                                       offsetof(Lun, num_adapters),
                                       offsetof(Lun, num_total_paths),
                                       offsetof(Lun, num_active_paths),
                                       offsetof(Lun, num_dead_paths),
                                       offsetof(Lun, num_of_mem_array),
                                       offsetof(Lun, group_mode),
                                       offsetof(Lun, mode_changed),
                                       offsetof(Lun, isVvolPE),
                                       offsetof(Lun, isGstVolume)};
constexpr std::size_t TARGET_NUMBERS[] = {
    offsetof(Target, num_luns),         offsetof(Target, num_adapters),     offsetof(Target, total_active_paths),
    offsetof(Target, total_dead_paths), offsetof(Target, num_active_array), offsetof(Target, num_total_array_in_group),
    offsetof(Target, group_mode),       offsetof(Target, mode_changed)};
constexpr std::size_t ACTIVE_AT = offsetof(Device, paths) + offsetof(OstrelPspTransportPath, is_active);
constexpr std::size_t DEVICE_NUMBERS[] = {offsetof(Device, num_paths), ACTIVE_AT,
                                          ACTIVE_AT + 2 * sizeof(OstrelPspTransportPath)};
constexpr std::size_t NAME_NUMBERS[] = {0};

// Where a request's reply has its records and its count.
struct Layout {
    unsigned long request;
    std::size_t records_at;
    std::size_t record_size;
    unsigned num_records;
    std::size_t count_at;
    std::span<const std::size_t> numbers;
};
constexpr std::size_t NO_COUNT = SIZE_MAX;
constexpr Layout LAYOUTS[] = {
    {0, offsetof(AllDevices, devices), sizeof(Lun), OSTREL_MAX_VOLUMES, offsetof(AllDevices, num_devices), LUN_NUMBERS},
    {3, 0, sizeof(Target), OSTREL_MAX_GROUP_SCOPED_TARGETS, offsetof(AllTargets, num_targets), TARGET_NUMBERS},
    {7, offsetof(Addresses, devices), sizeof(Device), OSTREL_MAX_VOLUMES, offsetof(Addresses, num_devices),
     DEVICE_NUMBERS},
    {1, 0, sizeof(Lun), 1, NO_COUNT, LUN_NUMBERS},
    {4, 0, sizeof(Target), 1, NO_COUNT, TARGET_NUMBERS},
    {5, 0, sizeof(AdapterName), 1, NO_COUNT, NAME_NUMBERS},
    {6, 0, sizeof(AdapterName), 1, NO_COUNT, NAME_NUMBERS},
};
constexpr unsigned NUM_LAYOUTS = std::size(LAYOUTS);

// One change of a reply.
struct Change {
    enum Kind { bytes, number, count, result, copy, fill };
    Kind kind;
    unsigned record;
    std::size_t offset;
    std::int32_t value;
    std::string text;
};

Change read_change(Input& input, const Layout& layout) {
    Change change{static_cast<Change::Kind>(input.below(6)), input.below(layout.num_records), 0, 0, {}};
    switch (change.kind) {
        case Change::bytes:
            change.offset = input.number<std::uint16_t>() % layout.record_size;
            change.text = input.text(64);
            break;
        case Change::number:
            change.offset = layout.numbers[input.byte() % layout.numbers.size()];
            change.value = input.number<std::int32_t>();
            break;
        case Change::count:
            change.value = input.number<std::int32_t>();
            break;
        case Change::result:
            change.value = input.number<std::int8_t>();
            break;
        case Change::copy:
            change.value = static_cast<std::int32_t>(input.below(layout.num_records));
            break;
        case Change::fill:
            change.text = input.text(64);
            break;
    }
    return change;
}

void put_number(char* buffer, std::size_t at, std::int32_t value) {
    std::memcpy(buffer + at, &value, sizeof value);
}

void apply(const Change& change, const Layout& layout, char* buffer, int& result) {
    char* const record = buffer + layout.records_at + change.record * layout.record_size;
    switch (change.kind) {
        case Change::bytes:
            fuzz::overwrite(record + change.offset, layout.record_size - change.offset, change.text, false);
            break;
        case Change::number:
            put_number(record, change.offset, change.value);
            break;
        case Change::count:
            if (layout.count_at != NO_COUNT) {
                put_number(buffer, layout.count_at, change.value);
            }
            break;
        case Change::result:
            result = change.value < 0 ? -EIO : change.value;
            break;
        case Change::copy:
            std::memmove(record,
                         buffer + layout.records_at + static_cast<std::size_t>(change.value) * layout.record_size,
                         layout.record_size);
            break;
        case Change::fill:  // the whole record
            fuzz::overwrite(record, layout.record_size, change.text, true);
            break;
    }
}

// What the replies of a pass told that may be acted on.
struct Told {
    std::map<std::string, std::set<std::string>> volumes;  // IQN: adapters
    std::map<std::string, std::set<std::string>> group_scoped;
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

template <typename Record>
void name_adapters(const Record& record, std::set<std::string>& adapters) {
    for (int a = 0; a < record.num_adapters; ++a) {
        adapters.insert(text_of(record.vmhba_name_array[a]));
    }
}

void note_devices(const AllDevices& reply, Told& told) {
    if (!possible(reply.num_devices, 256)) {
        return;
    }
    for (int i = 0; i < reply.num_devices; ++i) {
        const OxrLun& lun = reply.devices[i];
        if (possible(lun.num_adapters, 8) && possible(lun.num_total_paths) && possible(lun.num_active_paths) &&
            possible(lun.num_dead_paths) && (lun.isVvolPE != 0 || lun.num_of_mem_array >= 1)) {
            name_adapters(lun, told.volumes[text_of(lun.target_iqn)]);
            told.mode_changed = told.mode_changed || lun.mode_changed == 1;
        }
    }
}

void note_targets(const AllTargets& reply, Told& told) {
    if (!possible(reply.num_targets, 32)) {
        return;
    }
    for (int i = 0; i < reply.num_targets; ++i) {
        const OstrelPspGroupScopedTarget& target = reply.targets[i];
        if (possible(target.num_adapters, 8) && target.num_luns > 0 && possible(target.num_luns, 1024) &&
            target.group_mode != 1) {
            name_adapters(target, told.group_scoped[text_of(target.target_iqn)]);
        }
    }
}

void note_addresses(const Addresses& reply, Told& told) {
    told.addresses = possible(reply.num_devices, 256);
    for (int i = 0; told.addresses && i < reply.num_devices; ++i) {
        told.addresses = possible(reply.devices[i].num_paths, 32);
    }
}

void note(unsigned long request, const void* buffer, int result, Told& told) {
    if (request == 0 && result == 0) {
        note_devices(*static_cast<const AllDevices*>(buffer), told);
    } else if (request == 3 && result == 0) {
        note_targets(*static_cast<const AllTargets*>(buffer), told);
    } else if (request == 7 && (result == 0 || result == 1)) {
        note_addresses(*static_cast<const Addresses*>(buffer), told);
    }
}

bool names(const std::map<std::string, std::set<std::string>>& targets, const fuzz::Happening& what) {
    const auto found = targets.find(what.target);
    return found != targets.end() && found->second.contains(what.adapter);
}

void judge(const fuzz::Site& site, const Told& told) {
    using Kind = simhost::Event::Kind;
    for (const fuzz::Happening& each : site.happenings()) {
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

void require_usable(const OxrLun& lun) {
    require(possible(lun.num_adapters, 8), "a volume with an impossible count came through");
    require(possible(lun.num_sessions) && possible(lun.num_dynamic_sessions), "impossible session counts");
}

void list_devices() {
    static OxrLun luns[OSTREL_MAX_VOLUMES];
    static mode_change_info changes[OSTREL_MAX_VOLUMES];
    int count = 0;
    int paths = 0;
    if (populate_Oxr_Luns(luns, count, paths) < 0) {
        return;
    }
    require(possible(count, 256) && paths >= 0, "impossible number of devices or paths");
    std::for_each(luns, luns + count, require_usable);
    int num_changes = 0;
    int to_dynamic = 0;
    int to_static = 0;
    get_mode_change_info(luns, changes, num_changes, count, to_dynamic, to_static);
    require(possible(num_changes, count) && (num_changes > 0) == (to_dynamic != 0 || to_static != 0), "mode changes");
}

void list_targets() {
    static OstrelPspGroupScopedTarget targets[OSTREL_MAX_GROUP_SCOPED_TARGETS];
    int count = 0;
    if (get_all_group_scoped_targets_ioctl(targets, count) < 0) {
        return;
    }
    require(possible(count, 32), "impossible number of targets");
    for (int i = 0; i < count; ++i) {
        require(possible(targets[i].num_adapters, 8) && targets[i].num_luns > 0 && targets[i].num_luns <= 1024,
                "a target with an impossible count came through");
    }
}

void list_addresses(const std::string& name) {
    static Addresses addresses;
    std::memset(static_cast<void*>(&addresses), 0, sizeof addresses);
    if (get_transport_addrs_ioctl(addresses) < 0) {
        return;
    }
    require(possible(addresses.num_devices, 256), "impossible number of devices");
    for (const std::string_view eui : {std::string_view("dyn-0"), std::string_view(name)}) {
        const OstrelPspTransportAddrs* const found = find_transport_addrs(addresses, eui);
        require(found == nullptr || (possible(found->num_paths, 32) && oxr::field_view(found->device_eui) == eui),
                "another device was found");
    }
}

void ask_for_one(const std::string& iqn) {
    OxrLun lun;
    if (getDeviceInfoByTargetIqn(lun, iqn.c_str()) == 0) {
        require_usable(lun);
    }
    static OstrelPspGroupScopedTarget target;
    if (getGroupScopedTargetInfoByIqn(target, iqn.c_str()) == 0) {
        require(possible(target.num_adapters, 8) && possible(target.num_luns, 1024), "impossible counts");
    }
}

void command_adapters(const std::string& name) {
    AdapterName adapters[2];
    oxr::copy_field(adapters[0], "vmhba64");
    oxr::copy_field(adapters[1], name);
    require(rescan_ioctl(adapters, 2) >= -1, "rescan result");
    const int deleted = delete_dead_path_ioctl(adapters, 2, 2);
    require(deleted == 0 || deleted == -1, "dead path result");
}

ConfigValues read_config(Input& input) {
    ConfigValues values;
    values.vmknic_count = input.below(4);
    values.vol_sessions = input.below(9);
    values.max_vol_sessions = 2 + input.below(31);
    values.min_pe_sessions = 4 + input.below(29);
    return values;
}

void act(unsigned what, const ConfigValues& values, const std::string& name) {
    switch (what) {
        case 0:
            return list_devices();
        case 1:
            return list_targets();
        case 2:
            return list_addresses(name);
        case 3:
            return ask_for_one(name);
        case 4:
            return command_adapters(name);
        default:
            (void)handle_ostrel_connections(values);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    fuzz::Site& site = fuzz::Site::of(input.below(fuzz::NUM_SITES));
    const unsigned what = input.below(8);
    log_level = input.below(4) == 1 ? 2 : 0;
    const ConfigValues values = read_config(input);
    const std::string name = input.text(300).c_str();  // up to a terminator
    std::map<const Layout*, std::vector<Change>> changes;
    for (int n = 0; n < 32 && !input.empty(); ++n) {
        const Layout& layout = LAYOUTS[input.below(NUM_LAYOUTS)];
        changes[&layout].push_back(read_change(input, layout));
    }
    Told told;
    for (const Layout& layout : LAYOUTS) {
        site.script_psp(layout.request, [&](void* buffer, int result) {
            for (const Change& each : changes[&layout]) {
                apply(each, layout, static_cast<char*>(buffer), result);
            }
            note(layout.request, buffer, result, told);
            return result;
        });
    }
    act(what, values, name);
    judge(site, told);
    site.finish();
    return 0;
}
