#include "oxrctl/status/trouble_book.h"

#include <algorithm>

#include "oxrctl/catalogue.h"

namespace oxrctl {

Trouble::Trouble(const shared::LogLine& line, std::string logged)
    : level(line.level),
      module(line.module),
      function(line.function),
      text(line.text),
      time(std::move(logged)),
      source_line(line.source_line) {}

void TroubleBook::note(const Trouble& trouble) {
    TroubleStory& story = stories_[{trouble.function, trouble.source_line}];
    if (story.times++ == 0) {
        story.level = trouble.level;
        story.place = trouble.module + ": " + trouble.function;
        story.first = trouble.time;
    }
    story.last = trouble.time;
    story.text = trouble.text;
}

const std::string& TroubleBook::subject_of(const Trouble& trouble) {
    const auto [place, is_new] = subjects_.try_emplace({trouble.function, trouble.source_line});
    if (is_new) {
        const MessageEntry* const entry = find_message(trouble.text, trouble.level);
        place->second = entry == nullptr ? "Other" : entry->subject;
    }
    return place->second;
}

std::vector<TroubleStory> TroubleBook::by_times() const {
    std::vector<TroubleStory> all;
    for (const auto& [place, story] : stories_) {
        all.push_back(story);
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const TroubleStory& a, const TroubleStory& b) { return a.times > b.times; });
    return all;
}

}  // namespace oxrctl
