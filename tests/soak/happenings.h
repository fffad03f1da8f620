// What happens to a host by itself, through its operators and arrays, and through failing calls.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "soak/operator.h"
#include "soak/site.h"

namespace soak {

class Happenings {
public:
    Happenings(RandomSite& site, Operator& by) : site_(site), operator_(by) {}

    // Schedules what will happen within so many seconds from now.
    void plan(int count, double seconds);
    // A pass has begun: now and then something happens inside it.
    void in_pass();
    // Calls no longer fail, logins and discovery work again, sessions in odd states are gone, the operator is done, and
    // most of what was lost is back.
    void end();

private:
    struct Kind;
    using Words = std::map<std::string, std::string>;

    RandomSite& site_;
    Operator& operator_;
    int round_ = 0;  // what was planned in an earlier one doesn't happen

    static const Kind kinds[];

    void later(double seconds, std::function<void()> act);
    void happen_any();
    void happen(const Kind& kind);
    void happen(std::string event, Words& bound);
    void happen_to_each(const std::string& word, const std::string& event);
    std::vector<std::string> choices(const std::string& word);
    std::vector<std::string> fault();
};

}  // namespace soak
