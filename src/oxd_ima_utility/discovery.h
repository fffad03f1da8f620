// Restarts discovery on an adapter and reads its result. Any thread; needs no lock.
#pragma once

enum : int {
    ISCSI_DISCOVERY_DONE = 0,
    ISCSI_DISCOVERY_FAILURE = 1,
    ISCSI_DISCOVERY_TIMEOUT = 2,
    ISCSI_DISCOVERY_UNKNOWN = 3,
    ISCSI_DISCOVERY_NO_STATUS = 4,  // could not be read; try again
};

// Starts discovery. 0 or -1.
int rediscover_iscsi_hba(const char* adapter_name);

// ISCSI_DISCOVERY_*.
int get_discover_iscsi_hba_status(const char* adapter_name);
