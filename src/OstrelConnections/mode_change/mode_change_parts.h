// What the two procedures and their final removals have in common.
#pragma once

#include <algorithm>
#include <optional>
#include <string_view>

#include "OstrelConnections/mode_change/mode_change.h"
#include "OstrelConnections/psp/adapter_list.h"
#include "OstrelProvider/log.h"
#include "common/heap.h"
#include "common/text.h"
#include "oxd_ima_utility/static_targets.h"

inline constexpr int MAX_STATIC_TARGETS_TO_REMOVE = 2048;

// Static targets to be removed, all on the same adapters.
class RemoveList {
public:
    RemoveList() : entries_(oxr::make_zeroed_array<StaticTargetEntry>(MAX_STATIC_TARGETS_TO_REMOVE)) {}

    bool allocated() const { return entries_ != nullptr; }
    int count() const { return count_; }

    // False, with a WARN for `operation`, when the list is full: the target is left to the next pass.
    bool add(const char* operation, const char* target_iqn, std::string_view target_ip);

    int remove_from(const AdapterName* adapters, int num_adapters) const;

private:
    std::unique_ptr<StaticTargetEntry[]> entries_;
    int count_ = 0;
};

// The changes that one call works on, and the adapters of their volumes.
struct ModeChangeBatch {
    mode_change_info changes[OSTREL_MAX_VOLUMES];
    int count = 0;
    UniqueAdapters adapters;

    // False, with a WARN for `operation`, when the volume's adapters no longer fit: it is left to the next pass.
    bool take(const char* operation, const mode_change_info& change, const OxrLun& lun);
};

// Records are packed from the front: one whose remote address is shorter than 2 characters ends them.
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

// Rediscovers each adapter, one after the other; `on_failure` logs one that failed.
void rediscover_adapters(const char* operation, const UniqueAdapters& adapters, void (*on_failure)());

// How the last step of a procedure goes over the changed volumes.
struct FinalRemoval {
    const char* operation;   // for whom it is logged
    std::int32_t change;     // of the entries it is for
    std::uint32_t new_kind;  // a logged-in session of this kind must be there before anything is removed
    std::uint32_t old_kind;  // logged-in sessions of this kind show what is to be removed
    void (*on_missing)(const char* target_iqn);
    void (*collect)(RemoveList& list, const TargetDtls& session, const char* target_iqn);
};

// Collects what is to be removed of the volumes that are ready for it. 0; -1 when some volume isn't ready and
// keeps what it has; nothing when a volume's sessions can't be read: the step ends there.
std::optional<int> collect_old_kind(const FinalRemoval& removal, const mode_change_info* changes, int num_changes,
                                    OxrLun* luns, RemoveList& list);
