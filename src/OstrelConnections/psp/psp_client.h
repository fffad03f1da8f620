// Client of the PSP control device. Each call opens its own descriptor and closes it before it returns; any thread.
// Replies are checked here: a list whose count exceeds its capacity is refused, a volume or target with an impossible
// count is skipped with an ERROR that names it, and transport addresses with an impossible entry are refused as a
// whole.
#pragma once

#include <cstdint>
#include <string_view>

#include "OstrelConnections/psp/psp_records.h"

// A change of a group's discovery mode, as reported for one volume.
struct mode_change_info {
    std::int32_t change;  // +1: static (manual) to dynamic (automatic); -1: the other way
    std::int32_t index;   // the volume's position in the OxrLun array
};
static_assert(sizeof(mode_change_info) == 8);

inline constexpr std::int32_t MANUAL_TO_AUTOMATIC = 1;
inline constexpr std::int32_t AUTOMATIC_TO_MANUAL = -1;

// The delay in seconds that every caller uses before it deletes dead paths.
inline constexpr int DEAD_PATH_DELAY_SECONDS = 2;

// Rescans each adapter. 0: all done; -1: device or memory unavailable, or the last failing adapter failed with a system
// error; positive: the PSP status of the last failing adapter.
int rescan_ioctl(const AdapterName* adapters, int num_adapters);

// Waits `delay_seconds` (a stop point on the worker), then deletes the dead paths of each adapter. 0, or -1 if anything
// failed.
int delete_dead_path_ioctl(const AdapterName* adapters, int num_adapters, int delay_seconds);

// The devices of supported arrays in PSP order, packed; `luns` has room for OSTREL_MAX_VOLUMES. 0 or -1.
int get_all_device_info_ioctl(OxrLun* luns, int& num_luns);

// The same with the total of their paths. On -1 only the path total is written, as 0.
int populate_Oxr_Luns(OxrLun* luns, int& num_luns, int& total_paths);

// Sums the paths of the used records and logs each record at DEBUG. Writes `total_paths` only if there is at least one
// record.
void get_host_total_scsiPaths(const OxrLun* luns, int num_luns, int& total_paths);

// Lists the reported mode changes; `changes` has room for OSTREL_MAX_VOLUMES. Sets the flags, but never clears them.
void get_mode_change_info(const OxrLun* luns, mode_change_info* changes, int& num_changes, int num_luns,
                          int& manual_to_automatic, int& automatic_to_manual);

// The group-scoped targets that have a device; `targets` has room for OSTREL_MAX_GROUP_SCOPED_TARGETS. 0 or -1.
int get_all_group_scoped_targets_ioctl(OstrelPspGroupScopedTarget* targets, int& num_targets);

// Fills a record whose target name is set. 0; -1 (device unavailable, system error or impossible reply); or the
// positive PSP status.
int get_group_scoped_target_by_iqn(OstrelPspGroupScopedTarget& target);
int get_device_info_ioctl(OxrLun& lun);

// The same, but clears the record and sets the name first. At most 256 characters of the IQN are used.
int getGroupScopedTargetInfoByIqn(OstrelPspGroupScopedTarget& target, const char* target_iqn);
int getDeviceInfoByTargetIqn(OxrLun& lun, const char* target_iqn);

// Fills the caller's zeroed buffer. 0 (also if the PSP reports only some devices) or -1.
int get_transport_addrs_ioctl(OstrelPspIoctlGetTransportAddrsData& data);

// The first entry of the device, or null.
const OstrelPspTransportAddrs* find_transport_addrs(const OstrelPspIoctlGetTransportAddrsData& data,
                                                    std::string_view device_eui);

// The status's name.
const char* ioctl_status_to_string(int status);
