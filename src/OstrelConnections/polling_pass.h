// One polling pass: every volume and group-scoped target brought to the sessions it should have.
#pragma once

#include "OstrelProvider/config.h"

// Worker thread only, between creating and removing the lock file; takes no lock and stops at stop points.
// Returns the status of the pass: -1 when it ended early, else the result of the last request that tells.
int handle_ostrel_connections(const ConfigValues& values);
