#include "OstrelConnections/psp_request_lists.h"

#include "OstrelConnections/balancing/session_balance.h"
#include "OstrelConnections/psp/psp_client.h"
#include "OstrelProvider/log.h"

void send_psp_requests(PspRequestLists& lists, const PspRequestTexts& texts, int& status) {
    if (lists.dead_paths.count > 0) {
        OXR_INFO_IN(
            texts.operation,
            "Sessions were removed for some %s. Invoking delete dead path ioctl for PSP to clean up dead paths.",
            texts.removed_from);
        status = delete_dead_path_ioctl(lists.dead_paths.names, lists.dead_paths.count, DEAD_PATH_DELAY_SECONDS);
        if (status < 0) {
            OXR_ERROR_IN(texts.operation, "ioctl for delete dead path failed.");
        }
    }
    if (lists.rescan.count > 0) {
        OXR_INFO_IN(texts.operation,
                    "Sessions were added for some %s. Invoking rescan ioctl for PSP to claim paths created on sessions "
                    "added.",
                    texts.added_to);
        status = rescan_ioctl(lists.rescan.names, lists.rescan.count);
        if (status < 0) {
            OXR_ERROR_IN(texts.operation, "ioctl for adapter rescan failed.");
        }
    }
    lists = {};
}

void note_psp_request(PspRequestLists& lists, const PspRequestTexts& texts, std::int32_t ioctl_required,
                      const AdapterName* adapters, int num_adapters, int& status) {
    if (ioctl_required != DELETE_DEAD_PATHS && ioctl_required != RESCAN) {
        return;
    }
    UniqueAdapters& list = ioctl_required == RESCAN ? lists.rescan : lists.dead_paths;
    if (!add_all_adapters(list, adapters, num_adapters)) {
        send_psp_requests(lists, texts, status);
        (void)add_all_adapters(list, adapters, num_adapters);  // one target's adapters always fit
    }
}
