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

    // ERROR before WARN, then the most frequent first, then the one that came first.
    std::vector<TroubleStory> worst_first() const;

private:
    using Place = std::pair<std::string, int>;  // function and line
    std::map<Place, std::size_t> places_;       // where each one's story stands
    std::vector<TroubleStory> stories_;         // as they came first
    std::map<Place, std::string> subjects_;
};

}  // namespace oxrctl
