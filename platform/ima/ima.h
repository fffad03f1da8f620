// The part of the SNIA iSCSI Management API (IMA 1.1.3, with session and connection objects) that this
// system calls, and the host's IMA_VMW_* extensions. Natural alignment, C linkage, x86-64 LP64. The offsets
// asserted here are the binary interface: a host library built elsewhere fills these records.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

// The published success rule is a clear error bit; this system takes 0 alone as success.
using IMA_STATUS = std::uint32_t;
using IMA_BOOL = std::uint32_t;
using IMA_UINT = std::uint64_t;
using IMA_AUTHMETHOD = std::uint32_t;

inline constexpr IMA_STATUS IMA_STATUS_SUCCESS = 0x00000000;
inline constexpr IMA_STATUS IMA_STATUS_REBOOT_NECESSARY = 0x00000001;
inline constexpr IMA_STATUS IMA_ERROR_NOT_SUPPORTED = 0x80000001;
inline constexpr IMA_STATUS IMA_ERROR_INSUFFICIENT_MEMORY = 0x80000002;
inline constexpr IMA_STATUS IMA_ERROR_LAST_PRIMARY_DISCOVERY_METHOD = 0x80000003;
inline constexpr IMA_STATUS IMA_ERROR_UNEXPECTED_OS_ERROR = 0x80000004;
inline constexpr IMA_STATUS IMA_ERROR_SYNC_TIMEOUT = 0x80000005;
inline constexpr IMA_STATUS IMA_ERROR_LU_IN_USE = 0x80000008;
inline constexpr IMA_STATUS IMA_ERROR_TARGET_TIMEOUT = 0x80000009;
inline constexpr IMA_STATUS IMA_ERROR_LOGIN_REJECTED = 0x8000000A;
inline constexpr IMA_STATUS IMA_ERROR_SCSI_STATUS_CHECK_CONDITION = 0x80000100;
inline constexpr IMA_STATUS IMA_ERROR_SCSI_STATUS_BUSY = 0x80000101;
inline constexpr IMA_STATUS IMA_ERROR_SCSI_STATUS_TASK_SET_FULL = 0x80000103;
inline constexpr IMA_STATUS IMA_ERROR_SCSI_STATUS_ACA_ACTIVE = 0x80000104;
inline constexpr IMA_STATUS IMA_ERROR_SCSI_STATUS_TASK_ABORTED = 0x80000105;
inline constexpr IMA_STATUS IMA_ERROR_UNKNOWN_ERROR = 0x8FFFFFFF;
inline constexpr IMA_STATUS IMA_ERROR_INVALID_PARAMETER = 0xC0000000;
inline constexpr IMA_STATUS IMA_ERROR_INVALID_OBJECT_TYPE = 0xC0000001;
inline constexpr IMA_STATUS IMA_ERROR_INCORRECT_OBJECT_TYPE = 0xC0000002;
inline constexpr IMA_STATUS IMA_ERROR_OBJECT_NOT_FOUND = 0xC0000003;
inline constexpr IMA_STATUS IMA_ERROR_NAME_TOO_LONG = 0xC0000004;

inline constexpr std::uint32_t IMA_OBJECT_TYPE_LHBA = 3;
inline constexpr std::uint32_t IMA_OBJECT_TYPE_PHBA = 4;
inline constexpr std::uint32_t IMA_OBJECT_TYPE_PNP = 8;
inline constexpr std::uint32_t IMA_OBJECT_TYPE_TARGET = 9;
inline constexpr std::uint32_t IMA_OBJECT_TYPE_STATIC_DISCOVERY_TARGET = 12;
inline constexpr std::uint32_t IMA_OBJECT_TYPE_CONNECTION = 13;
inline constexpr std::uint32_t IMA_OBJECT_TYPE_SESSION = 14;

inline constexpr IMA_AUTHMETHOD IMA_AUTHMETHOD_CHAP = 1;
inline constexpr std::uint32_t IMA_DIGEST_NONE = 0;
inline constexpr std::uint32_t IMA_DIGEST_CRC32C = 1;

inline constexpr std::size_t IMA_NODE_NAME_CHARACTERS = 224;
inline constexpr std::size_t IMA_DEVICE_NAME_CHARACTERS = 256;

