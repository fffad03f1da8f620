// What happens to a host by itself, through its operators and arrays, and through failing calls.
#pragma once

#include <cstdint>
#include <functional>
#include <set>

#include "soak/operator.h"
#include "soak/tally.h"

namespace soak {

class Happenings {
public:
    Happenings(Site& site, Dice& dice, Operator& by, Tally& tally)
        : site_(site), dice_(dice), operator_(by), tally_(tally) {}

    // Schedules what will happen within so many seconds from now.
    void plan(int count, double seconds);
    // A pass has begun: now and then something happens inside it.
    void in_pass();
    // Calls no longer fail, logins and discovery work again, sessions in odd states are gone, and most of what
    // was lost is back.
    void end();
    // The time that the host then needs by itself: logging in, and claiming the paths.
    double recovery_seconds() const;

private:
    Site& site_;
    Dice& dice_;
    Operator& operator_;
    Tally& tally_;
    int round_ = 0;                     // what was planned in an earlier one doesn't happen
    std::set<std::uint64_t> flapping_;  // sessions set to an odd state

    simhost::Host& host() { return *site_.host; }
    void happen();
    void happen(Kind kind);
    void later(double seconds, const char* name, std::function<void()> act);
    void switch_mode(const Group& of);

    void lose_nic();
    void nic_returns();
    void lose_array();
    void array_returns();
    void drop(bool all);
    void flap();
    void end_flap(std::uint64_t oid, bool for_good);
    void remove_volume();
    void fail_logins();
    void fail_discovery();
    void hold_off_worker();
    void set_fault();
};

}  // namespace soak
