// What happens to a host by itself, through its operators and arrays, and through failing calls.
#pragma once

#include <map>
#include <string>
#include <vector>

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
    // Calls no longer fail, logins and discovery work again, sessions in odd states are gone, the operator is done, and
    // most of what was lost is back.
    void end();

private:
    struct Kind;
    struct Word {
        std::string_view name;
        std::vector<std::string> (*choices)(Happenings& on);
    };
    using Words = std::map<std::string, std::string, std::less<>>;

    Site& site_;
    Dice& dice_;
    Operator& operator_;
    Tally& tally_;
    int round_ = 0;  // what was planned in an earlier one doesn't happen

    static const Kind kinds[];
    static const Word words[];

    simhost::Host& host() { return site_.host(); }
    void later(double seconds, std::function<void()> act);
    void happen_any();
    void happen(const Kind& kind);
    void happen(std::string event, Words& bound);
    std::vector<std::string> choices(std::string_view word);
    std::vector<std::string> fault();
};

}  // namespace soak
