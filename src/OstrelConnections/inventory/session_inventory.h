// The inventory: the iSCSI sessions of a target with their kinds and states, read from IMA each time. Worker and
// renewal thread; needs no lock.
#pragma once

#include <cstdint>

#include "OstrelConnections/psp/psp_records.h"

inline constexpr int MAX_SESSIONS_PER_TARGET = 32;

// Connection states as IMA reports them (unsigned; anything else is INVALID_STATE).
enum : std::uint32_t {
    SESSION_STATE_FREE = 0,
    SESSION_STATE_XPT_WAIT = 1,  // login pending
    SESSION_STATE_XPT_UP = 2,
    SESSION_STATE_IN_LOGIN = 3,   // login pending
    SESSION_STATE_LOGGED_IN = 4,  // the only state of a working session
    SESSION_STATE_IN_LOGOUT = 5,
    SESSION_STATE_LOGOUT_REQUESTED = 6,
    SESSION_STATE_CLEANUP_WAIT = 7,
};

enum : std::uint32_t {
    SESSION_DYNAMIC = 0,        // created by dynamic (automatic) discovery
    SESSION_STATIC = 1,         // created for a static (manual) target
    SESSION_LOGIN_PENDING = 2,  // dynamic, still logging in
};

// One session of a target. Addresses are IPv4 texts.
struct TargetDtls {
    char target_iqn[256];
    char isid[24];
    char initial_remote_ip[16];  // the address of the first connection
    char current_remote_ip[16];
    char current_local_ip[16];
    std::uint32_t session_state;
    std::uint32_t session_type;
    char vmhba_name[12];
    std::uint32_t handled;  // the renewal's mark; the inventory never writes it
};

// One target and the adapters to search. Callers also use the first field as the target's name.
struct IscsiProps {
    char target_iqn[256];
    std::int32_t num_adapters;
    AdapterName vmhba_name_array[OSTREL_MAX_ADAPTERS];
};

const char* OxrSessionStateStr(std::uint32_t state);

// Zeroes and fills the query; uses at most OSTREL_MAX_ADAPTERS names.
void create_iscsi_props(const char (&target_iqn)[OSTREL_IQN_SIZE], int num_adapters, const AdapterName* adapters,
                        IscsiProps& props);

// The target's sessions, adapter by adapter, in IMA's order, without gaps. At most 32; more are skipped with a WARN and
// result 0. The caller must zero the login-pending count. 0, or -1; the outputs keep what was recorded before a
// failure.
int populate_oxr_sessions(const IscsiProps& props, TargetDtls* sessions, int& num_dynamic, int& num_total,
                          int& num_login_pending);

// The same for a volume; updates its three session counts if the result is 0.
int obtain_oxr_lun_sessions(OxrLun& lun, TargetDtls* sessions);

// Counts all sessions of the host after `delay_seconds`. 0, or -1 with the output unchanged.
int get_all_system_sessions(int& num_sessions, int delay_seconds);
