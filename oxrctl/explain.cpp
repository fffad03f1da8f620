// The command `explain`: what was asked is taken for a code, else for a logged text, else for words of one.
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <regex>

#include "oxrctl/catalogue.h"
#include "oxrctl/commands.h"
#include "oxrctl/explain_text.h"

namespace oxrctl {

namespace {

constexpr std::size_t most_shown = 10;

// --- what was asked ----------------------------------------------------------------------------------------

std::string joined(const std::vector<std::string>& words) {
    return fmt::format("{}", fmt::join(words, " "));
}

std::string in_lower_case(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

// A line of the log, or as much of one as was given: behind its "FUNCTION:LINE : " comes the text.
struct LoggedText {
    std::string level;  // may be empty
    std::string text;
};

LoggedText logged_text(const std::string& asked) {
    static const std::regex prefix(R"(^(?:.*\b(ERROR|WARN|INFO|DEBUG): )?(?:.*?[\s:])?[A-Za-z_~]\w*:\d+ : ?)");
    std::smatch found;
    if (std::regex_search(asked, found, prefix)) {
        return {found[1].str(), found.suffix().str()};
    }
    return {"", asked};
}

// --- codes -------------------------------------------------------------------------------------------------

template <typename Fits>
std::vector<const CodeEntry*> codes_that(Fits fits) {
    std::vector<const CodeEntry*> found;
    for (const CodeEntry& code : catalogue().codes) {
        if (fits(code)) {
            found.push_back(&code);
        }
    }
    return found;
}

// "8", "OXD 8", "psp status = 8", "status=8".
std::vector<const CodeEntry*> codes_of_number(const std::string& asked) {
    static const std::regex number(R"(^\s*(oxd|psp)?[\s_]*(?:status)?[\s:=]*(\d{1,4})\s*$)", std::regex::icase);
    std::smatch found;
    if (!std::regex_match(asked, found, number)) {
        return {};
    }
    const std::string kind = in_lower_case(found[1].str());
    const int code = std::stoi(found[2].str());
    return codes_that([&](const CodeEntry& entry) {
        return entry.code == code && (kind.empty() || kind == in_lower_case(entry.kind));
    });
}

// A code whose name, or whose text for clients, stands in what was asked.
std::vector<const CodeEntry*> codes_named_in(const std::string& asked) {
    const std::string padded = " " + in_lower_case(asked) + " ";
    const auto stands_in = [&padded](const std::string& name) {
        const auto is_of_name = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; };
        const std::size_t at = name.empty() ? std::string::npos : padded.find(in_lower_case(name));
        return at != std::string::npos && !is_of_name(padded[at - 1]) && !is_of_name(padded[at + name.size()]);
    };
    return codes_that([&](const CodeEntry& code) { return stands_in(code.name); });
}

// A text such as "returning oxd status 8" tells a code by its number.
std::vector<const CodeEntry*> codes_told_by(const std::string& text) {
    static const std::regex oxd_status(R"(oxd[_ ]status\D{0,12}?(\d+)\s*$)", std::regex::icase);
    std::smatch found;
    return std::regex_search(text, found, oxd_status) ? codes_of_number("OXD " + found[1].str()) : codes_named_in(text);
}

// --- messages ----------------------------------------------------------------------------------------------

// Whether every word stands in one of the texts, in any case and order.
bool have_words(const std::vector<std::string>& texts, const std::vector<std::string>& words) {
    return std::any_of(texts.begin(), texts.end(), [&words](const std::string& text) {
        const std::string lower = in_lower_case(text);
        return std::all_of(words.begin(), words.end(),
                           [&lower](const std::string& word) { return lower.find(word) != std::string::npos; });
    });
}

std::vector<std::string> words_of(const std::string& text) {
    std::vector<std::string> words;
    const std::string lower = in_lower_case(text);
    static const std::regex word(R"(\S+)");
    for (std::sregex_iterator i(lower.begin(), lower.end(), word); i != std::sregex_iterator(); ++i) {
        words.push_back(i->str());
    }
    return words;
}

template <typename TextsOf>
void find_by_words(const std::vector<std::string>& words, Explanation& explanation, TextsOf texts_of) {
    for (const MessageEntry& entry : catalogue().messages) {
        if (have_words(texts_of(entry), words)) {
            explanation.messages.push_back({&entry, entry.texts});
        }
    }
}

void find_by_words(const std::string& asked, Explanation& explanation) {
    const std::vector<std::string> words = words_of(asked);
    find_by_words(words, explanation, [](const MessageEntry& entry) { return entry.texts; });
    explanation.codes = codes_that([&](const CodeEntry& code) { return have_words({code.name, code.text}, words); });
    if (explanation.empty()) {
        find_by_words(words, explanation, [](const MessageEntry& entry) {
            return std::vector<std::string>{entry.meaning, entry.action};
        });
    }
}

// --- the answer --------------------------------------------------------------------------------------------

Explanation whole_catalogue() {
    Explanation all;
    for (const MessageEntry& entry : catalogue().messages) {
        all.messages.push_back({&entry, entry.texts});
    }
    all.codes = codes_that([](const CodeEntry&) { return true; });
    return all;
}

Explanation find(const std::string& asked) {
    Explanation explanation;
    explanation.codes = codes_of_number(asked);
    if (!explanation.empty()) {
        return explanation;
    }
    const LoggedText logged = logged_text(asked);
    if (const FoundMessage message = find_format(logged.text, logged.level)) {
        explanation.messages.push_back({message.entry, {*message.format}});
        explanation.codes = codes_told_by(logged.text);
        return explanation;
    }
    explanation.codes = codes_named_in(asked);
    if (explanation.empty()) {
        find_by_words(logged.text, explanation);
    }
    return explanation;
}

std::size_t cut_to(std::size_t most, Explanation& explanation) {
    const std::size_t found = explanation.messages.size();
    explanation.messages.resize(std::min(found, most));
    return found - explanation.messages.size();
}

}  // namespace

Answer explain(const ExplainOptions& options) {
    const std::string asked = joined(options.words);
    const bool is_blank = std::all_of(asked.begin(), asked.end(), [](unsigned char c) { return std::isspace(c) != 0; });
    if (options.all != is_blank) {
        throw Refusal(options.all
                          ? "explain: --all shows everything; leave it out to have one message or code explained"
                          : "explain: give a message of the log or a code, such as \"No sessions.\" or 8; or "
                            "--all for everything");
    }
    if (options.all) {
        return {options.json ? explanation_json(whole_catalogue(), 0) : catalogue_markdown()};
    }
    Explanation explanation = find(asked);
    const ExitCode exit_code = explanation.empty() ? EXIT_FOUND : EXIT_FINE;
    const std::size_t left_out = cut_to(most_shown, explanation);
    if (options.json) {
        return {explanation_json(explanation, left_out), exit_code};
    }
    if (explanation.empty()) {
        return {fmt::format("Nothing fits \"{}\". Try fewer words, as few as one that is no name or number, or "
                            "--all.\n",
                            asked),
                exit_code};
    }
    return {explanation_text(explanation, left_out), exit_code};
}

}  // namespace oxrctl
