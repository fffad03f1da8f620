// What every target must have come to when nothing more happens.
#pragma once

#include <array>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "OstrelProvider/config.h"
#include "soak/site.h"
#include "soak/tally.h"

namespace soak {

struct Verdict {
    std::vector<std::string> wrong;  // could have what it should have, and has not
    std::array<std::uint64_t, num_reasons> kept{};
    std::uint64_t targets = 0;
};

// Whether every adapter in the target's sight has a session of it. If not, the procedures go by a part of its
// sessions, or by none.
bool is_readable(const Site& site, const std::string& iqn);

// The targets with a dead path over a NIC that carries none of their sessions: it counts until the path is deleted.
std::set<std::string> counting_lost_nics(const Site& site);

Verdict judge(const Site& site, const ConfigValues& values);

}  // namespace soak
