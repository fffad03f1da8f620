// What happens to a host by itself, through its operators and arrays, and through failing calls.
#pragma once

#include <functional>
#include <set>
#include <string>

#include "soak/operator.h"
#include "soak/site.h"
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

private:
    Site& site_;
    Dice& dice_;
    Operator& operator_;
    Tally& tally_;
    int round_ = 0;                   // what was planned in an earlier one doesn't happen
    std::set<std::string> flapping_;  // targets of which sessions were set to an odd state

    struct Kind {
        const char* name;
        int weight;
        std::string (*make)(Happenings& on);  // the event; empty: nothing, or it was carried out already
    };
    static const Kind kinds[];

    simhost::Host& host() { return site_.host(); }
    void happen(const Kind& kind);
    void happen_any();
    void later(double seconds, std::function<void()> act);
    void later(double seconds, const std::string& event);
    std::string switch_mode();
    std::string drop(int most);
    std::string flap();
    std::string set_fault();
    void end_flap(const std::string& target, bool for_good);
};

}  // namespace soak
