#include <gtest/gtest.h>

#include "oxrctl/commands.h"

namespace oxrctl {

TEST(Explain, FindsMessagesAndCodes) {
    using Words = std::vector<std::string>;
    const std::string head = "Wed May  01 08:00:02 2024: ";
    const std::string getting = "Getting session connection details for target iqn - %s";
    const std::string no_match =
        "Can not find a matching vmhba or target or session for the input. \nvmhba=%s,target=%s,session=%s";
    const struct {
        Words asked;
        Words texts;
        Words codes;
    } cases[] = {
        {{"8"}, {}, {"OXD 8", "PSP 8"}},
        {{" 8 "}, {}, {"OXD 8", "PSP 8"}},
        {{"OXD 8"}, {}, {"OXD 8"}},
        {{"psp3"}, {}, {"PSP 3"}},
        {{"status=8"}, {}, {"OXD 8", "PSP 8"}},
        {{"oxd_status = 10"}, {}, {"OXD 10"}},
        {{"PSP status: 11"}, {}, {"PSP 11"}},
        {{"OXD_FAILED"}, {}, {"OXD 1"}},
        {{"OSTREL_PSP_IOCTL_ERROR_RESCAN"}, {}, {"PSP 8"}},
        {{"status is ostrel_psp_ioctl_error_rescan_adapter_busy!"}, {}, {"PSP 6"}},
        {{"session removal failed"}, {}, {"OXD 6"}},
        {{"OXD 11"}, {}, {}},
        {{"99999999999999999999"}, {}, {}},
        {{head + "ERROR: OstrelConnections: populate_oxr_sessions:129 : No sessions."}, {"No sessions."}, {}},
        {{"Wed", "May", "ERROR:", "m:", "populate_oxr_sessions:129", ":", "No", "sessions."}, {"No sessions."}, {}},
        {{"populate_oxr_sessions:129 : No sessions."}, {"No sessions."}, {}},
        {{"rescan_ioctl:34 : ioctl call - OSTREL_PSP_IOCTL_RESCAN failed. returned status = "
          "OSTREL_PSP_IOCTL_ERROR_RESCAN_ADAPTER_BUSY "},
         {"ioctl call - OSTREL_PSP_IOCTL_RESCAN failed. returned status = %s "},
         {"PSP 6"}},
        {{"returning oxd status 8"}, {"returning oxd status %d"}, {"OXD 8"}},
        {{"Session %s has status %s."}, {"Session %s has status %s."}, {}},
        {{R"(ioctl failed with errno=0x%x\n)"}, {"ioctl failed with errno=0x%x\n"}, {}},
        {{"credentials", "CHAP"},
         {"CHAP is set for this static target name:%s, portal_ip:%s. It is going to be deleted and credentials will "
          "be lost."},
         {}},
        {{"iqn.a:vol7 has exceeded 32 sessions"}, {"volume: target_iqn = %s has exceeded %d sessions"}, {}},
        {{"Getting session connection details for target iqn - iqn.a"}, {getting, getting}, {}},
        {{"x:1: INFO: m: f:2 : Getting session connection details for target iqn - iqn.a"}, {getting}, {}},
        {{"ioctl failed with errno=0xd\n\n"}, {"ioctl failed with errno=0x%x\n"}, {}},
        {{"target  has 0 luns"}, {"target %s has %d luns"}, {}},
        {{"calling rediscover on adapter vmhba64"}, {"calling rediscover on adapter %s "}, {}},
        {{"vmhba=vmhba64,target=iqn.a,session="}, {no_match}, {}},
        {{"No such file or directory, fopen() failed on oxr.conf."}, {"%s, fopen() failed on oxr.conf."}, {}},
        {{"Permission denied, fopen() failed"}, {"%s, fopen() failed"}, {}},
        {{"  3 x ERROR OstrelConnections: populate_oxr_sessions, last at 2024-05-01 08:00:02\n      No sessions.\n     "
          " -> "
          "Look."},
         {"No sessions."},
         {}},
        {{"3 x ERROR m: f, last at 2024-05-01 08:00:02 No sessions."}, {"No sessions."}, {}},
        {{"      No sessions."}, {"No sessions."}, {}},
        {{"    log ERROR populate_oxr_sessions: No sessions. (and 2 alike)"}, {"No sessions."}, {}},
        {{"warning  2 errors since the last good pass, such as \"No sessions.\""}, {"No sessions."}, {}},
        {{"1 x ERROR m: f, last at Wed\n      Can not find a matching vmhba or target or session for the input. "
          "\\x0avmhba=a,target=b,session=c"},
         {no_match},
         {}},
        {{"zzz"}, {}, {}},
        {{"populate_oxr_sessions:129 : "}, {}, {}},
        {{head + "ERROR: other: f:1 : of somebody else"}, {}, {}},
    };
    for (const auto& each : cases) {
        const Answer answer = explain({each.asked, false, true});
        const Json object = Json::parse(answer.text);
        Words texts, codes;
        for (const Json& message : object["messages"]) {
            texts.insert(texts.end(), message["texts"].begin(), message["texts"].end());
        }
        for (const Json& code : object["codes"]) {
            codes.push_back(code["kind"].get<std::string>() + " " + code["code"].dump());
        }
        EXPECT_EQ(texts, each.texts) << each.asked.front();
        EXPECT_EQ(codes, each.codes) << each.asked.front();
        EXPECT_TRUE(object["reasons"].empty()) << each.asked.front();
        EXPECT_EQ(answer.exit_code, texts.empty() && codes.empty() ? EXIT_FOUND : EXIT_FINE) << each.asked.front();
    }
    EXPECT_EQ(Json::parse(explain({{"sessions"}, false, true}).text)["messages"].size(), 10U);
}

}  // namespace oxrctl
