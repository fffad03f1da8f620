#include "source_messages.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "configuration/config_text.h"

namespace {

const std::filesystem::path SOURCE = OXR_SOURCE_DIR "/src";

std::string content_of(const std::filesystem::path& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

bool is_name(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// A string literal, its escapes undone, or a name; any other character stands alone.
struct Token {
    enum Kind { literal, name, sign } kind;
    std::string text;
};
using Tokens = std::vector<Token>;

// Reads the literal that begins at `at` and moves behind it.
std::string read_quoted(const std::string& text, std::size_t& at) {
    const char quote = text[at++];
    std::string result;
    for (; text.at(at) != quote; ++at) {
        if (text[at] == '\\') {
            ++at;
            result += text.at(at) == 'n' ? '\n' : text[at];
        } else {
            result += text[at];
        }
    }
    ++at;
    return result;
}

Token read_token(const std::string& text, std::size_t& at) {
    if (text.at(at) == '"') {
        return {Token::literal, read_quoted(text, at)};
    }
    if (text[at] == '\'') {
        return {Token::sign, read_quoted(text, at)};
    }
    if (!is_name(text[at])) {
        return {Token::sign, std::string(1, text[at++])};
    }
    const std::size_t begin = at;
    while (is_name(text.at(at))) {
        ++at;
    }
    return {Token::name, text.substr(begin, at - begin)};
}

// The arguments of the call whose parenthesis opens before `at`.
std::vector<Tokens> read_arguments(const std::string& text, std::size_t at) {
    std::vector<Tokens> arguments(1);
    for (int depth = 0;;) {
        const Token token = read_token(text, at);
        const bool is_sign = token.kind == Token::sign;
        if (is_sign && token.text == ")" && depth == 0) {
            return arguments;
        }
        if (is_sign && token.text == "," && depth == 0) {
            arguments.emplace_back();
        } else if (!is_sign || std::isspace(static_cast<unsigned char>(token.text[0])) == 0) {
            arguments.back().push_back(token);
        }
        if (is_sign) {
            depth += token.text == "(" || token.text == "{" ? 1 : token.text == ")" || token.text == "}" ? -1 : 0;
        }
    }
}

// One file, with the names that stand for texts in it.
class SourceFile {
public:
    explicit SourceFile(const std::filesystem::path& path)
        : text_(content_of(path)), name_(path.lexically_relative(SOURCE).string()) {
        const std::regex define(R"(#define (\w+) (".*))");
        for (std::sregex_iterator i(text_.begin(), text_.end(), define); i != std::sregex_iterator(); ++i) {
            std::size_t at = 0;
            const std::string line = (*i)[2].str() + "\n";
            Tokens tokens;
            while (line[at] != '\n') {
                tokens.push_back(read_token(line, at));
            }
            std::erase_if(tokens, [](const Token& token) { return token.kind == Token::sign; });
            macros_[(*i)[1]] = joined(tokens);
        }
        const std::regex constant(R"re(constexpr char (\w+)\[\] = ("[^\n]*");)re");
        for (std::sregex_iterator i(text_.begin(), text_.end(), constant); i != std::sregex_iterator(); ++i) {
            std::size_t at = 0;
            constants_[(*i)[1]] = read_quoted((*i)[2].str(), at);
        }
    }

    void add_messages(std::vector<SourceMessage>& messages) const {
        const std::regex call(R"(\bOXR_(ERROR|WARN|INFO|DEBUG)(_IN|_OF)?\()");
        for (std::sregex_iterator i(text_.begin(), text_.end(), call); i != std::sregex_iterator(); ++i) {
            const auto begin = static_cast<std::size_t>(i->position());
            const auto line = std::count(text_.begin(), text_.begin() + i->position(), '\n') + 1;
            const std::string place = name_ + ":" + std::to_string(line);
            std::vector<Tokens> arguments = read_arguments(text_, begin + static_cast<std::size_t>(i->length()));
            if ((*i)[2].matched) {
                arguments.erase(arguments.begin(), arguments.begin() + ((*i)[2] == "_OF" ? 2 : 1));
            }
            for (const std::string& format : formats_of(arguments, place)) {
                messages.push_back({(*i)[1], format, place});
            }
        }
    }

private:
    std::string joined(const Tokens& tokens) const {
        std::string result;
        for (const Token& token : tokens) {
            const auto macro = macros_.find(token.text);
            if (token.kind == Token::literal) {
                result += token.text;
            } else if (macro != macros_.end()) {
                result += macro->second;
            } else {
                throw std::runtime_error(name_ + ": no text is known of " + token.text);
            }
        }
        return result;
    }

    std::vector<std::string> formats_of(const std::vector<Tokens>& arguments, const std::string& place) const {
        const std::string format = joined(arguments.at(0));
        if (format != "%s") {
            return {format};
        }
        std::vector<std::string> texts;
        for (const Token& token : arguments.at(1)) {
            if (token.text == "config_line") {
                char line[CONFIG_LINE_SIZE];
                compose_config_line(line, nullptr);
                texts.emplace_back(line);
            } else if (token.kind == Token::literal) {
                texts.push_back(token.text);
            } else if (token.kind == Token::name) {
                // A member that is set from one of several constants is named like the beginning of theirs.
                for (const auto& [name, text] : constants_) {
                    if (name.starts_with(token.text)) {
                        texts.push_back(text);
                    }
                }
            }
        }
        if (texts.empty()) {
            throw std::runtime_error(place + ": no text is known of its %s");
        }
        return texts;
    }

    std::string text_;
    std::string name_;
    std::map<std::string, std::string> macros_ = {{"PRId64", "ld"}, {"PRIu64", "lu"}};
    std::map<std::string, std::string> constants_;
};

}  // namespace

std::vector<SourceMessage> source_messages() {
    std::vector<SourceMessage> messages;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(SOURCE)) {
        const std::string extension = entry.path().extension();
        // The log's own header defines the calls.
        if ((extension == ".cpp" || extension == ".h") && entry.path() != SOURCE / "OstrelProvider/log.h") {
            SourceFile(entry.path()).add_messages(messages);
        }
    }
    return messages;
}

std::map<int, std::string> source_codes(const std::string& header, const std::string& head, const std::string& prefix) {
    std::string text = content_of(SOURCE / header);
    text.erase(0, text.find(head));
    text.erase(text.find("};"));
    std::map<int, std::string> codes;
    const std::regex enumerator("(" + prefix + R"(\w+) = (\d+))");
    for (std::sregex_iterator i(text.begin(), text.end(), enumerator); i != std::sregex_iterator(); ++i) {
        codes[std::stoi((*i)[2])] = (*i)[1];
    }
    return codes;
}

std::map<std::string, std::string> source_case_texts(const std::string& file) {
    const std::string text = content_of(SOURCE / file);
    std::map<std::string, std::string> texts;
    const std::regex one_case(R"re((?:case (\w+)|default):[^\n]*\n\s*return "([^"]*)";)re");
    for (std::sregex_iterator i(text.begin(), text.end(), one_case); i != std::sregex_iterator(); ++i) {
        texts[(*i)[1].matched ? (*i)[1].str() : "default"] = (*i)[2];
    }
    return texts;
}
