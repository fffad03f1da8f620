// States of a host as its log tells them, and how they are judged.
#include <gtest/gtest.h>

#include <cstdarg>
#include <optional>
#include <set>

#include "oxrctl/catalogue.h"
#include "oxrctl/status/health.h"
#include "oxrctl/story.h"

using namespace oxrctl;

namespace {

// Builds a log: cycles of two minutes from 08:00:00 on.
class LogText {
public:
    LogText& say(const std::string& level, const std::string& function, const std::string& text) {
        char time[40];
        (void)std::snprintf(time, sizeof time, "Wed May  01 %02d:%02d:%02d 2024", 8 + seconds_ / 3600,
                            seconds_ / 60 % 60, seconds_ % 60);
        text_ += std::string(time) + ": " + level + ": OstrelConnections: " + function + ":7 : " + text + "\n";
        return *this;
    }
    // A message of the catalogue, by its name.
    LogText& named(const std::string& function, const char* name, ...) {
        char text[400];
        va_list arguments;
        va_start(arguments, name);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        (void)std::vsnprintf(text, sizeof text, catalogue().named.at(name).c_str(), arguments);
#pragma GCC diagnostic pop
        va_end(arguments);
        const bool is_error = std::string(name).ends_with("_less") || std::string(name).ends_with("_none") ||
                              std::string(name).ends_with("_remove");
        return say(is_error ? "ERROR" : "INFO", function, text);
    }
    LogText& begin(int volumes, int paths) {
        named("do_work", "values", 120, 0, 2, 8, 0, 1, 0, 4, 32, 1, "/var/log/ostrel");
        return named("handle_ostrel_connections", "pass_begins", volumes, paths);
    }
    LogText& end() {
        seconds_ += 3;
        named("do_work", "sleeping", 120);
        seconds_ += 120;
        return *this;
    }
    LogText& volume(const char* name, int required, int paths, const char* target = "iqn.v") {
        return named("handle_ostrel_connections", "volume", 0, name, target, 2, 2, 1, 0, 0, paths, required);
    }
    LogText& pe(int required, int paths, int dead = 0) {
        named("handle_ostrel_connections", "volume_behind_target", 0, "behind", "iqn.pe", 1, paths);
        named("handle_group_scoped_target_connections", "group_scoped_target", 0, "iqn.pe", 1, 0, 1, 1, paths, dead);
        return named("handle_group_scoped_target_connections", "required_of_target", 2, 2, 2, required);
    }
    LogText& counts(int required, int total, int pending = 0) {
        return named("handle_num_sessions", "sessions_of_target", required, total - pending, total, pending);
    }
    LogText& adds(int number, const char* target = "iqn.v") {
        return named("handle_num_sessions", "adding", number, target);
    }
    LogText& removes(int number, const char* target = "iqn.v") {
        return named("handle_num_sessions", "removing", number, target);
    }
    LogText& fewer() {
        return begin(1, 2).volume("v", 4, 2).counts(4, 2);
    }
    LogText& well() {
        return begin(1, 4).volume("v", 4, 4).end();
    }
    LogText& trouble() {
        return say("ERROR", "populate_oxr_sessions", "No sessions.");
    }
    template <typename Do>
    LogText& times(int number, const Do& act) {
        for (int i = 0; i < number; ++i) {
            act(*this, i);
        }
        return *this;
    }
    std::string text() const {
        return text_;
    }
    int seconds() const {
        return seconds_;
    }

private:
    std::string text_;
    int seconds_ = 0;
};

LogText log() {
    return {};
}

}  // namespace

