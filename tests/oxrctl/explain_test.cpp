#include <gtest/gtest.h>

#include <sstream>

#include "oxrctl/commands.h"

namespace oxrctl {

namespace {

struct Found {
    std::vector<std::string> texts;
    std::vector<std::string> codes;  // "OXD 8"
    ExitCode exit_code;
};

Found ask(const std::vector<std::string>& words) {
    const Answer answer = explain({words, false, true});
    const Json object = Json::parse(answer.text);
    Found found{{}, {}, answer.exit_code};
    for (const Json& message : object.at("messages")) {
        for (const Json& text : message.at("texts")) {
            found.texts.push_back(text);
        }
    }
    for (const Json& code : object.at("codes")) {
        found.codes.push_back(code.at("kind").get<std::string>() + " " + std::to_string(code.at("code").get<int>()));
    }
    return found;
}

TEST(Explain, FindsCodes) {
    const struct {
        const char* asked;
        std::vector<std::string> codes;
    } cases[] = {
        {"8", {"OXD 8", "PSP 8"}},
        {" 8 ", {"OXD 8", "PSP 8"}},
        {"OXD 8", {"OXD 8"}},
        {"psp3", {"PSP 3"}},
        {"status=8", {"OXD 8", "PSP 8"}},
        {"oxd_status = 10", {"OXD 10"}},
        {"PSP status: 11", {"PSP 11"}},
        {"10", {"OXD 10", "PSP 10"}},
        {"OXD_FAILED", {"OXD 1"}},
        {"OSTREL_PSP_IOCTL_ERROR_RESCAN", {"PSP 8"}},
        {"status is ostrel_psp_ioctl_error_rescan_adapter_busy!", {"PSP 6"}},
        {"ioctl_status_unknown", {"PSP 10"}},
        {"session removal failed", {"OXD 6"}},
        {"OXD 11", {}},
        {"PSP 12", {}},
        {"99999999999999999999", {}},
    };
    for (const auto& each : cases) {
        const Found found = ask({each.asked});
        EXPECT_EQ(found.codes, each.codes) << each.asked;
        EXPECT_TRUE(found.texts.empty()) << each.asked;
        EXPECT_EQ(found.exit_code, each.codes.empty() ? EXIT_FOUND : EXIT_FINE) << each.asked;
    }
}

TEST(Explain, FindsMessages) {
    const std::string no_sessions = "No sessions.";
    const std::string rescan = "ioctl call - OSTREL_PSP_IOCTL_RESCAN failed. returned status = %s ";
    const struct {
        std::vector<std::string> asked;
        std::vector<std::string> texts;
        std::vector<std::string> codes;
    } cases[] = {
        {{"Wed May  01 08:00:02 2024: ERROR: OstrelConnections: populate_oxr_sessions:129 : No sessions."},
         {no_sessions},
         {}},
        {{"Wed", "May", "01", "08:00:02", "2024:", "ERROR:", "OstrelConnections:", "populate_oxr_sessions:129", ":",
          "No", "sessions."},
         {no_sessions},
         {}},
        {{"populate_oxr_sessions:129 : No sessions."}, {no_sessions}, {}},
        {{"No sessions."}, {no_sessions}, {}},
        {{"rescan_ioctl:34 : ioctl call - OSTREL_PSP_IOCTL_RESCAN failed. returned status = "
          "OSTREL_PSP_IOCTL_ERROR_RESCAN_ADAPTER_BUSY "},
         {rescan},
         {"PSP 6"}},
        {{"returning oxd status 8"}, {"returning oxd status %d"}, {"OXD 8"}},
        {{"Session 00:02 has status IN_LOGIN."}, {"Session %s has status %s."}, {}},
        {{"Session %s has status %s."}, {"Session %s has status %s."}, {}},
        {{R"(ioctl failed with errno=0x%x\n)"}, {"ioctl failed with errno=0x%x\n"}, {}},
        {{"credentials", "CHAP"},
         {"CHAP is set for this static target name:%s, portal_ip:%s. It is going to be deleted and credentials will "
          "be lost."},
         {}},
        {{"iqn.a:vol7 has exceeded 32 sessions"}, {"volume: target_iqn = %s has exceeded %d sessions"}, {}},
        {{"Getting session connection details for target iqn - iqn.a"},
         {"Getting session connection details for target iqn - %s",
          "Getting session connection details for target iqn - %s"},
         {}},
        {{"x:1: INFO: m: f:2 : Getting session connection details for target iqn - iqn.a"},
         {"Getting session connection details for target iqn - %s"},
         {}},
        {{"zzz"}, {}, {}},
        {{"populate_oxr_sessions:129 : "}, {}, {}},
        {{"Wed May  01 08:00:02 2024: ERROR: other: f:1 : of somebody else"}, {}, {}},
    };
    for (const auto& each : cases) {
        const Found found = ask(each.asked);
        EXPECT_EQ(found.texts, each.texts) << each.asked.front();
        EXPECT_EQ(found.codes, each.codes) << each.asked.front();
        EXPECT_EQ(found.exit_code, each.texts.empty() ? EXIT_FOUND : EXIT_FINE) << each.asked.front();
    }
}

TEST(Explain, ShowsTenEntriesAtMostAndTellsHowManyMore) {
    const Json object = Json::parse(explain({{"sessions"}, false, true}).text);
    EXPECT_EQ(object.at("messages").size(), 10U);
    const auto left_out = object.at("left_out").get<std::size_t>();
    EXPECT_GT(left_out, 10U);
    EXPECT_NE(explain({{"sessions"}, false, false}).text.find("And " + std::to_string(left_out) + " more."),
              std::string::npos);
    EXPECT_EQ(explain({{"SESSIONS"}, false, true}).text, explain({{"sessions"}, false, true}).text);
    EXPECT_EQ(Json::parse(explain({{"OstrelAssocProviderInit"}, false, true}).text).at("left_out"), 0);
}

TEST(Explain, TellsPeopleLevelMeaningAndActionInLinesOfAHundredColumns) {
    const std::string text = explain({{"No sessions."}, false, false}).text;
    EXPECT_EQ(text.substr(0, text.find('\n')), "No sessions.");
    for (const char* const label : {"\n  Level       ERROR\n", "\n  Meaning     ", "\n  What to do  "}) {
        EXPECT_NE(text.find(label), std::string::npos) << label << "in\n" << text;
    }
    std::istringstream lines(text);
    std::size_t longest = 0;
    for (std::string line; std::getline(lines, line);) {
        longest = std::max(longest, line.size());
    }
    EXPECT_LE(longest, 100U);
    EXPECT_GT(longest, 85U);
    EXPECT_EQ(explain({{"No such entry"}, false, false}).exit_code, EXIT_FOUND);
    EXPECT_NE(explain({{"No such entry"}, false, false}).text.find("\"No such entry\""), std::string::npos);
}

TEST(Explain, RefusesWhatAsksForNothingOrTwoThings) {
    for (const ExplainOptions& options :
         {ExplainOptions{}, ExplainOptions{{"", " "}, false, false}, ExplainOptions{{"8"}, true, false}}) {
        EXPECT_THROW(explain(options), Refusal);
    }
    EXPECT_EQ(explain({{}, true, false}).exit_code, EXIT_FINE);
    EXPECT_EQ(Json::parse(explain({{}, true, true}).text).at("codes").size(), 23U);
}

}  // namespace

}  // namespace oxrctl
