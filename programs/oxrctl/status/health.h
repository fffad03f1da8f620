// Decides from a log whether a host is well, and why not: the one judgement behind `oxrctl status`, its exit codes,
// `--check` and the metrics.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "oxrctl/status/log_story.h"

namespace oxrctl {

// The numbers are the exit codes of monitoring plug-ins.
enum class Health { well = 0, warning = 1, critical = 2, unknown = 3 };

// "well", "warning", "critical", "unknown".
std::string_view health_word(Health health);

// Whether `a` goes before `b` in a list of hosts, the worst first: critical, unknown, warning, well.
bool is_worse(Health a, Health b);

struct Reason {
    std::string name;  // in the catalogue
    Health health;
    std::string text;  // what it is here
};

// A log that can't be read.
Reason not_read(std::string text);

// The present, and how old a log's last message may be.
struct Clock {
    LogSeconds now = NO_TIME;
    std::optional<LogSeconds> oldest_age;  // seconds; none: age isn't judged
};

// The oldest age of a log that is being written: the service sleeps for `interval` and then writes, at the latest when
// a pass that takes twice the longest one seen is over.
LogSeconds oldest_age_of(const Story& story);

struct Judgement {
    Health health = Health::well;  // of the weightiest reason
    std::vector<Reason> reasons;   // the weightiest first
};

// Whether something about the target is a reason for a host not to be well.
bool has_problem(const Story& story, const TargetStory& target);

Judgement judge(const Story& story, const Clock& clock);

// The weightiest reason in one line, and how many others there are. Empty when there is none.
std::string reason_line(const Judgement& judgement);

// "3 min", "2 h 5 min", "4 d", "-30 s".
std::string age_text(LogSeconds seconds);

}  // namespace oxrctl
