#include <fmt/format.h>

#include <algorithm>

#include "common/file_reader.h"
#include "common/log_place.h"
#include "configuration/logs_path_rule.h"
#include "oxrctl/commands.h"
#include "oxrctl/status_story.h"
#include "oxrctl/text.h"

namespace oxrctl {

namespace {

// The log of this host: where its configuration says.
std::string own_log() {
    oxr::FileReader config("/etc/ostrel/oxr.conf");
    char configured[256];
    read_logs_path(config, configured);
    return std::string(is_usable_logs_path(configured) ? configured : DEFAULT_LOG_DIR) + "/oxr.log";
}

// A version file of this host; the log doesn't tell the versions.
std::string version_in(const char* file) {
    oxr::FileReader reader(file);
    std::string_view line;
    return reader.next_line(line) ? printable(line.substr(0, line.find_first_of("\r\n"))) : "";
}

bool is_fine(const Story& story) {
    const bool some_short = std::any_of(story.targets.begin(), story.targets.end(),
                                        [](const TargetStory& target) { return target.cut_short; });
    return !some_short && !story.last_pass.empty() && story.trouble.empty() &&
           story.worker != Story::Worker::held_off && story.worker != Story::Worker::stopped;
}

}  // namespace

Answer status(const StatusOptions& options) {
    const std::string log = options.log.value_or(own_log());
    const std::vector<LogFile> files = read_log_files(log);
    const Story story = read_story(files);
    if (story.messages == 0 && story.unreadable_lines > 0) {
        throw Refusal(fmt::format("{}: no line of it is a message of the connection manager", log));
    }
    Versions versions;
    if (!options.log) {
        versions = {version_in("/etc/ostrel/oxdversion.txt"), version_in("/etc/ostrel/pspversion.txt")};
    }
    return {options.json ? json_text(story_json(files, story, versions)) : story_text(files, story, versions),
            is_fine(story) ? EXIT_FINE : EXIT_FOUND};
}

}  // namespace oxrctl
