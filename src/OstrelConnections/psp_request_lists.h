// The adapters for which one pass sends requests to the PSP: deletion of dead paths after sessions were removed, a
// rescan after sessions were added. Deletion always comes first.
#pragma once

#include <cstdint>

#include "OstrelConnections/psp/adapter_list.h"

struct PspRequestLists {
    UniqueAdapters dead_paths;
    UniqueAdapters rescan;
};

// The log texts of the two requests differ between the passes.
struct PspRequestTexts {
    const char* operation;     // in messages
    const char* removed_from;  // "Sessions were removed for some ..."
    const char* added_to;      // "Sessions were added for some ..."
};

// Adds a target's adapters to the list for the request that balancing needs (DELETE_DEAD_PATHS or RESCAN). If they do
// not fit, both lists are sent first. Writes `status` only if something was sent.
void note_psp_request(PspRequestLists& lists, const PspRequestTexts& texts, std::int32_t ioctl_required,
                      const AdapterName* adapters, int num_adapters, int& status);

// Sends both lists and empties them. `status` becomes the result of the last request; without one it is unchanged.
void send_psp_requests(PspRequestLists& lists, const PspRequestTexts& texts, int& status);
