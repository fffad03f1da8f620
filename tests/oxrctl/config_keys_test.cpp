// What describes the keys of the configuration for people has those of the table, with their defaults and limits.
#include "configuration/config_keys.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <regex>

#include "shared/config_file.h"
#include "source_messages.h"

namespace {

// The keys of the descriptions: each names one or two, and tells their defaults and, with `limits`, their limits.
std::vector<std::string> keys_in(const std::string& page, const std::regex& description, bool limits) {
    std::vector<std::string> names;
    for (std::sregex_iterator each(page.begin(), page.end(), description); each != std::sregex_iterator(); ++each) {
        const std::regex name("[a-z]+_?[a-z_]+");
        const std::string described = (*each)[1];
        for (std::sregex_iterator i(described.begin(), described.end(), name); i != std::sregex_iterator(); ++i) {
            names.push_back(i->str());
            const ConfigKey* const key = find_config_key(names.back());
            EXPECT_NE(key, nullptr) << names.back();
            std::vector<std::string> told = {shared::value_text(key != nullptr ? *key : config_keys[0], {})};
            if (limits && key != nullptr && key->high != UINT32_MAX) {
                told.insert(told.end(), {std::to_string(key->low), std::to_string(key->high)});
            }
            for (const std::string& value : told) {
                EXPECT_TRUE(std::regex_search((*each)[2].str(), std::regex("[^0-9a-z]" + value + "[^0-9a-z]")))
                    << value;
            }
        }
    }
    return names;
}

}  // namespace

TEST(ConfigKeys, AreDescribedAndOffered) {
    std::vector<std::string> names;
    std::string offered = "'";
    for (const ConfigKey& key : config_keys) {
        names.emplace_back(key.name);
        offered += (names.size() > 1 ? " " : "") + names.back();
    }
    const std::regex heading(R"(\n\.BR ([a-z_", ]+) "( \([^\n]*\n))");
    EXPECT_EQ(keys_in(content_of("docs/man/oxr.conf.5.in"), heading, true), names);
    const std::regex row(R"(\n\| (`[a-z_]+`(?:, `[a-z_]+`)?) \|([^|]*[0-9/][^|]*\|))");
    EXPECT_EQ(keys_in(content_of("docs/operations.md"), row, false), names);
    for (const std::string program : {"oxrctl", "ostrel-simhost"}) {
        std::ifstream file(OXR_PROGRAMS_DIR "/../packaging/" + program + ".bash-completion");
        const std::string completion(std::istreambuf_iterator<char>(file), {});
        EXPECT_NE(completion.find(offered + "\n"), std::string::npos) << completion;
    }
}
