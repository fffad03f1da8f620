// Tells a run as it goes: the host's events, and the log as it is written.
#pragma once

#include "simhost/host.h"

namespace soak {

void trace(simhost::Host& host);

}  // namespace soak