TEST(Health, IsAsAPersonWouldJudge) {
    const auto turn = [](LogText& text, int i) {
        if (i % 2 == 0) {
            text.begin(2, 8).volume("a", 4, 4).volume("b", 6, 4).counts(6, 4).adds(2).end();
        } else {
            text.begin(2, 12).volume("a", 4, 6).counts(4, 6).removes(2).volume("b", 6, 6).end();
        }
    };
    const auto logging_in = [](LogText& text, int) { text.begin(1, 3).volume("v", 4, 3).counts(4, 4, 1).end(); };
    const struct {
        const char* state;
        LogText log;
        Health health;
        const char* reasons;
        std::optional<int> silent_seconds{};  // since the last message; none: age isn't judged
    } cases[] = {
        {"all is well", log().well().well(), Health::well, ""},
        {"asleep in its interval", log().well().well(), Health::well, "", 180},
        {"a pass takes twice the longest", log().well().well(), Health::well, "", 186},
        {"longer than that", log().well().well(), Health::critical, "silent", 187},
        {"dead for three years", log().well(), Health::critical, "silent", 94608000},
        {"stuck in a pass", log().well().begin(1, 4), Health::critical, "silent", 3600},
        {"in a pass", log().well().begin(1, 4), Health::well, "", 5},
        {"a clock that is ahead", log().well(), Health::unknown, "clock", -600},
        {"a volume that the log doesn't name",
         log()
             .well()
             .begin(1, 0)
             .say("ERROR", "handle_ostrel_connections", "get_num_nic returned number of NICs = 0")
             .end(),
         Health::critical, "no_path trouble"},
        {"in a pass that hasn't added yet", log().well().begin(1, 2).volume("v", 4, 2), Health::well, ""},
        {"stopped", log().well().named("sigusr1_handler", "stopped", 7L), Health::critical, "stopped"},
        {"stopped and begun again", log().well().named("sigusr1_handler", "stopped", 7L).well(), Health::well, ""},
        {"nothing logged", log(), Health::unknown, "no_messages"},
        {"just begun", log().begin(1, 4), Health::unknown, "no_pass"},
        {"held off", log().well().begin(1, 4).named("do_work", "held_off", 1).end(), Health::warning, "held_off"},
        {"held off from the start", log().named("do_work", "held_off", 1), Health::warning, "held_off"},
        {"held off, with a bad pass before", log().begin(1, 4).trouble().end().named("do_work", "held_off", 1),
         Health::warning, "held_off trouble"},
        {"a renewal runs", log().well().named("do_work", "held_off_by_renewal").end(), Health::well, ""},
        {"a renewal doesn't end",
         log().well().times(10, [](LogText& text, int) { text.named("do_work", "held_off_by_renewal").end(); }),
         Health::warning, "long_renewal"},
        {"a volume without a path", log().begin(1, 0).volume("v", 4, 0).counts(4, 4).end(), Health::critical,
         "no_path"},
        {"a target without a path", log().begin(1, 0).pe(4, 0).counts(4, 4).end(), Health::critical, "no_path"},
        {"a single path", log().begin(1, 1).volume("v", 4, 1).counts(4, 4).end(), Health::warning, "one_path"},
        {"a single path is all that is required", log().begin(1, 1).volume("v", 1, 1).end(), Health::well, ""},
        {"fewer sessions, all added", log().well().fewer().adds(2).end(), Health::well, ""},
        {"fewer sessions, none added", log().well().fewer().end(), Health::warning, "short"},
        {"fewer added than wanted", log().fewer().adds(2).named("handle_num_sessions", "added_less", 1, 2).end(),
         Health::warning, "short trouble"},
        {"cut short", log().fewer().named("handle_num_sessions", "cut_short", 2040, 0, 2).end(), Health::warning,
         "cut_short"},
        {"not read",
         log().begin(1, 2).volume("v", 4, 2).named("handle_ostrel_connections", "volume_not_read", -1).end(),
         Health::warning, "unread short"},
        {"too many paths", log().begin(1, 2048).named("handle_ostrel_connections", "path_limit", 2048, 2048).end(),
         Health::warning, "path_limit"},
        {"logging in for two passes", log().times(2, logging_in), Health::well, ""},
        {"logging in for three", log().times(3, logging_in), Health::warning, "logging_in"},
        {"logging in, then well", log().times(3, logging_in).well(), Health::well, ""},
        {"three turns", log().times(4, turn), Health::warning, "short flapping"},
        {"two turns", log().times(3, turn), Health::well, ""},
        {"turns that ended", log().times(5, turn).well().well().well(), Health::well, ""},
        {"a surplus in use",
         log()
             .well()
             .begin(1, 9)
             .pe(4, 9)
             .counts(4, 9)
             .removes(5, "iqn.pe")
             .named("remove_isid_sessions", "cannot_remove")
             .named("handle_num_sessions", "removed_less", 0, 5)
             .end(),
         Health::well, ""},
        {"a surplus that the host keeps",
         log()
             .begin(1, 9)
             .pe(4, 9)
             .counts(4, 9)
             .removes(5, "iqn.pe")
             .say("ERROR", "remove_isid_sessions", "removing session failed.")
             .named("handle_num_sessions", "removed_less", 4, 5)
             .end(),
         Health::warning, "trouble"},
        {"a surplus of a volume",
         log()
             .begin(1, 9)
             .volume("v", 4, 9)
             .counts(4, 9)
             .removes(5)
             .named("remove_isid_sessions", "cannot_remove")
             .named("handle_num_sessions", "removed_less", 0, 5)
             .end(),
         Health::warning, "trouble"},
        {"an error, then well", log().begin(1, 4).trouble().end().well(), Health::well, ""},
        {"well, then an error", log().well().begin(1, 4).trouble().end(), Health::warning, "trouble"},
        {"a failed pass",
         log().well().begin(1, 4).end().say("ERROR", "handle_ostrel_connections", "populate_Oxr_Luns returned rc = -1"),
         Health::warning, "trouble"},
        {"worst first", log().begin(1, 0).volume("v", 4, 0).counts(4, 2).trouble().end(), Health::critical,
         "no_path short trouble", 60},
    };
    std::set<std::string> seen = {"not_read"};  // of a log that can't be opened
    for (const auto& c : cases) {
        const Story story = story_of(c.log.text());
        Clock clock;
        if (c.silent_seconds) {
            clock = {story.last.time + *c.silent_seconds, oldest_age_of(story)};
        }
        const Judgement judgement = judge(story, clock);
        std::string reasons;
        for (const Reason& reason : judgement.reasons) {
            reasons += (reasons.empty() ? "" : " ") + reason.name;
        }
        for (const Reason& reason : judgement.reasons) {
            seen.insert(reason.name);
            const auto explained = find_reasons("warning  " + reason.text + " (and 2 other reasons)");
            EXPECT_TRUE(explained.size() == 1 && explained.front()->name == reason.name) << reason.text;
        }
        EXPECT_EQ(health_word(judgement.health), health_word(c.health)) << c.state;
        EXPECT_EQ(reasons, c.reasons) << c.state << "\n" << c.log.text();
    }
    for (const ReasonEntry& reason : catalogue().reasons) {
        EXPECT_TRUE(seen.contains(reason.name)) << reason.name << " is found in no state";
    }
    const Story flapping = story_of(log().times(5, turn).text());
    EXPECT_EQ(judge(flapping, {}).reasons.front().text, "sessions added and removed by turns: a and b (iqn.v)");
    EXPECT_EQ(story_of(log()
                           .begin(1, 9)
                           .pe(4, 9, 3)
                           .counts(4, 9)
                           .removes(5, "iqn.pe")
                           .named("handle_num_sessions", "removed_less", 0, 5)
                           .end()
                           .text())
                  .targets.front()
                  .in_use,
              5);
}

