// What oxrctl reads out of a log is what happened on the host.
#include <gtest/gtest.h>

#include <filesystem>

#include "oxrctl/commands.h"
#include "oxrctl/log_lines.h"
#include "oxrctl/log_story.h"
#include "support/service_test.h"
#include "support/site.h"

using namespace oxrctl;
using namespace testing_support;

namespace {

constexpr char LOG[] = "/var/log/ostrel/oxr.log";

// A message of the connection manager's.
std::string line(const std::string& level, const std::string& function, const std::string& text) {
    return "Wed May  01 08:00:02 2024: " + level + ": OstrelConnections: " + function + ":7 : " + text + "\n";
}

std::string cycle_begins(int worker_stop = 0) {
    return line("INFO", "do_work",
                "interval = 120, vol_sessions = 0, min_vol_sessions = 2, max_vol_sessions = 8 worker_stop = " +
                    std::to_string(worker_stop) +
                    " log_level = 1 vmknic_count = 0, min_pe_sessions = 4, max_pe_sessions = 32, use_ostrel_timeouts "
                    "= 1, logs_path = /var/log/ostrel.");
}

std::string pass_begins() {
    return cycle_begins() + line("INFO", "handle_ostrel_connections", "found 1 Ostrel volumes, total_vol_paths = 4");
}

std::string pass_ends() {
    return line("INFO", "do_work", "About to sleep for interval = 120 seconds");
}

Story story_of(const std::string& text) {
    return read_story({{"oxr.log", text, ""}});
}

class StatusTest : public ServiceTest {
protected:
    Story story() { return read_story(read_log_files(host->path(LOG))); }
};

}  // namespace

TEST(Status, SeesTheWorkerAndARenewal) {
    const std::string pass = pass_begins() + pass_ends();
    const std::string bad = pass_begins() + line("ERROR", "populate_oxr_sessions", "No sessions.") + pass_ends();
    const std::string renewal = line("INFO", "OstrelHandleRenewIscsiConnections", "target array size is 1");
    const std::string renewed = line("INFO", "OstrelHandleRenewIscsiConnections", "returning oxd status 6");
    const struct {
        std::string text;
        Story::Worker worker;
        int passes;
        std::size_t troubles;
        bool renewal = false;
    } cases[] = {
        {"", Story::Worker::unknown, 0, 0},
        {pass, Story::Worker::sleeping, 1, 0},
        {bad, Story::Worker::sleeping, 1, 1},
        {bad + bad, Story::Worker::sleeping, 2, 1},
        {bad + pass, Story::Worker::sleeping, 2, 0},
        {pass + bad + cycle_begins(1) + line("INFO", "do_work", "worker_stop = 1 continue to sleep.") + pass_ends(),
         Story::Worker::held_off, 2, 1},
        {pass + pass_begins(), Story::Worker::in_pass, 1, 0},
        {pass_begins() + line("INFO", "sigusr1_handler", "Polling thread exiting. Thread id = -77"),
         Story::Worker::stopped, 0, 0},
        {pass_begins() + pass, Story::Worker::sleeping, 1, 0},
        {pass + renewal, Story::Worker::sleeping, 1, 0, true},
        {pass + renewal + renewed, Story::Worker::sleeping, 1, 0},
        {"of a line: that was cut off\n" + pass + "\n" + pass_begins().substr(0, 60), Story::Worker::sleeping, 1, 0},
    };
    for (const auto& c : cases) {
        const Story story = story_of(c.text);
        EXPECT_EQ(story.worker, c.worker) << c.text;
        EXPECT_EQ(story.passes, c.passes) << c.text;
        EXPECT_EQ(story.trouble.size(), c.troubles) << c.text;
        EXPECT_EQ(story.renewal_under_way, c.renewal) << c.text;
    }
    EXPECT_EQ(story_of(renewal + renewed).last_renewal_status, 6);
    EXPECT_EQ(story_of(pass).last_pass, "2024-05-01 08:00:02");
}