struct IMA_OID {
    std::uint32_t objectType;
    std::uint32_t ownerId;
    std::uint64_t objectSequenceNumber;
};
static_assert(sizeof(IMA_OID) == 16 && alignof(IMA_OID) == 8);
static_assert(offsetof(IMA_OID, ownerId) == 4 && offsetof(IMA_OID, objectSequenceNumber) == 8);

// `oids` is declared with one element and holds `oidCount`. Released with IMA_FreeMemory.
struct IMA_OID_LIST {
    IMA_UINT oidCount;
    IMA_OID oids[1];
};
static_assert(offsetof(IMA_OID_LIST, oids) == 8);

// An IPv4 address stands in the first 4 bytes, in network byte order.
struct IMA_IP_ADDRESS {
    IMA_BOOL ipv4Address;
    std::uint8_t ipAddress[16];
};
static_assert(sizeof(IMA_IP_ADDRESS) == 20 && offsetof(IMA_IP_ADDRESS, ipAddress) == 4);

struct IMA_TARGET_ADDRESS {
    IMA_BOOL hostnameInUse;
    union {
        wchar_t hostname[256];
        IMA_IP_ADDRESS ipAddress;
    } id;
    std::uint16_t portNumber;
};
static_assert(sizeof(IMA_TARGET_ADDRESS) == 1032);
static_assert(offsetof(IMA_TARGET_ADDRESS, id) == 4 && offsetof(IMA_TARGET_ADDRESS, portNumber) == 1028);

struct IMA_TARGET_PROPERTIES {
    IMA_OID associatedNodeOid;
    IMA_OID associatedLhbaOid;
    wchar_t name[IMA_NODE_NAME_CHARACTERS];
    wchar_t alias[256];
    std::uint32_t discoveryMethodFlags;
    IMA_BOOL sendTargetsDiscoverySettable;
    IMA_BOOL sendTargetsDiscoveryEnabled;
    std::uint8_t reserved[128];
};
static_assert(sizeof(IMA_TARGET_PROPERTIES) == 2096 && offsetof(IMA_TARGET_PROPERTIES, name) == 32);

// The host fills 96 bytes, not the 72 of the published record; only the ISID is read.
struct alignas(8) IMA_SESSION_PROPERTIES {
    std::uint8_t reserved0[68];
    std::uint8_t isid[6];
    std::uint8_t reserved74[22];
};
static_assert(sizeof(IMA_SESSION_PROPERTIES) == 96 && offsetof(IMA_SESSION_PROPERTIES, isid) == 68);

struct IMA_CONNECTION_PROPERTIES {
    IMA_OID associatedSessionOid;
    std::uint16_t connectionId;
    std::uint32_t headerDigest;
    std::uint32_t dataDigest;
    IMA_BOOL ifMarker;
    std::uint32_t ifMarkInt;
    std::uint32_t maxRecvDataSegmentLength;
    std::uint32_t maxTransmitDataSegmentLength;
    IMA_BOOL ofMarker;
    std::uint32_t ofMarkInt;
};
static_assert(sizeof(IMA_CONNECTION_PROPERTIES) == 56);
static_assert(offsetof(IMA_CONNECTION_PROPERTIES, headerDigest) == 20 &&
              offsetof(IMA_CONNECTION_PROPERTIES, dataDigest) == 24);

struct IMA_STATIC_DISCOVERY_TARGET {
    wchar_t targetName[IMA_NODE_NAME_CHARACTERS];
    IMA_TARGET_ADDRESS targetAddress;
};
static_assert(sizeof(IMA_STATIC_DISCOVERY_TARGET) == 1928);

struct IMA_STATIC_DISCOVERY_TARGET_PROPERTIES {
    IMA_OID associatedNodeOid;
    IMA_OID associatedLhbaOid;
    IMA_STATIC_DISCOVERY_TARGET staticTarget;
};
static_assert(sizeof(IMA_STATIC_DISCOVERY_TARGET_PROPERTIES) == 1960);
static_assert(offsetof(IMA_STATIC_DISCOVERY_TARGET_PROPERTIES, staticTarget) == 32);

// The caller supplies the whole union of the published header; only the CHAP member is declared.
struct IMA_INITIATOR_AUTHPARMS {
    IMA_UINT chapRetries;
    std::uint8_t chapName[512];
    IMA_UINT chapNameLength;
    std::uint8_t reserved528[12304 - 528];
};
static_assert(sizeof(IMA_INITIATOR_AUTHPARMS) == 12304);
static_assert(offsetof(IMA_INITIATOR_AUTHPARMS, chapNameLength) == 520);

