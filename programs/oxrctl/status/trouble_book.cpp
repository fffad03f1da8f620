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
    const auto [place, is_new] = places_.try_emplace({trouble.function, trouble.source_line}, stories_.size());
    if (is_new) {
        stories_.push_back({trouble.level, trouble.module + ": " + trouble.function, "", trouble.time, "", 0});
    }
    TroubleStory& story = stories_[place->second];
    ++story.times;
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

std::vector<TroubleStory> TroubleBook::worst_first() const {
    std::vector<TroubleStory> all = stories_;
    const auto weight = [](const TroubleStory& story) { return std::pair(story.level == "ERROR", story.times); };
    std::stable_sort(all.begin(), all.end(), [&weight](const auto& a, const auto& b) { return weight(a) > weight(b); });
    return all;
}

}  // namespace oxrctl
