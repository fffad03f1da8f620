#include "oxd_ima_utility/static_targets.h"

#include <cwchar>
#include <string_view>

#include "OstrelProvider/log.h"
#include "common/heap.h"
#include "common/stop_point.h"
#include "common/text.h"
#include "oxd_ima_utility/ima_list.h"
#include "oxd_ima_utility/ima_text.h"
#include "oxd_ima_utility/oid_cache.h"
#include "oxd_ima_utility/oid_lookup.h"

namespace {

constexpr LogOperation removal = "remove_iscsi_static_targets";

// The static targets of one adapter, and which of them are already removed.
struct AdapterTargets {
    ImaList list{OXR_MODULE, removal};
    std::unique_ptr<bool[]> removed;
};

bool has_name(const IMA_STATIC_DISCOVERY_TARGET& target, std::string_view name) {
    char narrow[IMA_NODE_NAME_CHARACTERS];
    wchar_t wide[IMA_NODE_NAME_CHARACTERS];
    const std::size_t length = wch_len(target.targetName, IMA_NODE_NAME_CHARACTERS - 1);
    std::wmemcpy(wide, target.targetName, length);
    wide[length] = L'\0';
    const wchar_t* source = wide;
    std::mbstate_t state{};
    const std::size_t converted = std::wcsrtombs(narrow, &source, sizeof narrow - 1, &state);
    return !name.empty() && converted != static_cast<std::size_t>(-1) && std::string_view(narrow, converted) == name;
}

bool has_portal(const IMA_TARGET_ADDRESS& address, std::string_view ip, std::uint32_t port) {
    if (address.hostnameInUse != 0 || address.portNumber != port) {
        return false;
    }
    const char* const text = getIPAddressStringFromImaIpAddress(address.id.ipAddress);
    return text != nullptr && text == ip;
}

bool matches(const IMA_STATIC_DISCOVERY_TARGET& target, const StaticTargetEntry& entry, std::uint32_t port) {
    return has_name(target, oxr::field_view(entry.target_iqn)) &&
           has_portal(target.targetAddress, oxr::field_view(entry.target_ip), port);
}

void warn_of_lost_credentials(const IMA_OID& target, const StaticTargetEntry& entry) {
    IMA_INITIATOR_AUTHPARMS parms{};
    if (IMA_VMW_GetInitiatorAuthParms(target, IMA_AUTHMETHOD_CHAP, &parms) == IMA_STATUS_SUCCESS &&
        parms.chapNameLength != 0) {
        OXR_WARN_IN(removal,
                    "CHAP is set for this static target name:%s, portal_ip:%s. It is going to be deleted and "
                    "credentials will be lost.",
                    oxr::FieldText(entry.target_iqn).c_str(), oxr::FieldText(entry.target_ip).c_str());
    }
}

// Removes the static target that matches an entry. 0 or -1.
int remove_matched(const IMA_OID& target, const StaticTargetEntry& entry, std::uint32_t port, bool& removed) {
    warn_of_lost_credentials(target, entry);
    if (const IMA_STATUS status = IMA_RemoveStaticDiscoveryTarget(target); status != IMA_STATUS_SUCCESS) {
        OXR_ERROR_IN(removal, "Unable to remove the static target");
        do_print_ima_error_msg(status, __LINE__, removal, OXR_MODULE);
        return -1;
    }
    removed = true;
    OXR_INFO_IN(removal, "Successfully removed static target %s, ip = %s, port = %d",
                oxr::FieldText(entry.target_iqn).c_str(), oxr::FieldText(entry.target_ip).c_str(),
                static_cast<int>(port));
    invalidate_oid_record(target);
    return 0;
}

// Finds one entry among the adapter's targets and removes it. 0 or -1.
int remove_entry(AdapterTargets& targets, const StaticTargetEntry& entry, std::uint32_t port) {
    int result = 0;
    for (std::uint64_t i = 0; i < targets.list.size(); ++i) {
        if (targets.removed[i]) {
            continue;
        }
        IMA_STATIC_DISCOVERY_TARGET_PROPERTIES properties{};
        const IMA_STATUS status = IMA_VMW_GetStaticDiscoveryTargetProperties(targets.list[i], &properties);
        if (status != IMA_STATUS_SUCCESS) {
            OXR_ERROR_IN(removal, "Unable to get the static target properties");
            do_print_ima_error_msg(status, __LINE__, removal, OXR_MODULE);
            result = -1;
        } else if (matches(properties.staticTarget, entry, port)) {
            return remove_matched(targets.list[i], entry, port, targets.removed[i]) != 0 ? -1 : result;
        }
    }
    OXR_WARN_IN(removal, "Static target to be removed not found");
    return result;
}

// False if the adapter or its static targets cannot be read.
bool list_adapter_targets(const char* adapter_name, AdapterTargets& targets) {
    IMA_OID lhba{};
    if (const int rv = iscsi_get_hba_oids(adapter_name, &lhba, nullptr); rv != 0) {
        OXR_ERROR_IN(removal, "iscsi_get_hba_oids returned rv = %d. adapter_name = %s", rv, adapter_name);
        return false;
    }
    if (IMA_VMW_GetStaticDiscoveryTargetOidList(lhba, targets.list.out()) != IMA_STATUS_SUCCESS) {
        OXR_ERROR_IN(removal, "Unable to get static target list.");
        return false;
    }
    targets.removed = oxr::make_zeroed_array<bool>(targets.list.size());
    if (targets.removed == nullptr) {
        OXR_ERROR_IN(removal, "can not allocate memory for the removed flags of %zu static targets.",
                     static_cast<std::size_t>(targets.list.size()));
        return false;
    }
    return true;
}

}  // namespace

int remove_iscsi_static_targets(const StaticTargetEntry* entries, int num_entries, std::uint32_t port,
                                const AdapterName* adapters, int num_adapters) {
    int result = 0;
    for (int a = 0; a < num_adapters; ++a) {
        AdapterTargets targets;
        if (!list_adapter_targets(oxr::FieldText(adapters[a]).c_str(), targets)) {
            return -1;
        }
        for (int e = 0; e < num_entries; ++e) {
            if (oxr::stop_point()) {
                return result;
            }
            if (remove_entry(targets, entries[e], port) != 0) {
                result = -1;
            }
        }
    }
    return result;
}
