// What describes the keys of the configuration for people has those of the table, with their defaults and limits.
#include "configuration/config_keys.h"

#include <gtest/gtest.h>

#include <regex>

#include "shared/config_file.h"
#include "source_messages.h"

namespace {

// A line of the page that begins so has all these words.
void expect_line(const std::string& page, std::string begin, const std::vector<std::string>& words) {
    for (const std::string& word : words) {
        begin += "(?=[^\n]*\\b" + word + "\\b)";
    }
    EXPECT_TRUE(std::regex_search(page, std::regex("\n" + begin))) << begin;
}

}  // namespace

TEST(ConfigKeys, AreDescribed) {
    const std::string manual = content_of("docs/man/oxr.conf.5.in");
    const std::string page = content_of("docs/operations.md");
    for (const ConfigKey& key : config_keys) {
        const std::string name(key.name);
        const std::string value = shared::value_text(key, {});
        std::vector<std::string> words = {name, value.substr(value.find_first_not_of('/'))};
        expect_line(page, "\\| `", words);
        if (key.high != UINT32_MAX) {
            words.insert(words.end(), {std::to_string(key.low), std::to_string(key.high)});
        }
        expect_line(manual, "\\.BR ", words);
    }
}
