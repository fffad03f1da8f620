// A small site for targets that act on sessions: two adapters with two NICs each, a dynamic and a static group,
// volumes with a target of their own and two behind a group-scoped target.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "OstrelProvider/config.h"
#include "simhost/host.h"

namespace fuzz {

inline constexpr unsigned NUM_SITES = 6;

// What the acts on a site did to sessions and targets.
struct Happening {
    simhost::Event::Kind kind;
    std::string target;
    std::string adapter;
    std::string text;
};

class Site {
public:
    // `kind`, below NUM_SITES: settled, too few sessions, too many, a switch to dynamic and one to static under way,
    // logins that hang.
    explicit Site(unsigned kind);

    // The site of that kind, as it was described: made anew only when the last use changed it.
    static Site& of(unsigned kind);

    simhost::Host& host() { return *host_; }
    const std::vector<Happening>& happenings() const { return happenings_; }
    bool any(simhost::Event::Kind kind) const;

    void script_psp(unsigned long request, std::function<int(void* buffer, int result)> script);
    void script_ima(const std::string& operation, std::function<std::uint32_t(void* out, std::uint32_t status)> script);

    // Takes the scripts away, empties the OID cache and holds the host to what must be true after any act.
    void finish();

private:
    unsigned kind_;
    std::unique_ptr<simhost::Host> host_;
    std::vector<Happening> happenings_;
    std::vector<unsigned long> psp_scripts_;
    std::vector<std::string> ima_scripts_;
};

}  // namespace fuzz
