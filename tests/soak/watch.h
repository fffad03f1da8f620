// What must hold after every cycle of the worker.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "soak/operator.h"
#include "soak/site.h"

namespace soak {

class Watch {
public:
    Watch(Site& site, const Operator& by);

    // After a cycle, on the thread that ran it, with nothing else running.
    void after_cycle();
    // After anything else.
    void look();
    void report(const std::string& what);
    // From here on nothing happens any more, so a target either gains sessions or loses some.
    void quiet_begins();
    // The targets that did both since then.
    std::vector<std::string> gained_and_lost() const;

    const std::string& broken() const { return broken_; }

private:
    Site& site_;
    simhost::Host& host_;
    const Operator& operator_;
    std::string broken_;  // what was broken first: "pass 12, 1440.000 s: text"; empty: nothing
    std::uint64_t faults_before_ = 0;
    std::size_t violations_seen_ = 0;
    std::uint64_t additions_ = 0;  // calls so far
    std::set<std::string> gained_;
    std::set<std::string> lost_;

    void note(const simhost::Event& event);
    void look_at_addition(const std::string& iqn);
};

}  // namespace soak
