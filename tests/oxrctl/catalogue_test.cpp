#include "oxrctl/catalogue.h"

#include <gtest/gtest.h>

#include <chrono>
#include <regex>

#include "OstrelConnections/psp/psp_client.h"
#include "OstrelConnections/renewal/renewal.h"
#include "oxrctl/commands.h"
#include "source_messages.h"

namespace oxrctl {

namespace {

// What stands between the two in a text.
std::string between(const std::string& text, const std::string& begin, const std::string& end) {
    const std::size_t from = text.find(begin) + begin.size();
    return text.substr(from, text.find(end, from) - from);
}

TEST(Catalogue, HasEachMessageOfTheSourceAndNoOther) {
    const auto of_source = source_messages();
    ASSERT_GT(of_source.size(), 300U);
    std::set<std::pair<std::string, std::string>> of_catalogue;
    for (const MessageEntry& entry : catalogue().messages) {
        EXPECT_FALSE(entry.subject.empty() || entry.meaning.empty()) << entry.texts.front();
        EXPECT_TRUE(!entry.action.empty() || entry.level == "INFO" || entry.level == "DEBUG") << entry.texts.front();
        for (const std::string& text : entry.texts) {
            EXPECT_TRUE(of_catalogue.emplace(entry.level, text).second) << "twice: " << entry.level << ' ' << text;
            EXPECT_TRUE(of_source.contains({entry.level, text})) << "nobody logs: " << entry.level << ' ' << text;
        }
    }
    for (const auto& [level, text] : of_source) {
        EXPECT_TRUE(of_catalogue.contains({level, text})) << level << ' ' << text;
    }
}

// With the texts that clients get, which docs/cim.md has too.
TEST(Catalogue, HasEachCodeOfTheSourceAndNoOther) {
    const std::string header = content_of("src/OstrelConnections/renewal/renewal.h");
    const std::string page = content_of("docs/cim.md");
    int oxd = 0;
    int psp = 0;
    for (const CodeEntry& code : catalogue().codes) {
        EXPECT_FALSE(code.meaning.empty()) << code.name;
        EXPECT_EQ(code.action.empty(), code.code == 0) << code.name;
        if (code.kind == "PSP") {
            EXPECT_EQ(code.code, psp);
            EXPECT_EQ(code.name, ioctl_status_to_string(psp++));
            continue;
        }
        EXPECT_EQ(code.code, oxd);
        EXPECT_NE(header.find(code.name + " = " + std::to_string(oxd) + ","), std::string::npos) << code.name;
        if (oxd != 0) {
            EXPECT_EQ(code.text, ostrel_oxd_status_to_string(static_cast<std::uint32_t>(oxd))) << code.name;
            EXPECT_NE(page.find("\n| " + std::to_string(oxd) + " | " + code.text + " "), std::string::npos)
                << code.text;
        }
        ++oxd;
    }
    EXPECT_EQ(psp, static_cast<int>(OSTREL_PSP_IOCTL_ERROR_UNKNOWN) + 1);
    EXPECT_EQ(oxd, static_cast<int>(OXD_POLLING_PASS_TIMEOUT) + 1);
}

TEST(Catalogue, IsWhatTheDocumentationHas) {
    const std::string section =
        between(content_of("docs/operations.md"), "<!-- messages: made by oxrctl explain --all -->\n",
                "<!-- end of messages -->");
    EXPECT_TRUE(section == explain({{}, true, false}).text) << "./dev docs makes the section anew";
}

// --- finding -----------------------------------------------------------------------------------------------

// What the format prints for arguments of the kind that the service has.
std::string printed(std::string format) {
    const std::pair<const char*, const char*> arguments[] = {
        {"%%", "%"},         {R"(%\.\*s)", "10.0.0.7"}, {"%s", "iqn.2012-07.com.ostrel:a b"},
        {R"(%l?[du])", "7"}, {"%zu", "4096"},           {"%x", "d"},
    };
    for (const auto& [conversion, argument] : arguments) {
        format = std::regex_replace(format, std::regex(conversion), argument);
    }
    EXPECT_EQ(format.find('%'), std::string::npos) << format;
    return format;
}

TEST(FindMessage, FindsTheEntryOfEachPrintedFormat) {
    const auto begin = std::chrono::steady_clock::now();
    for (const MessageEntry& entry : catalogue().messages) {
        for (const std::string& format : entry.texts) {
            EXPECT_EQ(find_message(printed(format), entry.level), &entry) << printed(format);
            EXPECT_EQ(find_message(format, entry.level), &entry) << format;
        }
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10)) << "too slow for a log";
}

}  // namespace

}  // namespace oxrctl
