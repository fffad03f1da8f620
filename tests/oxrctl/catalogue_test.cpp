#include "oxrctl/catalogue.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "oxrctl/commands.h"
#include "source_messages.h"

namespace oxrctl {

namespace {

using LevelAndFormat = std::pair<std::string, std::string>;

TEST(Catalogue, HasEachMessageOfTheSourceAndNoOther) {
    std::map<LevelAndFormat, std::string> of_source;
    for (const SourceMessage& message : source_messages()) {
        of_source[{message.level, message.format}] = message.place;
    }
    ASSERT_GT(of_source.size(), 300U);
    std::set<LevelAndFormat> of_catalogue;
    for (const MessageEntry& entry : catalogue().messages) {
        for (const std::string& text : entry.texts) {
            EXPECT_TRUE(of_catalogue.insert({entry.level, text}).second) << "twice: " << entry.level << ' ' << text;
            EXPECT_TRUE(of_source.contains({entry.level, text})) << "nobody logs: " << entry.level << ' ' << text;
        }
    }
    for (const auto& [message, place] : of_source) {
        EXPECT_TRUE(of_catalogue.contains(message)) << place << ": " << message.first << ' ' << message.second;
    }
}

TEST(Catalogue, ExplainsEachEntryAndTellsWhatToDoAboutTrouble) {
    for (const MessageEntry& entry : catalogue().messages) {
        EXPECT_FALSE(entry.subject.empty() || entry.meaning.empty()) << entry.texts.front();
        EXPECT_TRUE(!entry.action.empty() || entry.level == "INFO" || entry.level == "DEBUG") << entry.texts.front();
    }
    for (const CodeEntry& code : catalogue().codes) {
        EXPECT_FALSE(code.meaning.empty()) << code.name;
        EXPECT_EQ(code.action.empty(), code.code == 0) << code.name;
    }
}

std::map<int, std::string> codes_of_catalogue(const std::string& kind) {
    std::map<int, std::string> codes;
    for (const CodeEntry& code : catalogue().codes) {
        if (code.kind == kind) {
            EXPECT_TRUE(codes.emplace(code.code, code.name).second) << "twice: " << code.name;
        }
    }
    return codes;
}

TEST(Catalogue, HasEachCodeOfTheSourceAndNoOther) {
    const auto oxd = source_codes("OstrelConnections/renewal/renewal.h", "enum : std::uint32_t", "OXD_");
    ASSERT_EQ(oxd.size(), 11U);
    EXPECT_EQ(codes_of_catalogue("OXD"), oxd);

    auto psp = source_codes("OstrelConnections/psp/psp_records.h", "enum OstrelPspIoctlStatus", "OSTREL_PSP_IOCTL_");
    ASSERT_EQ(psp.size(), 11U);
    psp[10] = source_case_texts("OstrelConnections/psp/psp_requests.cpp").at("default");
    EXPECT_EQ(codes_of_catalogue("PSP"), psp);
}

TEST(Catalogue, HasTheTextsThatClientsGetWithACode) {
    const auto texts = source_case_texts("OstrelConnections/renewal/renewal_status.cpp");
    std::ifstream file(OXR_SOURCE_DIR "/docs/cim.md");
    const std::string page(std::istreambuf_iterator<char>(file), {});
    for (const CodeEntry& code : catalogue().codes) {
        if (code.kind == "OXD" && code.code != 0) {
            EXPECT_EQ(code.text, texts.contains(code.name) ? texts.at(code.name) : texts.at("default")) << code.name;
            const std::string row = "\n| " + std::to_string(code.code) + " | " + code.text + " ";
            EXPECT_NE(page.find(row), std::string::npos) << row;
        }
    }
}

TEST(Catalogue, IsWhatTheDocumentationHas) {
    std::ifstream file(OXR_SOURCE_DIR "/docs/operations.md");
    std::ostringstream page;
    page << file.rdbuf();
    const std::string begin = "<!-- messages: made by oxrctl explain --all -->\n";
    const std::size_t from = page.str().find(begin);
    const std::size_t to = page.str().find("<!-- end of messages -->");
    ASSERT_NE(from, std::string::npos);
    ASSERT_NE(to, std::string::npos);
    EXPECT_TRUE(page.str().substr(from + begin.size(), to - from - begin.size()) == explain({{}, true, false}).text)
        << "./dev docs makes the section anew";
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
    for (const MessageEntry& entry : catalogue().messages) {
        for (const std::string& format : entry.texts) {
            EXPECT_EQ(find_message(printed(format), entry.level), &entry) << printed(format);
            EXPECT_EQ(find_message(format, entry.level), &entry) << format;
        }
    }
}

TEST(FindMessage, TakesWhatALogMakesOfAText) {
    const struct {
        const char* logged;
        const char* format;  // null: none
    } cases[] = {
        {"populate_oxr_sessions returned -1", "populate_oxr_sessions returned %d"},
        {"iscsi_get_oids returned -1", "iscsi_get_oids returned %d"},
        {"ioctl failed with errno=0xd", "ioctl failed with errno=0x%x\n"},
        {"ioctl failed with errno=0xd\n\n", "ioctl failed with errno=0x%x\n"},
        {"target  has 0 luns", "target %s has %d luns"},
        {"calling rediscover on adapter vmhba64", "calling rediscover on adapter %s "},
        {"total number of sessions removed = 3", "total number of sessions removed  = %d"},
        {"device-0=eui.1, isVvolPE=1, total_active_paths=2, total_dead_paths=0",
         "   device-%d=%s, isVvolPE=%d, total_active_paths=%d, total_dead_paths=%d"},
        {"Can not find a matching vmhba or target or session for the input. ",
         "Can not find a matching vmhba or target or session for the input. \nvmhba=%s,target=%s,session=%s"},
        {"vmhba=vmhba64,target=iqn.a,session=",
         "Can not find a matching vmhba or target or session for the input. \nvmhba=%s,target=%s,session=%s"},
        {"No such file or directory, fopen() failed on oxr.conf.", "%s, fopen() failed on oxr.conf."},
        {"Permission denied, fopen() failed", "%s, fopen() failed"},
        {"pthread_mutex_init returned 12", "pthread_mutex_init returned %d"},
        {"No sessions", nullptr},
        {"populate_oxr_sessions returned x", nullptr},
        {"", nullptr},
    };
    for (const auto& each : cases) {
        const FoundMessage found = find_format(each.logged);
        EXPECT_EQ(found ? found.format->c_str() : std::string("none"), each.format != nullptr ? each.format : "none")
            << each.logged;
    }
}

TEST(FindMessage, PrefersTheLevelThatWasLogged) {
    constexpr char text[] = "Getting session connection details for target iqn - iqn.a";
    EXPECT_EQ(find_message(text, "INFO")->level, "INFO");
    EXPECT_EQ(find_message(text, "DEBUG")->level, "DEBUG");
    EXPECT_EQ(find_message("No sessions.", "INFO")->level, "ERROR");
}

TEST(FindMessage, IsFastEnoughForALog) {
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 2000; ++i) {
        ASSERT_NE(find_message("Removing session 00:02:3d:01:00:" + std::to_string(i) +
                               " with IP : 10.0.0.1 , adapter_name : vmhba64 for iqn.2012-07.com.ostrel:vol"),
                  nullptr);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

}  // namespace

}  // namespace oxrctl
