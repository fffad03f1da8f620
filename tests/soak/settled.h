// What every target must have come to when nothing more happens.
#pragma once

#include <set>
#include <string>

#include "soak/watch.h"

namespace soak {

// Whether every adapter in the target's sight has a session of it. If not, the procedures go by a part of its
// sessions, or by none.
bool is_readable(const simhost::Host& host, const std::string& iqn);

// The targets with a dead path over a NIC that carries none of their sessions: it counts until the path is deleted.
std::set<std::string> counting_lost_nics(const simhost::Host& host);

// Reports the targets that could have what they should have, and have not; counts the others by what keeps them.
// Whether a switch of modes is held up.
bool judge(RandomSite& site, Watch& watch, const ConfigValues& values);

}  // namespace soak
