// What must hold after every cycle of the worker.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "soak/operator.h"
#include "soak/site.h"

namespace soak {

inline constexpr unsigned GAINED = 1;
inline constexpr unsigned LOST = 2;

class Watch {
public:
    Watch(RandomSite& site, const Operator& by);

    // After a cycle, on the thread that ran it, with nothing else running.
    void after_cycle();
    // After anything else.
    void look();
    void report(const std::string& what);
    // From here on nothing happens any more, so a target either gains sessions or loses some.
    void quiet_begins() { changes_.clear(); }
    // By target what it did since then: GAINED, LOST or both.
    const std::map<std::string, unsigned>& changes() const { return changes_; }

    const std::string& broken() const { return broken_; }

private:
    RandomSite& site_;
    simhost::Host& host_;
    const Operator& operator_;
    std::string broken_;  // what was broken first: "pass 12, 1440.000 s: text"; empty: nothing
    std::uint64_t faults_before_ = 0;
    std::size_t violations_seen_ = 0;
    std::uint64_t additions_ = 0;  // calls so far
    std::map<std::string, unsigned> changes_;

    void note(const simhost::Event& event);
    void look_at_addition(const std::string& iqn);
};

}  // namespace soak
