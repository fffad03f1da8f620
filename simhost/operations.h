// The operations of the host that are counted and can be made to fail, by name.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

#include "ima/ima.h"

namespace simhost {

// What an IMA operation answers beside its status: a list, or a record of so many bytes.
inline constexpr std::size_t NOTHING = 0;
inline constexpr std::size_t LIST = SIZE_MAX;

struct Operation {
    std::string_view name;
    std::size_t answer = NOTHING;
};

// "psp.N": request N of the control device, which counts as "psp.*" only. Files are those below the root: openat counts
// as "open"; pread and pwrite as "read" and "write"; lstat, fstat, fstatat and statx as "stat"; remove, rmdir and
// unlinkat as "unlink". "new": a nothrow allocation of the connection manager.
inline constexpr Operation OPERATIONS[] = {
    {"IMA_GetLhbaOidList", LIST},
    {"IMA_GetPhbaOidList", LIST},
    {"IMA_GetTargetOidList", LIST},
    {"IMA_GetTargetProperties", sizeof(IMA_TARGET_PROPERTIES)},
    {"IMA_GetSessionOidList", LIST},
    {"IMA_GetSessionProperties", sizeof(IMA_SESSION_PROPERTIES)},
    {"IMA_GetConnectionOidList", LIST},
    {"IMA_GetConnectionProperties", sizeof(IMA_CONNECTION_PROPERTIES)},
    {"IMA_RemoveStaticDiscoveryTarget"},
    {"IMA_FreeMemory"},
    {"IMA_VMW_GetLhbaOidList", LIST},
    {"IMA_VMW_GetLhbaProperties", sizeof(IMA_VMW_LHBA_PROPERTIES)},
    {"IMA_VMW_GetConnectionStatus", sizeof(IMA_VMW_CONNECTION_STATUS)},
    {"IMA_VMW_AddSession"},
    {"IMA_VMW_RemoveSession"},
    {"IMA_VMW_Rediscover"},
    {"IMA_VMW_GetDiscoveryStatus", sizeof(std::uint32_t)},
    {"IMA_VMW_GetNicOidList", LIST},
    {"IMA_VMW_GetStaticDiscoveryTargetOidList", LIST},
    {"IMA_VMW_GetStaticDiscoveryTargetProperties", sizeof(IMA_STATIC_DISCOVERY_TARGET_PROPERTIES)},
    {"IMA_VMW_GetInitiatorAuthParms", sizeof(IMA_INITIATOR_AUTHPARMS)},
    {"psp.open"},
    {"psp.0"},
    {"psp.1"},
    {"psp.3"},
    {"psp.4"},
    {"psp.5"},
    {"psp.6"},
    {"psp.7"},
    {"psp.close"},
    {"open"},
    {"fopen"},
    {"read"},
    {"write"},
    {"close"},
    {"stat"},
    {"access"},
    {"mkdir"},
    {"unlink"},
    {"rename"},
    {"ftruncate"},
    {"opendir"},
    {"new"},
    {"pthread_create"},
    {"pthread_join"},
    {"pthread_kill"},
    {"pthread_mutex_init"},
    {"pthread_mutex_destroy"},
    {"sigaction"},
};

constexpr bool is_operation(std::string_view name) {
    return std::any_of(std::begin(OPERATIONS), std::end(OPERATIONS),
                       [&](const Operation& each) { return each.name == name; });
}

}  // namespace simhost