TEST(StoryReader, SeesPassesAndRenewalsInAnyPieceOfALog) {
    const std::string piece =
        "of a line: that was cut off\n" + log().begin(1, 4).well().text() + "\n" + log().well().text().substr(0, 60);
    EXPECT_EQ(story_of(piece).passes, 1);
    EXPECT_EQ(story_of(piece).last_pass, "2024-05-01 08:00:00");
    EXPECT_EQ(story_of(piece).unreadable_lines, 2U);
    LogText renewal = log().well().named("OstrelHandleRenewIscsiConnections", "renewal_begins", 1);
    EXPECT_TRUE(story_of(renewal.text()).renewal_under_way);
    renewal.named("OstrelHandleRenewIscsiConnections", "renewal_ends", 6);
    EXPECT_FALSE(story_of(renewal.text()).renewal_under_way);
    EXPECT_EQ(story_of(renewal.text()).last_renewal_status, 6);
    // What is announced counts when its cycle has ended.
    LogText adding = log().well().fewer().adds(2);
    EXPECT_EQ(story_of(adding.text()).totals.added, 0);
    adding.named("handle_num_sessions", "added_less", 1, 2).end();
    EXPECT_EQ(story_of(adding.text()).totals.added, 1);
    const auto hold_off = [](LogText& text, int) { text.begin(1, 4).named("do_work", "held_off", 1).end(); };
    EXPECT_EQ(story_of(log().times(3, hold_off).text()).worker_since, "2024-05-01 08:00:00");
}
