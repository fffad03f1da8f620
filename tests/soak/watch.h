// What must hold after every cycle of the worker.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "simhost/host.h"
#include "soak/operator.h"
#include "soak/tally.h"

namespace soak {

class Watch {
public:
    Watch(Site& site, const Operator& by, Tally& tally);

    // After a cycle, on the thread that ran it, with nothing else running.
    void after_cycle();
    // After anything else.
    void look();
    void report(const std::string& what);
    // From here on nothing happens any more, so a target either gains sessions or loses some.
    void quiet_begins();
    // The targets that did both since then.
    std::vector<std::string> gained_and_lost() const;

    bool broken() const { return !found_.empty(); }
    const std::vector<std::string>& found() const { return found_; }

private:
    simhost::Host& host_;
    const Operator& operator_;
    Tally& tally_;
    std::uint64_t faults_before_ = 0;
    std::size_t violations_seen_ = 0;
    std::vector<std::string> found_;  // "pass 12, 1440.000 s: text"
    std::uint64_t additions_ = 0;     // calls so far
    std::set<std::string> gained_;
    std::set<std::string> lost_;

    void note(const simhost::Event& event);
    void look_at_addition(const std::string& iqn);
    void look_at_what_is_held();
};

}  // namespace soak
