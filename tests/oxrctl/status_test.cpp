// What oxrctl reads out of a log is what happened on the host.
#include <filesystem>

#include "oxrctl/commands.h"
#include "oxrctl/status/log_files.h"
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

const std::string BEGIN = line("INFO", "handle_ostrel_connections", "found 1 Ostrel volumes, total_vol_paths = 4");
const std::string END = line("INFO", "do_work", "About to sleep for interval = 120 seconds");

class StatusTest : public ServiceTest {
protected:
    // Two NICs, two arrays; what the service's log tells after so many seconds.
    void describe() {
        host->add_adapter("vmhba64", {"10.0.1.1", "10.0.1.2"});
        host->add_group(
            {"g", simhost::GroupMode::dynamic_discovery, "10.0.9.1", {{"a1", {"10.0.9.101"}}, {"a2", {"10.0.9.102"}}}});
    }
    std::string add(const std::string& name, const std::string& group, int sessions, const std::string& behind = "") {
        simhost::VolumeSpec volume;
        volume.eui = name;
        volume.group = group;
        volume.group_scoped_target = behind;
        host->add_volume(volume);
        if (sessions > 0) {
            host->connect(host->iqn_of(name), sessions);
        }
        return host->iqn_of(name);
    }
    Story story_after(int seconds) {
        host->claim_paths();
        start();
        run_to(seconds);
        return read_log(host->path(LOG)).story;
    }
};

}  // namespace

// Every rule fits what the library really logs.
TEST_F(StatusTest, KnowsTheTargetsOfAHost) {
    describe();
    host->add_group({"s", simhost::GroupMode::static_discovery, "10.0.8.1", {{"b1", {"10.0.8.101"}}}});
    host->add_group_scoped_target({"iqn.pe", "g", {"a1"}, {}});
    const std::string grows = add("grows", "g", 2);
    const std::string shrinks = add("shrinks", "g", 7);
    add("behind", "g", 2, "iqn.pe");
    const std::string manual = add("manual", "s", 0);
    const Story story = story_after(200);
    EXPECT_EQ(story.worker, Story::Worker::sleeping);
    EXPECT_EQ(story.passes, 2);
    EXPECT_EQ(story.volumes, 4);
    EXPECT_EQ(story.values.front(), (std::pair<std::string, std::string>("interval", "120")));
    EXPECT_EQ(story.values.back(), (std::pair<std::string, std::string>("ostrel_logs_path", "/var/log/ostrel")));
    std::map<std::string, TargetStory> targets;
    for (const TargetStory& target : story.targets) {
        targets[target.iqn] = target;
    }
    ASSERT_EQ(targets.size(), 4U);
    for (const std::string& iqn : {grows, shrinks}) {
        EXPECT_EQ(targets[iqn].required, 4);
        EXPECT_EQ(targets[iqn].paths, count_dynamic(*host, iqn));
        EXPECT_EQ(targets[iqn].nics, 2);
        EXPECT_EQ(targets[iqn].arrays, 2);
    }
    EXPECT_TRUE(targets["iqn.pe"].group_scoped);
    EXPECT_EQ(targets["iqn.pe"].devices, Lines{"behind"});
    EXPECT_EQ(targets["iqn.pe"].required, count_dynamic(*host, "iqn.pe"));
    EXPECT_TRUE(targets[manual].static_mode);
    std::map<std::string, int> net = {{grows, 2}, {shrinks, 7}, {"iqn.pe", 2}};
    for (const ChangeStory& change : story.changes) {
        net[change.target] += change.added - change.removed;
    }
    for (const auto& [iqn, sessions] : net) {
        EXPECT_EQ(sessions, count_sessions(*host, iqn)) << iqn;
    }
}

TEST_F(StatusTest, CountsWhatCameAboutNotWhatWasWanted) {
    describe();
    const std::string iqn = add("v", "g", 2);
    host->fail(failing("IMA_VMW_AddSession", 2));
    const Story story = story_after(60);
    ASSERT_EQ(story.changes.size(), 1U);
    EXPECT_EQ(story.changes[0].added, count_sessions(*host, iqn) - 2);
    EXPECT_FALSE(story.trouble.empty());
    EXPECT_EQ(story.last_good_pass, "");
}

TEST_F(StatusTest, ReadsOlderFilesFirst) {
    host->write_file("/var/log/ostrel/oxr.log.2", BEGIN);
    host->write_file("/var/log/ostrel/oxr.log.1", END + BEGIN);
    host->write_file(LOG, END);
    // One that can't be read keeps none of the others back.
    std::filesystem::create_directory(host->path("/var/log/ostrel/oxr.log.3"));
    EXPECT_EQ(read_log(host->path(LOG)).story.passes, 2);
    EXPECT_NE(status({.logs = {host->path(LOG)}}).text.find("oxr.log.3: not a regular file"), std::string::npos);
}
