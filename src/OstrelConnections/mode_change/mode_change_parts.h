// Steps that the two procedures share.
#pragma once

#include <algorithm>
#include <string_view>

#include "OstrelConnections/mode_change/mode_change.h"
#include "OstrelConnections/psp/adapter_list.h"
#include "OstrelProvider/log.h"
#include "common/heap.h"
#include "common/text.h"
#include "oxd_ima_utility/static_targets.h"

inline constexpr int MAX_STATIC_TARGETS_TO_REMOVE = 2048;

// Static targets to remove, all on the same adapters.
class RemoveList {
public:
    RemoveList() : entries_(oxr::make_zeroed_array<StaticTargetEntry>(MAX_STATIC_TARGETS_TO_REMOVE)) {}

    bool allocated() const { return entries_ != nullptr; }
    int count() const { return count_; }

    // False, with a WARN for `operation`, if the list is full: the next pass removes the target.
    bool add(const char* operation, const char* target_iqn, std::string_view target_ip);

    int remove_from(const AdapterName* adapters, int num_adapters) const;

private:
    std::unique_ptr<StaticTargetEntry[]> entries_;
    int count_ = 0;
};

// The changes that one call applies, and the adapters of their volumes.
struct ModeChangeBatch {
    mode_change_info changes[OSTREL_MAX_VOLUMES];
    int count = 0;
    UniqueAdapters adapters;

    // False, with a WARN for `operation`, if the volume's adapters do not fit: the next pass handles the volume.
    bool take(const char* operation, const mode_change_info& change, const OxrLun& lun);
};

// Records are packed; the first one with a remote address of fewer than 2 characters ends the list.
inline bool ends_list(const TargetDtls& session) {
    return oxr::field_view(session.current_remote_ip).size() < 2;
}

// The records before the end of the list.
inline int listed_sessions(const TargetDtls* sessions) {
    const TargetDtls* const end = std::find_if(sessions, sessions + MAX_SESSIONS_PER_TARGET, ends_list);
    return static_cast<int>(end - sessions);
}

inline bool is_logged_in(const TargetDtls& session, std::uint32_t type) {
    return session.session_type == type && session.session_state == SESSION_STATE_LOGGED_IN;
}

inline bool has_logged_in(const TargetDtls* sessions, std::uint32_t type) {
    return std::any_of(sessions, sessions + listed_sessions(sessions),
                       [&](const TargetDtls& session) { return is_logged_in(session, type); });
}

// Rediscovers one adapter. False if that failed.
bool rediscover_adapter(LogOperation operation, const AdapterName& adapter);

// Reads the sessions of a changed volume for the final removal. False if they cannot be read: the removal ends there.
bool read_changed_volume(LogOperation operation, OxrLun& lun, TargetDtls* sessions);
