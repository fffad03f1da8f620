// Wire format of the Ostrel path-selection plug-in's control device: request codes, status codes and
// records, all integers 32-bit little-endian, texts NUL-terminated only when shorter than their field.
// The kernel module fixes these offsets.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr char OSTREL_PSP_CONTROL_DEVICE[] = "/dev/char/vmkdriver/ostrelpspctrl";

enum OstrelPspIoctlRequest : unsigned long {
    OSTREL_PSP_IOCTL_GET_ALL_DEVICE_INFO = 0,
    OSTREL_PSP_IOCTL_GET_DEVICE_INFO = 1,
    OSTREL_PSP_IOCTL_GET_ALL_GROUP_SCOPED_TARGETS = 3,
    OSTREL_PSP_IOCTL_GET_GROUP_SCOPED_TARGET = 4,
    OSTREL_PSP_IOCTL_RESCAN = 5,
    OSTREL_PSP_IOCTL_DELETE_DEAD_PATHS = 6,
    OSTREL_PSP_IOCTL_GET_TRANSPORT_ADDRS = 7,
};

// Positive ioctl results. Value 10 has no name.
enum OstrelPspIoctlStatus : std::int32_t {
    OSTREL_PSP_IOCTL_SUCCESS = 0,
    OSTREL_PSP_IOCTL_PARTIAL_SUCCESS = 1,
    OSTREL_PSP_IOCTL_ERROR_VMK_OUT_OF_MEMORY = 2,
    OSTREL_PSP_IOCTL_ERROR_DEVICE_NOT_FOUND = 3,
    OSTREL_PSP_IOCTL_ERROR_INVALID_INPUT = 4,
    OSTREL_PSP_IOCTL_ERROR_RESCAN_ADAPTER_NOT_FOUND = 5,
    OSTREL_PSP_IOCTL_ERROR_RESCAN_ADAPTER_BUSY = 6,
    OSTREL_PSP_IOCTL_ERROR_RESCAN_MAX_PATHS_CLAIMED = 7,
    OSTREL_PSP_IOCTL_ERROR_RESCAN = 8,
    OSTREL_PSP_IOCTL_ERROR_DELETE_DEAD_PATHS = 9,
    OSTREL_PSP_IOCTL_ERROR_UNKNOWN = 11,
};

inline constexpr std::int32_t OSTREL_MAX_VOLUMES = 256;
inline constexpr std::int32_t OSTREL_MAX_GROUP_SCOPED_TARGETS = 32;
inline constexpr std::int32_t OSTREL_MAX_LUNS_PER_TARGET = 1024;
inline constexpr std::int32_t OSTREL_MAX_PATHS_PER_DEVICE = 32;
inline constexpr std::int32_t OSTREL_MAX_ADAPTERS = 8;
inline constexpr std::size_t OSTREL_ADAPTER_NAME_SIZE = 12;
inline constexpr std::size_t OSTREL_IQN_SIZE = 256;
inline constexpr std::size_t OSTREL_EUI_SIZE = 40;

inline constexpr std::int32_t OSTREL_GROUP_MODE_STATIC = 1;  // any other value is dynamic
inline constexpr std::int32_t OSTREL_MODE_CHANGED = 1;       // any other value is no change

using AdapterName = char[OSTREL_ADAPTER_NAME_SIZE];

struct OstrelPspIoctlRescanData {
    AdapterName adapter_name;
};
static_assert(sizeof(OstrelPspIoctlRescanData) == 12);

struct OstrelPspIoctlDeleteDeadPathsData {
    AdapterName adapter_name;
};
static_assert(sizeof(OstrelPspIoctlDeleteDeadPathsData) == 12);

// The volume record: the PSP's device information, unchanged except for the three session counts, which the inventory
// writes.
struct OxrLun {
    char device_eui[OSTREL_EUI_SIZE];  // empty: record unused
    char target_iqn[OSTREL_IQN_SIZE];
    AdapterName vmhba_name_array[OSTREL_MAX_ADAPTERS];
    std::int32_t num_sessions;
    std::int32_t num_dynamic_sessions;
    std::int32_t num_login_pending_sessions;
    std::int32_t num_adapters;
    std::int32_t num_total_paths;
    std::int32_t num_active_paths;
    std::int32_t num_dead_paths;
    std::int32_t num_of_mem_array;  // 0: array not supported
    std::uint8_t reserved424[8];
    std::int32_t group_mode;
    std::int32_t mode_changed;
    std::uint8_t reserved440[4];
    std::int32_t isVvolPE;
    std::int32_t isGstVolume;
};
static_assert(sizeof(OxrLun) == 452);
static_assert(offsetof(OxrLun, target_iqn) == 40 && offsetof(OxrLun, vmhba_name_array) == 296);
static_assert(offsetof(OxrLun, num_sessions) == 392 && offsetof(OxrLun, num_dynamic_sessions) == 396);
static_assert(offsetof(OxrLun, num_login_pending_sessions) == 400 && offsetof(OxrLun, num_adapters) == 404);
static_assert(offsetof(OxrLun, num_total_paths) == 408 && offsetof(OxrLun, num_active_paths) == 412);
static_assert(offsetof(OxrLun, num_dead_paths) == 416 && offsetof(OxrLun, num_of_mem_array) == 420);
static_assert(offsetof(OxrLun, group_mode) == 432 && offsetof(OxrLun, mode_changed) == 436);
static_assert(offsetof(OxrLun, isVvolPE) == 444 && offsetof(OxrLun, isGstVolume) == 448);

