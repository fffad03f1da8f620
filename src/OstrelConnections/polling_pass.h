// One polling pass: adjusts the number of sessions of every volume and group-scoped target.
#pragma once

#include "OstrelProvider/config.h"

// Worker thread only, while the lock file exists. Takes no lock; stops at stop points. Returns the status of the pass:
// -1 if it ended early, otherwise the result of its last request that reports one.
int handle_ostrel_connections(const ConfigValues& values);
