// Sessions added and removed by name. Any thread; no lock needs to be held. Each failure is logged here.
#pragma once

// Adds a session to the target: modelled on the session with the given ISID, or, with a null or empty ISID,
// on none. The new session is found by the next inventory. 0 or -1.
int create_sessions(const char* adapter_name, const char* target_iqn, const char* isid);

// Logs the session out and removes it, as IMA knows it now. Adapter, target and ISID must be given. 0 or -1.
int remove_session(const char* adapter_name, const char* target_iqn, const char* isid);
