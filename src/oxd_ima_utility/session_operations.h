// Adds and removes sessions by name. Any thread; needs no lock. Logs each failure.
#pragma once

// Adds a session to the target, as a copy of the session with the given ISID unless it is null or empty. The next
// inventory contains it. 0 or -1.
int create_sessions(const char* adapter_name, const char* target_iqn, const char* isid);

// Logs the session out and removes it; looks it up in IMA, not in the cache. Needs adapter, target and ISID. 0 or -1.
int remove_session(const char* adapter_name, const char* target_iqn, const char* isid);
