// How `oxrctl status` shows the log of one host.
#pragma once

#include <string>

#include "oxrctl/command.h"
#include "oxrctl/status/health.h"
#include "oxrctl/status/log_files.h"

namespace oxrctl {

// What a log doesn't tell.
struct Surroundings {
    Clock clock;
    std::string oxd_version, psp_version;  // empty where not known
};

// How the targets are shown.
struct TargetView {
    bool grouped = true;    // alike ones share a row
    bool detailed = false;  // each with all that is known of it
    std::string shown;      // which of them; empty: all
};

std::string story_text(const LogReading& reading, const Judgement& judgement, const Surroundings& around,
                       TargetView view);
// All that is known of each of the story's targets.
std::string details_text(const Story& story);
Json story_json(const LogReading& reading, const Judgement& judgement, const Surroundings& around);

// A number that may be unknown.
std::string number_or_dash(int value);
Json number_or_null(int value);

Json reasons_json(const Judgement& judgement);
Json age_json(const Story& story, const Clock& clock);

// The plug-in word for a health; a text that is safe before the bar.
std::string_view plugin_word(Health health);
std::string plugin_text(std::string text);

// One line for a monitoring plug-in: the state, its reason, and figures behind a bar.
std::string plugin_line(const Story& story, const Judgement& judgement, const Clock& clock);

}  // namespace oxrctl
