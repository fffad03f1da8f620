#include "source_messages.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <vector>

#include "configuration/config_text.h"

namespace {

const std::string literal = R"re("(?:[^"\\]|\\.)*")re";

template <typename Visit>
void for_each_match(const std::string& text, const std::regex& pattern, Visit visit) {
    for (std::sregex_iterator i(text.begin(), text.end(), pattern); i != std::sregex_iterator(); ++i) {
        visit(*i);
    }
}

// Literals that stand side by side, as one text.
std::string joined(const std::string& literals) {
    std::string result;
    for_each_match(literals, std::regex(literal), [&result](const std::smatch& each) {
        const std::string quoted = each.str();
        for (std::size_t at = 1; at + 1 < quoted.size(); ++at) {
            const bool escaped = quoted[at] == '\\';
            at += escaped ? 1 : 0;
            result += escaped && quoted[at] == 'n' ? '\n' : quoted[at];
        }
    });
    return result;
}

// Names that stand for a part of a format give way to it.
std::string without_names(std::string text) {
    std::vector<std::pair<std::string, std::string>> names;
    for_each_match(text, std::regex(R"(#define (\w+) (".*%.*))"),
                   [&names](const std::smatch& define) { names.emplace_back(define[1], define[2]); });
    names.insert(names.end(), {{"PRId64", "\"ld\""}, {"PRIu64", "\"lu\""}});
    for (const auto& [name, literals] : names) {
        for (std::size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + literals.size())) {
            text.replace(at, name.size(), literals);
        }
    }
    return text;
}

}  // namespace

std::string content_of(const std::string& path) {
    std::ifstream file(std::filesystem::path(OXR_SOURCE_DIR) / path);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

std::set<std::pair<std::string, std::string>> source_messages() {
    std::set<std::pair<std::string, std::string>> messages;
    int num_others = 0;
    const std::filesystem::path source = OXR_SOURCE_DIR;
    const std::regex call(R"(OXR_(ERROR|WARN|INFO|DEBUG)(?:_IN\([^,]*,|_OF\([^,]*,[^,]*,|\()((?:[^;"]|)" + literal +
                          R"()*?)\);)");
    const std::regex format("((?:" + literal + R"(\s*)+)([^]*))");
    for (const auto& entry : std::filesystem::recursive_directory_iterator(source / "src")) {
        // The log's own header defines the calls.
        if (!entry.is_regular_file() || entry.path() == source / "src/OstrelProvider/log.h") {
            continue;
        }
        const std::string text = without_names(content_of(entry.path().lexically_relative(source)));
        for_each_match(text, call, [&](const std::smatch& found) {
            const std::string arguments = found[2];
            std::smatch parts;
            ASSERT_TRUE(std::regex_search(arguments, parts, format)) << entry.path() << arguments;
            // The text that "%s" prints, where the call has it.
            const std::string text_of_call = joined(parts[1]) == "%s" ? joined(parts[2]) : joined(parts[1]);
            if (!text_of_call.empty()) {
                messages.emplace(found[1], text_of_call);
            } else {
                ++num_others;
            }
        });
    }
    // Two calls print texts that stand elsewhere.
    EXPECT_EQ(num_others, 2);
    char line[CONFIG_LINE_SIZE];
    compose_config_line(line, nullptr);
    messages.emplace("INFO", line);
    for (const std::string of : {"OSTREL_ConnectionService Key", "OSTREL_ConnectionServiceSetting Key"}) {
        messages.insert({{"WARN", of + " is malformed."}, {"WARN", of + " value is malformed."}});
    }
    return messages;
}
