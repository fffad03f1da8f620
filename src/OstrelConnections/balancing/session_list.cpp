#include "OstrelConnections/balancing/session_list.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "OstrelProvider/log.h"
#include "common/text.h"

namespace {

constexpr LogOperation grouping = "create_session_list";

bool is_left_out(const TargetDtls& record, int ignore_xpt_wait) {
    if (record.session_type == SESSION_STATIC ||
        (ignore_xpt_wait == 1 && record.session_state == SESSION_STATE_XPT_WAIT)) {
        OXR_INFO_IN(
            grouping,
            "session %s is of STATIC(MANUAL) type or in XPT_WAIT state and ignore XPT_WAIT sessions flag is set "
            "to true. Skipping this session.",
            oxr::FieldText(record.isid).c_str());
        return true;
    }
    if (record.current_local_ip[0] == '\0' && record.current_remote_ip[0] == '\0') {
        OXR_DEBUG_IN(grouping, "Ignoring active array sessions during removal. session id %s vmhba %s",
                     oxr::FieldText(record.isid).c_str(), oxr::FieldText(record.vmhba_name).c_str());
        return true;
    }
    return false;
}

void store_session(ip_session_list& entry, const TargetDtls& record) {
    oxr::copy_text(entry.isid[entry.count], oxr::field_view(record.isid));
    oxr::copy_text(entry.vmhba_name[entry.count], oxr::field_view(record.vmhba_name));
    entry.session_state[entry.count] = record.session_state;
    ++entry.count;
}

void open_entry(ip_session_list* list, int index, const TargetDtls& record) {
    ip_session_list& entry = list[index];
    oxr::copy_text(entry.local_ip, oxr::field_view(record.current_local_ip));
    OXR_DEBUG_IN(grouping, "Copying session - %s to ip_session_list[%d]->0", oxr::FieldText(record.isid).c_str(),
                 index);
    store_session(entry, record);
    OXR_DEBUG_IN(grouping, "ip_session_list[%d]->isid[0] = %s", index, entry.isid[0]);
}

void swap_sessions(ip_session_list& entry, int i, int j) {
    std::swap(entry.isid[i], entry.isid[j]);
    std::swap(entry.vmhba_name[i], entry.vmhba_name[j]);
    std::swap(entry.session_state[i], entry.session_state[j]);
}

void sort_entry(ip_session_list& entry) {
    int i = 0;
    int j = entry.count - 1;
    for (;;) {
        while (i <= j && entry.session_state[i] == SESSION_STATE_LOGGED_IN) {
            ++i;
        }
        while (j > i && entry.session_state[j] != SESSION_STATE_LOGGED_IN) {
            --j;
        }
        if (i >= j) {
            return;
        }
        swap_sessions(entry, i, j);
    }
}

bool has_fewer_sessions(const ip_session_list& a, const ip_session_list& b) {
    return a.count < b.count;
}

}  // namespace

void create_session_list(ip_session_list* list, int& num_entries, int num_records, const TargetDtls* records,
                         int ignore_xpt_wait) {
    int entries = 0;
    const int looked_at = std::min(num_records, MAX_SESSIONS_PER_TARGET);
    for (int r = 0; r < looked_at; ++r) {
        const TargetDtls& record = records[r];
        if (is_left_out(record, ignore_xpt_wait)) {
            continue;
        }
        const std::string_view local_ip = oxr::field_view(record.current_local_ip);
        ip_session_list* const end = list + entries;
        ip_session_list* const entry =
            std::find_if(list, end, [&](const ip_session_list& e) { return oxr::field_view(e.local_ip) == local_ip; });
        if (entry != end) {
            store_session(*entry, record);
        } else {
            open_entry(list, entries++, record);
        }
    }
    num_entries = entries;
}

void sort_ip_session_list(ip_session_list* list, int num_entries) {
    for (int e = 0; e < num_entries; ++e) {
        sort_entry(list[e]);
    }
}

ip_session_list& least_used_entry(ip_session_list* list, int num_entries) {
    return num_entries > 0 ? *std::min_element(list, list + num_entries, has_fewer_sessions) : list[0];
}

ip_session_list& most_used_entry(ip_session_list* list, int num_entries) {
    // max_element also returns the first of equal entries.
    return num_entries > 0 ? *std::max_element(list, list + num_entries, has_fewer_sessions) : list[0];
}
