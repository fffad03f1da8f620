// The command `explain`: what was asked is taken for a code, else for a logged text or a reason of `oxrctl status`,
// else for words of one.
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <optional>
#include <regex>
#include <set>
#include <sstream>

#include "oxrctl/catalogue.h"
#include "oxrctl/commands.h"
#include "oxrctl/explain_text.h"
#include "oxrctl/told_line.h"
#include "shared/log_line.h"

namespace oxrctl {

namespace {

constexpr std::size_t most_shown = 10;

// --- what was asked ----------------------------------------------------------------------------------------

// The words as one text; a line feed may be given as it stands in a format.
std::string joined(const std::vector<std::string>& words) {
    std::string text = fmt::format("{}", fmt::join(words, " "));
    for (std::size_t at = text.find("\\n"); at != std::string::npos; at = text.find("\\n", at)) {
        text.replace(at, 2, "\n");
    }
    return text;
}

std::string in_lower_case(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

// A line of the log or of a program that tells it, or as much of one as was given: behind its "FUNCTION:LINE : " comes
// the text.
struct LoggedText {
    std::string level;  // may be empty
    std::string text;
    bool is_of_log = false;
    bool in_a_reason = false;  // which quotes it
};

LoggedText logged_text(const std::string& asked) {
    if (const std::optional<ToldMessage> told = told_message(asked)) {
        if (told->text.empty()) {
            throw Refusal("explain: the message stands in the line below this one; give that one, or both");
        }
        return {told->level, told->text, true, told->level.empty()};
    }
    shared::LogLine line;
    return shared::parse_log_line_end(asked, line) ? LoggedText{std::string(line.level), std::string(line.text), true}
                                                   : LoggedText{"", asked, false};
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
struct CodeNumber {
    std::string kind;  // in lower case; empty: any
    int code;
};

std::optional<CodeNumber> code_number(const std::string& asked) {
    static const std::regex number(R"(^\s*(oxd|psp)?[\s_]*(?:status)?[\s:=]*(\d{1,9})\s*$)", std::regex::icase);
    constexpr std::size_t longest = 40;
    std::smatch found;
    if (asked.size() > longest || !std::regex_match(asked, found, number)) {
        return std::nullopt;
    }
    return CodeNumber{in_lower_case(found[1].str()), std::stoi(found[2].str())};
}

std::vector<const CodeEntry*> codes_of_number(const CodeNumber& number) {
    return codes_that([&number](const CodeEntry& entry) {
        return entry.code == number.code && (number.kind.empty() || number.kind == in_lower_case(entry.kind));
    });
}

// Codes whose names stand in what was asked.
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
    static const std::regex oxd_status(R"(oxd[_ ]status\D{0,12}?(\d{1,9})\s*$)", std::regex::icase);
    std::smatch found;
    return std::regex_search(text, found, oxd_status) ? codes_of_number({"oxd", std::stoi(found[1].str())})
                                                      : codes_named_in(text);
}

// --- messages ----------------------------------------------------------------------------------------------

// Whether every word stands in the text, in any case and order.
bool has_words(std::string_view text, const std::vector<std::string>& words) {
    const std::string lower = in_lower_case(text);
    return std::all_of(words.begin(), words.end(),
                       [&lower](const std::string& word) { return lower.find(word) != std::string::npos; });
}

std::vector<std::string> words_of(const std::string& text) {
    std::istringstream stream(in_lower_case(text));
    return {std::istream_iterator<std::string>(stream), {}};
}

// Of short words alone there is one in every explanation.
bool says_something(const std::string& word) {
    constexpr std::size_t shortest = 5;
    static const std::set<std::string> common = {"nothing", "there", "which", "other", "again", "their"};
    return word.size() >= shortest && !common.contains(word);
}

bool has_digit(const std::string& word) {
    return word.find_first_of("0123456789") != std::string::npos;
}

void find_in_texts(const std::vector<std::string>& words, Explanation& explanation) {
    for (const MessageEntry& entry : catalogue().messages) {
        ExplainedMessage message{&entry, entry.texts};
        std::erase_if(message.texts, [&words](const std::string& text) { return !has_words(text, words); });
        if (!message.texts.empty()) {
            explanation.messages.push_back(std::move(message));
        }
    }
    explanation.codes = codes_that(
        [&words](const CodeEntry& code) { return has_words(code.name, words) || has_words(code.text, words); });
}

void find_in_reasons(const std::vector<std::string>& words, Explanation& explanation) {
    for (const ReasonEntry& reason : catalogue().reasons) {
        if (has_words(fmt::format("{}", fmt::join(reason.texts, " ")), words)) {
            explanation.reasons.push_back(&reason);
        }
    }
}

void find_in_meanings(const std::vector<std::string>& words, Explanation& explanation) {
    for (const MessageEntry& entry : catalogue().messages) {
        if (has_words(entry.meaning + " " + entry.action, words)) {
            explanation.messages.push_back({&entry, entry.texts});
        }
    }
}

// In the texts, else in what is said about them. Words with a digit in them may be arguments. For a line of the log
// only its text counts.
Explanation find_by_words(const LoggedText& logged) {
    std::vector<std::string> words = words_of(logged.text);
    Explanation explanation;
    if (words.empty()) {
        return explanation;
    }
    find_in_texts(words, explanation);
    if (explanation.empty() && !logged.is_of_log) {
        find_in_reasons(words, explanation);
    }
    if (explanation.empty() && !logged.is_of_log && std::any_of(words.begin(), words.end(), says_something)) {
        find_in_meanings(words, explanation);
    }
    if (explanation.empty() && std::erase_if(words, has_digit) > 0 && !words.empty()) {
        find_in_texts(words, explanation);
    }
    return explanation;
}

// --- the answer --------------------------------------------------------------------------------------------

Explanation whole_catalogue() {
    Explanation all;
    for (const MessageEntry& entry : catalogue().messages) {
        all.messages.push_back({&entry, entry.texts});
    }
    all.codes = codes_that([](const CodeEntry&) { return true; });
    for (const ReasonEntry& reason : catalogue().reasons) {
        all.reasons.push_back(&reason);
    }
    return all;
}

// The message's entry, or its entries: two procedures may log the same text at different levels.
Explanation with_message(const FoundMessage& message, const LoggedText& logged) {
    Explanation explanation;
    for (const MessageEntry& entry : catalogue().messages) {
        const bool has_text = std::find(entry.texts.begin(), entry.texts.end(), *message.format) != entry.texts.end();
        if (has_text && (&entry == message.entry || logged.level.empty())) {
            explanation.messages.push_back({&entry, {*message.format}});
        }
    }
    explanation.codes = codes_told_by(logged.text);
    return explanation;
}

Explanation find(const std::string& asked) {
    Explanation explanation;
    if (const std::optional<CodeNumber> number = code_number(asked)) {
        explanation.codes = codes_of_number(*number);
        return explanation;
    }
    for (const ReasonEntry& reason : catalogue().reasons) {
        if (reason.name == asked) {
            explanation.reasons.push_back(&reason);
            return explanation;
        }
    }
    const LoggedText logged = logged_text(asked);
    if (const FoundMessage message = find_format(logged.text, logged.level)) {
        explanation = with_message(message, logged);
    }
    if (!logged.is_of_log || logged.in_a_reason) {
        explanation.reasons = find_reasons(asked);
    }
    if (explanation.empty()) {
        explanation.codes = codes_named_in(asked);
    }
    return explanation.empty() ? find_by_words(logged) : explanation;
}

std::string nothing_fits(std::string asked) {
    constexpr std::size_t shown = 100;
    std::replace(asked.begin(), asked.end(), '\n', ' ');
    return fmt::format(
        "Nothing fits \"{}{}\". Give fewer words of the message, without names and numbers; --all shows everything.\n",
        asked.substr(0, shown), asked.size() > shown ? "..." : "");
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
        return {nothing_fits(asked), exit_code};
    }
    return {explanation_text(explanation, left_out), exit_code};
}

}  // namespace oxrctl
