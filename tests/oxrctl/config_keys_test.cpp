// What describes the keys of the configuration for people has those of the table, with their defaults and limits.
#include "configuration/config_keys.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <regex>

#include "shared/config_file.h"

namespace {

std::string content_of(const std::string& path) {
    std::ifstream file(path);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

// What stands between the two, which are there.
std::string between(const std::string& text, const std::string& begin, const std::string& end) {
    const std::size_t from = text.find(begin) + begin.size();
    return text.substr(from, text.find(end, from) - from);
}

std::string all_names() {
    std::string names;
    for (const ConfigKey& key : config_keys) {
        names += names.empty() ? "" : " ";
        names += key.name;
    }
    return names;
}

// The headings describe every key and no other, in the order of the table.
void expect_descriptions(const std::string& page, const std::regex& heading, const std::regex& name) {
    std::string names;
    for (std::sregex_iterator each(page.begin(), page.end(), heading); each != std::sregex_iterator(); ++each) {
        const std::string told = each->str();
        const std::string named = (*each)[1];
        for (std::sregex_iterator i(named.begin(), named.end(), name); i != std::sregex_iterator(); ++i) {
            const ConfigKey* const key = find_config_key(i->str());
            ASSERT_NE(key, nullptr) << told;
            names += (names.empty() ? "" : " ") + i->str();
            std::vector<std::string> numbers = {shared::value_text(*key, {})};
            if (key->high != UINT32_MAX) {
                numbers.insert(numbers.end(), {std::to_string(key->low), std::to_string(key->high)});
            }
            for (const std::string& number : numbers) {
                EXPECT_TRUE(std::regex_search(told, std::regex("[^0-9a-z]" + number + "[^0-9]"))) << number << told;
            }
        }
    }
    EXPECT_EQ(names, all_names());
}

}  // namespace

TEST(ConfigKeys, AreDescribedInTheManualAndOffered) {
    const std::string manual = content_of(OXR_SOURCE_DIR "/docs/man/oxr.conf.5.in");
    expect_descriptions(between(manual, ".SH KEYS", ".SH EXAMPLES"), std::regex(R"(\.BR ([a-z_", ]+) " \([^\n]*\n)"),
                        std::regex("[a-z_]+"));
    for (const char* const program : {"oxrctl", "ostrel-simhost"}) {
        const std::string completion =
            content_of(std::string(OXR_PROGRAMS_DIR "/../packaging/") + program + ".bash-completion");
        EXPECT_NE(completion.find("'" + all_names() + "\n"), std::string::npos) << completion;
    }
}

TEST(ConfigKeys, HaveTheirDefaultsInTheOperationsPage) {
    const std::string page = content_of(OXR_SOURCE_DIR "/docs/operations.md");
    const std::string table = between(page, "| Key | Default |", "\n\n");
    std::smatch row;
    for (const ConfigKey& key : config_keys) {
        const std::regex cells("\\n\\|[^|]*`" + std::string(key.name) + "`[^|]*\\|([^|]*)\\|");
        ASSERT_TRUE(std::regex_search(table, row, cells)) << key.name;
        EXPECT_TRUE(std::regex_search(row[1].str(), std::regex("[ `]" + shared::value_text(key, {}) + "[ `,]")))
            << row[0];
    }
}