// Records of the host's own extensions: only the named bytes are relied on; the host fills the rest with
// members of up to 8 bytes.
struct alignas(8) IMA_VMW_LHBA_PROPERTIES {
    wchar_t osDeviceName[IMA_DEVICE_NAME_CHARACTERS];
    std::uint8_t reserved1024[168];
};
static_assert(sizeof(IMA_VMW_LHBA_PROPERTIES) == 1192);

struct IMA_VMW_ADDRESS_SLOT {
    std::uint32_t present;  // exactly 1 when the address is there
    IMA_IP_ADDRESS address;
};
static_assert(sizeof(IMA_VMW_ADDRESS_SLOT) == 24);

struct alignas(8) IMA_VMW_CONNECTION_STATUS {
    IMA_VMW_ADDRESS_SLOT connectionAddress;
    IMA_VMW_ADDRESS_SLOT remoteAddress;
    IMA_VMW_ADDRESS_SLOT localAddress;
    std::uint32_t state;
    std::uint8_t reserved76[252];
};
static_assert(sizeof(IMA_VMW_CONNECTION_STATUS) == 328);
static_assert(offsetof(IMA_VMW_CONNECTION_STATUS, remoteAddress) == 24 &&
              offsetof(IMA_VMW_CONNECTION_STATUS, localAddress) == 48 &&
              offsetof(IMA_VMW_CONNECTION_STATUS, state) == 72);

// Every list handed out is the caller's and is given back to IMA_FreeMemory.
IMA_STATUS IMA_GetLhbaOidList(IMA_OID_LIST** list);
IMA_STATUS IMA_GetPhbaOidList(IMA_OID_LIST** list);
IMA_STATUS IMA_GetTargetOidList(IMA_OID lhba, IMA_OID_LIST** list);
IMA_STATUS IMA_GetTargetProperties(IMA_OID target, IMA_TARGET_PROPERTIES* properties);
IMA_STATUS IMA_GetSessionOidList(IMA_OID lhbaOrTarget, IMA_OID_LIST** list);
IMA_STATUS IMA_GetSessionProperties(IMA_OID session, IMA_SESSION_PROPERTIES* properties);
IMA_STATUS IMA_GetConnectionOidList(IMA_OID session, IMA_OID_LIST** list);
IMA_STATUS IMA_GetConnectionProperties(IMA_OID connection, IMA_CONNECTION_PROPERTIES* properties);
IMA_STATUS IMA_RemoveStaticDiscoveryTarget(IMA_OID staticTarget);
IMA_STATUS IMA_FreeMemory(void* list);

IMA_STATUS IMA_VMW_GetLhbaOidList(IMA_OID phba, IMA_OID_LIST** list);
IMA_STATUS IMA_VMW_GetLhbaProperties(IMA_OID lhba, IMA_VMW_LHBA_PROPERTIES* properties);
IMA_STATUS IMA_VMW_GetConnectionStatus(IMA_OID connection, IMA_VMW_CONNECTION_STATUS* status);
IMA_STATUS IMA_VMW_AddSession(IMA_OID targetOrSession, void*, void*, void*);
IMA_STATUS IMA_VMW_RemoveSession(IMA_OID session);
IMA_STATUS IMA_VMW_Rediscover(IMA_OID lhba);
IMA_STATUS IMA_VMW_GetDiscoveryStatus(IMA_OID phba, std::uint32_t* status);
IMA_STATUS IMA_VMW_GetNicOidList(IMA_OID lhba, IMA_OID_LIST** list);
IMA_STATUS IMA_VMW_GetStaticDiscoveryTargetOidList(IMA_OID lhba, IMA_OID_LIST** list);
IMA_STATUS IMA_VMW_GetStaticDiscoveryTargetProperties(IMA_OID staticTarget,
                                                      IMA_STATIC_DISCOVERY_TARGET_PROPERTIES* properties);
IMA_STATUS IMA_VMW_GetInitiatorAuthParms(IMA_OID staticTarget, IMA_AUTHMETHOD method, IMA_INITIATOR_AUTHPARMS* parms);

}  // extern "C"

static_assert(sizeof(wchar_t) == 4);