// Every rule fits what the library really logs.
TEST_F(StatusTest, KnowsTheTargetsOfAHost) {
    host->add_adapter("vmhba64", {"10.0.1.1", "10.0.1.2"});
    host->add_group(
        {"g", simhost::GroupMode::dynamic_discovery, "10.0.9.1", {{"a1", {"10.0.9.101"}}, {"a2", {"10.0.9.102"}}}});
    host->add_group({"s", simhost::GroupMode::static_discovery, "10.0.8.1", {{"b1", {"10.0.8.101"}}}});
    host->add_group_scoped_target({"iqn.pe", "g", {"a1"}, {}});
    for (const char* const name : {"grows", "shrinks", "behind", "manual"}) {
        simhost::VolumeSpec volume;
        volume.eui = name;
        volume.group = volume.eui == "manual" ? "s" : "g";
        volume.group_scoped_target = volume.eui == "behind" ? "iqn.pe" : "";
        host->add_volume(volume);
    }
    host->connect(host->iqn_of("grows"), 2);
    host->connect(host->iqn_of("shrinks"), 7);
    host->connect("iqn.pe", 2);
    host->claim_paths();
    start();
    run_to(200);
    const Story story = this->story();
    EXPECT_EQ(story.worker, Story::Worker::sleeping);
    EXPECT_EQ(story.passes, 2);
    EXPECT_EQ(story.volumes, 4);
    std::map<std::string, TargetStory> targets;
    for (const TargetStory& target : story.targets) {
        targets[target.iqn] = target;
    }
    ASSERT_EQ(targets.size(), 4U);
    for (const char* const name : {"grows", "shrinks"}) {
        const TargetStory& target = targets[host->iqn_of(name)];
        EXPECT_EQ(target.devices, Lines{name});
        EXPECT_EQ(target.required, 4);
        EXPECT_EQ(target.paths, count_dynamic(*host, target.iqn));
        EXPECT_EQ(target.nics, 2);
        EXPECT_EQ(target.arrays, 2);
    }
    EXPECT_TRUE(targets["iqn.pe"].group_scoped);
    EXPECT_EQ(targets["iqn.pe"].devices, Lines{"behind"});
    EXPECT_EQ(targets["iqn.pe"].required, count_dynamic(*host, "iqn.pe"));
    EXPECT_TRUE(targets[host->iqn_of("manual")].static_mode);
    std::map<std::string, int> net;
    for (const ChangeStory& change : story.changes) {
        net[change.target] += change.added - change.removed;
    }
    EXPECT_EQ(net[host->iqn_of("grows")], count_sessions(*host, host->iqn_of("grows")) - 2);
    EXPECT_EQ(net[host->iqn_of("shrinks")], count_sessions(*host, host->iqn_of("shrinks")) - 7);
    EXPECT_EQ(net["iqn.pe"], count_sessions(*host, "iqn.pe") - 2);
    EXPECT_EQ(story.values.front(), (std::pair<std::string, std::string>("interval", "120")));
}

TEST_F(StatusTest, CountsWhatCameAboutNotWhatWasWanted) {
    host->add_adapter("vmhba64", {"10.0.1.1", "10.0.1.2"});
    host->add_group(
        {"g", simhost::GroupMode::dynamic_discovery, "10.0.9.1", {{"a1", {"10.0.9.101"}}, {"a2", {"10.0.9.102"}}}});
    simhost::VolumeSpec volume;
    volume.eui = "v";
    volume.group = "g";
    host->add_volume(volume);
    host->connect(host->iqn_of("v"), 2);
    host->claim_paths();
    host->fail(failing("IMA_VMW_AddSession", 2));
    start();
    run_to(60);
    const Story story = this->story();
    ASSERT_EQ(story.changes.size(), 1U);
    EXPECT_EQ(story.changes[0].added, count_sessions(*host, host->iqn_of("v")) - 2);
    EXPECT_FALSE(story.trouble.empty());
    EXPECT_EQ(story.last_good_pass, "");
}

TEST_F(StatusTest, ReadsOlderFilesFirst) {
    host->write_file("/var/log/ostrel/oxr.log.2", pass_begins());
    host->write_file("/var/log/ostrel/oxr.log.1", pass_ends() + pass_begins());
    host->write_file(LOG, pass_ends());
    EXPECT_EQ(story().passes, 2);
    // One that can't be read keeps none of the others back.
    std::filesystem::create_directory(host->path("/var/log/ostrel/oxr.log.3"));
    EXPECT_EQ(story().passes, 2);
    StatusOptions options;
    options.log = host->path(LOG);
    EXPECT_NE(status(options).text.find("oxr.log.3: not a regular file"), std::string::npos);
}

TEST_F(StatusTest, ExitCodesAreThoseOfTheHelp) {
    StatusOptions options;
    options.log = host->path(LOG);
    const auto code = [&](const std::string& text) {
        host->write_file(LOG, text);
        try {
            return status(options).exit_code;
        } catch (const Refusal& refusal) {
            return refusal.exit_code;
        }
    };
    const std::string pass = pass_begins() + pass_ends();
    EXPECT_EQ(code(pass), EXIT_FINE);
    EXPECT_EQ(code(pass + line("WARN", "x", "y")), EXIT_FOUND);
    EXPECT_EQ(code(""), EXIT_FOUND);
    EXPECT_EQ(code("no log at all\n"), EXIT_UNUSABLE);
    EXPECT_EQ(code(std::string(5000, '\0')), EXIT_UNUSABLE);
    options.json = true;
    EXPECT_EQ(code(pass + std::string("\xff\xfe\n") + line("ERROR", "x", "\xff")), EXIT_FOUND);
    options.log = host->path("/var/log/ostrel/none");
    EXPECT_EQ(code(""), EXIT_UNUSABLE);
}
