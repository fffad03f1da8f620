// How explanations are shown: for people, for programs, and as a section of the documentation.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "oxrctl/catalogue.h"

namespace oxrctl {

// An entry, and which of its texts are shown.
struct ExplainedMessage {
    const MessageEntry* entry;
    std::vector<std::string> texts;
};

struct Explanation {
    std::vector<ExplainedMessage> messages;
    std::vector<const CodeEntry*> codes;
    std::vector<const ReasonEntry*> reasons{};

    bool empty() const { return messages.empty() && codes.empty() && reasons.empty(); }
};

// `left_out`: messages that were found beyond those shown.
std::string explanation_text(const Explanation& explanation, std::size_t left_out);
std::string explanation_json(const Explanation& explanation, std::size_t left_out);

// The whole catalogue, subject by subject.
std::string catalogue_markdown();

}  // namespace oxrctl
