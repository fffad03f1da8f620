// The adapters that one pass asks the PSP for: dead-path deletion where sessions were removed, a rescan where
// sessions were added. Deletion always comes first.
#pragma once

#include <cstdint>

#include "OstrelConnections/psp/adapter_list.h"

struct PspRequestLists {
    UniqueAdapters dead_paths;
    UniqueAdapters rescan;
};

// The wording of the two requests' announcements differs from pass to pass.
struct PspRequestTexts {
    const char* operation;     // for whom it is logged
    const char* removed_from;  // "Sessions were removed for some ..."
    const char* added_to;      // "Sessions were added for some ..."
};

// Notes the adapters of a target for what its balancing asked for (DELETE_DEAD_PATHS or RESCAN). When an array
// can't hold them, what both hold is sent first. Writes `status` when something was sent.
void note_psp_request(PspRequestLists& lists, const PspRequestTexts& texts, std::int32_t ioctl_required,
                      const AdapterName* adapters, int num_adapters, int& status);

// Sends what the lists hold and empties them. `status` becomes the result of the last request sent; without
// one it stays.
void send_psp_requests(PspRequestLists& lists, const PspRequestTexts& texts, int& status);
