#include "oxrctl/catalogue.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include <toml++/toml.h>

#include "configuration/config_text.h"
#include "oxrctl/message_format.h"

namespace oxrctl {

extern const char catalogue_text[];

namespace {

// --- reading -----------------------------------------------------------------------------------------------

// Any row of blanks and line ends as one blank, none at the ends.
std::string squeezed(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const bool is_blank = c == ' ' || c == '\t' || c == '\r' || c == '\n';
        if (!is_blank) {
            result += c;
        } else if (!result.empty() && result.back() != ' ') {
            result += ' ';
        }
    }
    if (result.ends_with(' ')) {
        result.pop_back();
    }
    return result;
}

std::string text_of(const toml::table& table, std::string_view key) {
    return table[key].value_or(std::string());
}

// The line about the values in force is composed of the table of the keys.
std::string format_of(const toml::node& text) {
    std::string format = text.value_or(std::string());
    if (format != "VALUES") {
        return format;
    }
    char line[CONFIG_LINE_SIZE];
    compose_config_line(line, nullptr);
    return line;
}

// A text, or NAME = TEXT.
std::vector<std::string> texts_of(const toml::table& table, std::string_view key, Catalogue& result) {
    std::vector<std::string> texts;
    if (const toml::array* const list = table[key].as_array()) {
        for (const toml::node& text : *list) {
            if (const toml::table* const named = text.as_table()) {
                texts.push_back(format_of(named->begin()->second));
                result.named.emplace(named->begin()->first.str(), texts.back());
            } else {
                texts.push_back(format_of(text));
            }
        }
    }
    return texts;
}

template <typename Visit>
void for_each_table(const toml::table& parent, std::string_view key, Visit visit) {
    if (const toml::array* const list = parent[key].as_array()) {
        for (const toml::node& item : *list) {
            visit(*item.as_table());
        }
    }
}

void add_messages(Catalogue& result, const std::string& subject, const toml::table& message) {
    for (const char* const level : {"ERROR", "WARN", "INFO", "DEBUG"}) {
        std::vector<std::string> texts = texts_of(message, level, result);
        if (!texts.empty()) {
            result.messages.push_back({subject, level, std::move(texts), squeezed(text_of(message, "meaning")),
                                       squeezed(text_of(message, "action"))});
        }
    }
}

Catalogue read_catalogue() {
    const toml::table parsed = toml::parse(std::string_view(catalogue_text), std::string_view("catalogue.toml"));
    Catalogue result;
    for_each_table(parsed, "subject", [&](const toml::table& subject) {
        for_each_table(subject, "message",
                       [&](const toml::table& message) { add_messages(result, text_of(subject, "name"), message); });
    });
    for_each_table(parsed, "code", [&](const toml::table& code) {
        result.codes.push_back({text_of(code, "kind"), code["code"].value_or(-1), text_of(code, "name"),
                                text_of(code, "text"), squeezed(text_of(code, "meaning")),
                                squeezed(text_of(code, "action"))});
    });
    for_each_table(parsed, "reason", [&](const toml::table& reason) {
        result.reasons.push_back({text_of(reason, "name"), text_of(reason, "health"), texts_of(reason, "texts", result),
                                  squeezed(text_of(reason, "meaning")), squeezed(text_of(reason, "action"))});
    });
    return result;
}

// --- finding -----------------------------------------------------------------------------------------------

// A format, or one line of a format of several, ready to be compared with.
struct Pattern {
    FoundMessage found;
    MessageFormat format;  // without line feeds at its end
    std::string squeezed_text;
    MessageFormat squeezed_format;
    std::size_t letters;
};

std::string_view without_line_ends(std::string_view text) {
    while (text.ends_with('\n') || text.ends_with('\r')) {
        text.remove_suffix(1);
    }
    return text;
}

void add_pattern(std::vector<Pattern>& patterns, const FoundMessage& found, std::string_view format) {
    const MessageFormat cut(format);
    patterns.push_back({found, cut, squeezed(format), MessageFormat(squeezed(format)), cut.own_letters()});
}

void add_patterns(std::vector<Pattern>& patterns, const FoundMessage& found) {
    std::string_view rest = without_line_ends(*found.format);
    add_pattern(patterns, found, rest);
    for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
        add_pattern(patterns, found, rest.substr(0, end));
        rest.remove_prefix(end + 1);
        add_pattern(patterns, found, rest);
    }
}

std::vector<Pattern> make_patterns() {
    std::vector<Pattern> patterns;
    for (const MessageEntry& entry : catalogue().messages) {
        for (const std::string& format : entry.texts) {
            add_patterns(patterns, {&entry, &format});
        }
    }
    return patterns;
}

}  // namespace

const Catalogue& catalogue() {
    static const Catalogue read = read_catalogue();
    return read;
}

FoundMessage find_format(std::string_view text, std::string_view level) {
    static const std::vector<Pattern> patterns = make_patterns();
    text = without_line_ends(text);
    const std::string squeezed_text = squeezed(text);
    const auto fits = [&](const Pattern& pattern) {
        return pattern.format.matches(text) || pattern.squeezed_format.matches(squeezed_text) ||
               pattern.squeezed_text == squeezed_text;
    };
    const auto rank = [level](const Pattern& pattern) {
        return std::pair(pattern.found.entry->level == level, pattern.letters);
    };
    const Pattern* best = nullptr;
    for (const Pattern& pattern : patterns) {
        if ((best == nullptr || rank(pattern) > rank(*best)) && fits(pattern)) {
            best = &pattern;
        }
    }
    return best != nullptr ? best->found : FoundMessage{};
}

std::vector<const ReasonEntry*> find_reasons(std::string_view text) {
    const std::string told = squeezed(text);
    std::vector<const ReasonEntry*> found;
    for (const ReasonEntry& reason : catalogue().reasons) {
        if (std::any_of(reason.texts.begin(), reason.texts.end(), [&told](const std::string& format) {
                return MessageFormat("%s" + format + "%s").matches(told);
            })) {
            found.push_back(&reason);
        }
    }
    return found;
}

const MessageEntry* find_message(std::string_view text, std::string_view level) {
    return find_format(text, level).entry;
}

}  // namespace oxrctl
