// What every target must have come to when nothing more happens.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "soak/site.h"

namespace soak {

// What keeps a target from its number of sessions; each is a bound of the procedures.
inline constexpr char SWITCH_HELD_UP[] = "switch held up";

struct Verdict {
    std::vector<std::string> wrong;  // could have what it should have, and has not
    Tally counts;                    // targets looked at, and those by what keeps them
};

// Whether every adapter in the target's sight has a session of it. If not, the procedures go by a part of its
// sessions, or by none.
bool is_readable(const simhost::Host& host, const std::string& iqn);

// The targets with a dead path over a NIC that carries none of their sessions: it counts until the path is deleted.
std::set<std::string> counting_lost_nics(const simhost::Host& host);

Verdict judge(const Site& site, const ConfigValues& values);

}  // namespace soak
