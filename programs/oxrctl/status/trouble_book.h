// Warnings and errors of a log, by their place in the source.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "oxrctl/status/log_story.h"
#include "shared/log_line.h"

namespace oxrctl {

// One message.
struct Trouble {
    Trouble(const shared::LogLine& line, std::string logged);

    std::string level, module, function, text, time;
    int source_line = 0;
};

class TroubleBook {
public:
    void note(const Trouble& trouble);

    // The subject of the message in the catalogue; "Other" if it isn't there.
    const std::string& subject_of(const Trouble& trouble);

    std::vector<TroubleStory> by_times() const;

private:
    using Place = std::pair<std::string, int>;  // function and line
    std::map<Place, TroubleStory> stories_;
    std::map<Place, std::string> subjects_;
};

}  // namespace oxrctl
