// A small site for targets that act on sessions: two adapters with two NICs each, a dynamic and a static group,
// volumes with a target of their own and two behind a group-scoped target.
#pragma once

#include <memory>
#include <vector>

#include "simhost/host.h"

namespace fuzz {

inline constexpr unsigned NUM_SITES = 6;

class FuzzedSite {
public:
    // `kind`, below NUM_SITES: settled, too few sessions, too many, a switch to dynamic and one to static under way,
    // logins that hang.
    explicit FuzzedSite(unsigned kind);

    // The site of that kind, as it was described: made anew only when the last use changed it.
    static FuzzedSite& of(unsigned kind);

    simhost::Host& host() { return *host_; }
    // What the acts on it did to sessions, paths and targets.
    const std::vector<simhost::Event>& happenings() const { return happenings_; }

    // Takes the scripts away, empties the OID cache and holds the host to what must be true after any act.
    void finish();

private:
    unsigned kind_;
    std::unique_ptr<simhost::Host> host_;
    std::vector<simhost::Event> happenings_;
};

}  // namespace fuzz