struct OstrelPspIoctlGetAllDeviceInfoData {
    std::int32_t num_devices;
    OxrLun devices[OSTREL_MAX_VOLUMES];
};
static_assert(sizeof(OstrelPspIoctlGetAllDeviceInfoData) == 115716);
static_assert(offsetof(OstrelPspIoctlGetAllDeviceInfoData, devices) == 4);

struct OstrelPspGroupScopedLun {
    char device_eui[OSTREL_EUI_SIZE];
    std::int32_t isVvolPE;
    std::int32_t total_active_paths;
    std::int32_t total_dead_paths;
};
static_assert(sizeof(OstrelPspGroupScopedLun) == 52 && offsetof(OstrelPspGroupScopedLun, isVvolPE) == 40);

struct OstrelPspGroupScopedTarget {
    char target_iqn[OSTREL_IQN_SIZE];
    OstrelPspGroupScopedLun luns[OSTREL_MAX_LUNS_PER_TARGET];
    std::int32_t num_luns;
    std::int32_t num_adapters;
    AdapterName vmhba_name_array[OSTREL_MAX_ADAPTERS];
    std::int32_t total_active_paths;
    std::int32_t total_dead_paths;
    std::int32_t num_active_array;
    std::int32_t num_total_array_in_group;
    std::int32_t group_mode;
    std::int32_t mode_changed;
};
static_assert(sizeof(OstrelPspGroupScopedTarget) == 53632 && offsetof(OstrelPspGroupScopedTarget, luns) == 256);
static_assert(offsetof(OstrelPspGroupScopedTarget, num_luns) == 53504 &&
              offsetof(OstrelPspGroupScopedTarget, num_adapters) == 53508 &&
              offsetof(OstrelPspGroupScopedTarget, vmhba_name_array) == 53512);
static_assert(offsetof(OstrelPspGroupScopedTarget, total_active_paths) == 53608 &&
              offsetof(OstrelPspGroupScopedTarget, total_dead_paths) == 53612 &&
              offsetof(OstrelPspGroupScopedTarget, num_active_array) == 53616 &&
              offsetof(OstrelPspGroupScopedTarget, num_total_array_in_group) == 53620);
static_assert(offsetof(OstrelPspGroupScopedTarget, group_mode) == 53624 &&
              offsetof(OstrelPspGroupScopedTarget, mode_changed) == 53628);

// The count comes after the records.
struct OstrelPspIoctlGetAllGroupScopedTargetsData {
    OstrelPspGroupScopedTarget targets[OSTREL_MAX_GROUP_SCOPED_TARGETS];
    std::int32_t num_targets;
};
static_assert(sizeof(OstrelPspIoctlGetAllGroupScopedTargetsData) == 1716228);
static_assert(offsetof(OstrelPspIoctlGetAllGroupScopedTargetsData, num_targets) == 1716224);

struct OstrelPspTransportPath {
    char path_name[20];
    char target_addr[26];     // array side
    char initiator_addr[26];  // host side: the vmknic that carries the path
    std::int32_t is_active;
};
static_assert(sizeof(OstrelPspTransportPath) == 76 && offsetof(OstrelPspTransportPath, target_addr) == 20);
static_assert(offsetof(OstrelPspTransportPath, initiator_addr) == 46 &&
              offsetof(OstrelPspTransportPath, is_active) == 72);

struct OstrelPspTransportAddrs {
    char device_eui[OSTREL_EUI_SIZE];
    std::int32_t num_paths;
    OstrelPspTransportPath paths[OSTREL_MAX_PATHS_PER_DEVICE];
};
static_assert(sizeof(OstrelPspTransportAddrs) == 2476 && offsetof(OstrelPspTransportAddrs, paths) == 44);

struct OstrelPspIoctlGetTransportAddrsData {
    std::int32_t num_devices;
    OstrelPspTransportAddrs devices[OSTREL_MAX_VOLUMES];
};
static_assert(sizeof(OstrelPspIoctlGetTransportAddrsData) == 633860);
static_assert(offsetof(OstrelPspIoctlGetTransportAddrsData, devices) == 4);
