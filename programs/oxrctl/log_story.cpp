#include "oxrctl/log_story.h"

#include <algorithm>
#include <charconv>

#include "configuration/config_keys.h"
#include "oxrctl/catalogue.h"
#include "oxrctl/message_format.h"
#include "shared/log_line.h"

namespace oxrctl {

namespace {

using Arguments = std::vector<std::string_view>;
using shared::LogLine;

int number(std::string_view text) {
    int value = TargetStory::unknown;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

// Takes messages in their order and keeps what they add up to.
class Reader {
public:
    void take(const LogLine& line);
    Story finish();

private:
    struct Rule {
        std::string_view function;
        const char* message;  // its name in the catalogue
        void (Reader::*meaning)(const LogLine&, const Arguments&);
    };
    static const Rule rules[];

    // --- the worker ---
    void values(const LogLine& line, const Arguments& arguments);
    void held_off(const LogLine& line, const Arguments&) { worker(Story::Worker::held_off, line); }
    void held_off_by_renewal(const LogLine& line, const Arguments&) {
        worker(Story::Worker::held_off_by_renewal, line);
    }
    void sleeping(const LogLine& line, const Arguments&);
    void stopped(const LogLine& line, const Arguments&) { leave_pass(), worker(Story::Worker::stopped, line); }
    void worker(Story::Worker state, const LogLine& line) {
        story_.worker = state;
        story_.worker_since = plain_time(line.time);
    }

    // --- a pass ---
    void pass_begins(const LogLine& line, const Arguments& arguments);
    void pass_failed(const LogLine& line, const Arguments& arguments);
    void leave_pass();
    void path_limit(const LogLine&, const Arguments&) { story_.path_limit = true; }
    void host_sessions(const LogLine&, const Arguments& arguments) { story_.sessions = number(arguments[0]); }

    // --- its targets ---
    TargetStory& story_of(std::string_view key, std::string_view iqn);
    TargetStory& target_in_hand() { return targets_[in_hand_]; }
    void change(const LogLine& line, std::string_view iqn, int added, int removed);
    void volume(const LogLine&, const Arguments& arguments);
    void volume_behind_target(const LogLine&, const Arguments& arguments);
    void static_volume(const LogLine&, const Arguments& arguments);
    void group_scoped_target(const LogLine&, const Arguments& arguments);
    void static_group_scoped_target(const LogLine&, const Arguments& arguments);
    void required_of_target(const LogLine&, const Arguments& arguments);
    void sessions_of_target(const LogLine&, const Arguments& arguments);
    void cut_short(const LogLine&, const Arguments&);
    void adding(const LogLine& line, const Arguments& arguments);
    void added_less(const LogLine&, const Arguments& arguments) { correct(number(arguments[0]), true); }
    void added_none(const LogLine&, const Arguments&) { correct(0, true); }
    void removing(const LogLine& line, const Arguments& arguments);
    void removed_less(const LogLine&, const Arguments& arguments) { correct(number(arguments[0]), false); }
    void removed_none(const LogLine&, const Arguments&) { correct(0, false); }
    void removed_for_switch(const LogLine& line, const Arguments& arguments) { change(line, arguments[1], 0, 1); }
    void not_read(const LogLine&, const Arguments&) { target_in_hand().unread = true; }
    void correct(int done, bool adding);

    // --- renewals ---
    void renewal_begins(const LogLine& line, const Arguments&);
    void renewal_target(const LogLine&, const Arguments& arguments) { story_.renewal_target = arguments[0]; }
    void renewal_ends(const LogLine& line, const Arguments& arguments);

    void note_trouble(const LogLine& line);

    Story story_;
    std::map<std::string, TargetStory, std::less<>> targets_;
    std::string in_hand_;  // the target that the following messages are about
    Arguments arguments_;
    bool in_pass_ = false;
    bool troubled_ = false;  // a warning or an error since the last cycle
    int pass_ = 0;
    std::string pass_began_;
    std::map<std::pair<std::string, int>, TroubleStory> trouble_;
};

// The messages that the story is read from.
const Reader::Rule Reader::rules[] = {
    {"do_work", "values", &Reader::values},
    {"do_work", "held_off", &Reader::held_off},
    {"do_work", "held_off_by_renewal", &Reader::held_off_by_renewal},
    {"do_work", "sleeping", &Reader::sleeping},
    {"sigusr1_handler", "stopped", &Reader::stopped},

    {"handle_ostrel_connections", "pass_begins", &Reader::pass_begins},
    {"handle_ostrel_connections", "pass_failed", &Reader::pass_failed},
    {"handle_ostrel_connections", "path_limit", &Reader::path_limit},
    {"get_all_system_sessions", "host_sessions", &Reader::host_sessions},

    {"handle_ostrel_connections", "volume", &Reader::volume},
    {"handle_ostrel_connections", "volume_behind_target", &Reader::volume_behind_target},
    {"handle_ostrel_connections", "static_volume", &Reader::static_volume},
    {"handle_group_scoped_target_connections", "group_scoped_target", &Reader::group_scoped_target},
    {"handle_group_scoped_target_connections", "static_group_scoped_target", &Reader::static_group_scoped_target},
    {"handle_group_scoped_target_connections", "required_of_target", &Reader::required_of_target},
    {"handle_num_sessions", "sessions_of_target", &Reader::sessions_of_target},
    {"handle_num_sessions", "cut_short", &Reader::cut_short},
    {"handle_num_sessions", "adding", &Reader::adding},
    {"handle_num_sessions", "added_less", &Reader::added_less},
    {"handle_num_sessions", "added_none", &Reader::added_none},
    {"handle_num_sessions", "removing", &Reader::removing},
    {"handle_num_sessions", "removed_less", &Reader::removed_less},
    {"handle_num_sessions", "removed_none", &Reader::removed_none},

    {"handle_ostrel_connections", "volume_not_read", &Reader::not_read},
    {"handle_group_scoped_target_connections", "target_not_read", &Reader::not_read},
    {"remove_all_dynamic_sessions_but_two", "removed_for_switch", &Reader::removed_for_switch},

    {"OstrelHandleRenewIscsiConnections", "renewal_begins", &Reader::renewal_begins},
    {"renew_iscsi_connections", "renewal_target", &Reader::renewal_target},
    {"OstrelHandleRenewIscsiConnections", "renewal_ends", &Reader::renewal_ends},
};

void Reader::take(const LogLine& line) {
    if (story_.messages++ == 0) {
        story_.first_time = plain_time(line.time);
    }
    story_.last_time = line.time;
    if (line.level == "ERROR" || line.level == "WARN") {
        note_trouble(line);
    } else if (line.level == "DEBUG") {
        return;
    }
    for (const Rule& rule : rules) {
        if (rule.function == line.function && match(catalogue().named.at(rule.message), line.text, arguments_)) {
            (this->*rule.meaning)(line, arguments_);
            return;
        }
    }
}

void Reader::values(const LogLine& line, const Arguments& arguments) {
    leave_pass();
    story_.values.resize(arguments.size());
    for (const ConfigKey& key : config_keys) {
        const auto place = static_cast<std::size_t>(key.logged.place);
        story_.values[place] = {std::string(key.name), std::string(arguments[place])};
    }
    worker(Story::Worker::in_pass, line);
}

void Reader::pass_begins(const LogLine& line, const Arguments& arguments) {
    in_pass_ = true;
    ++pass_;
    pass_began_ = plain_time(line.time);
    story_.volumes = number(arguments[0]);
    story_.paths = number(arguments[1]);
    story_.path_limit = false;
    worker(Story::Worker::in_pass, line);
}

void Reader::pass_failed(const LogLine& line, const Arguments&) {
    pass_began_ = plain_time(line.time);
}

// A pass that was stopped, or whose end isn't in the log.
void Reader::leave_pass() {
    in_pass_ = false;
}

void Reader::sleeping(const LogLine& line, const Arguments&) {
    if (in_pass_) {
        ++story_.passes;
        story_.last_pass = pass_began_;
        if (!troubled_) {
            story_.last_good_pass = pass_began_;
            trouble_.clear();
        }
        std::erase_if(targets_, [this](const auto& each) { return each.second.pass != pass_; });
    }
    leave_pass();
    troubled_ = false;
    if (story_.worker == Story::Worker::in_pass) {
        worker(Story::Worker::sleeping, line);
    }
}

// `key`: a volume's name, or the IQN of a group-scoped target.
TargetStory& Reader::story_of(std::string_view key, std::string_view iqn) {
    in_hand_ = key;
    TargetStory& entry = targets_[in_hand_];
    if (entry.pass != pass_) {
        entry = {};
        entry.iqn = iqn;
        entry.pass = pass_;
    }
    return entry;
}

void Reader::volume(const LogLine&, const Arguments& arguments) {
    TargetStory& entry = story_of(arguments[1], arguments[2]);
    entry.devices.emplace_back(arguments[1]);
    entry.nics = number(arguments[3]);
    entry.arrays = number(arguments[4]);
    entry.mode_changed = number(arguments[6]) != 0;
    entry.paths = number(arguments[8]);
    entry.required = number(arguments[9]);
}

void Reader::volume_behind_target(const LogLine&, const Arguments& arguments) {
    story_of(arguments[2], arguments[2]).devices.emplace_back(arguments[1]);
}

void Reader::static_volume(const LogLine&, const Arguments& arguments) {
    TargetStory& entry = story_of(arguments[1], arguments[2]);
    entry.devices.emplace_back(arguments[1]);
    entry.static_mode = true;
    entry.mode_changed = number(arguments[4]) != 0;
}

void Reader::group_scoped_target(const LogLine&, const Arguments& arguments) {
    TargetStory& entry = story_of(arguments[1], arguments[1]);
    entry.group_scoped = true;
    entry.mode_changed = number(arguments[3]) != 0;
    entry.paths = number(arguments[6]);
}

void Reader::static_group_scoped_target(const LogLine&, const Arguments& arguments) {
    TargetStory& entry = story_of(arguments[1], arguments[1]);
    entry.group_scoped = true;
    entry.static_mode = true;
    entry.mode_changed = number(arguments[3]) != 0;
}

void Reader::required_of_target(const LogLine&, const Arguments& arguments) {
    TargetStory& entry = target_in_hand();
    entry.nics = number(arguments[0]);
    entry.arrays = number(arguments[1]);
    entry.required = number(arguments[3]);
}

void Reader::sessions_of_target(const LogLine&, const Arguments& arguments) {
    TargetStory& entry = target_in_hand();
    entry.sessions = number(arguments[2]);
    entry.pending = number(arguments[3]);
}

void Reader::cut_short(const LogLine&, const Arguments&) {
    target_in_hand().cut_short = true;
}

// Those that belong together stand in one entry.
void Reader::change(const LogLine& line, std::string_view iqn, int added, int removed) {
    if (story_.changes.empty() || story_.changes.back().pass != pass_ || story_.changes.back().target != iqn) {
        story_.changes.push_back({plain_time(line.time), pass_, std::string(iqn), 0, 0});
    }
    story_.changes.back().added += added;
    story_.changes.back().removed += removed;
}

void Reader::adding(const LogLine& line, const Arguments& arguments) {
    const int wanted = number(arguments[0]);
    target_in_hand().added += wanted;
    change(line, arguments[1], wanted, 0);
}

void Reader::removing(const LogLine& line, const Arguments& arguments) {
    const int wanted = number(arguments[0]);
    target_in_hand().removed += wanted;
    change(line, arguments[1], 0, wanted);
}

// Of what was announced last, only so many came about.
void Reader::correct(int done, bool adding) {
    if (story_.changes.empty()) {
        return;
    }
    TargetStory& entry = target_in_hand();
    int& of_target = adding ? entry.added : entry.removed;
    ChangeStory& change = story_.changes.back();
    (adding ? change.added : change.removed) += done - of_target;
    of_target = done;
    if (change.added == 0 && change.removed == 0) {
        story_.changes.pop_back();
    }
}

void Reader::renewal_begins(const LogLine& line, const Arguments&) {
    story_.renewal_under_way = true;
    story_.renewal_since = plain_time(line.time);
    story_.renewal_target.clear();
}

void Reader::renewal_ends(const LogLine& line, const Arguments& arguments) {
    story_.renewal_under_way = false;
    story_.last_renewal = plain_time(line.time);
    story_.last_renewal_status = number(arguments[0]);
}

void Reader::note_trouble(const LogLine& line) {
    troubled_ = true;
    TroubleStory& entry = trouble_[{std::string(line.function), line.source_line}];
    if (entry.times++ == 0) {
        entry.level = line.level;
        entry.place = std::string(line.module) + ": " + std::string(line.function);
        entry.first = plain_time(line.time);
    }
    entry.last = line.time;
    entry.text = line.text;
}

Story Reader::finish() {
    story_.last_time = plain_time(story_.last_time);
    for (auto& [iqn, entry] : targets_) {
        story_.targets.push_back(std::move(entry));
    }
    for (auto& [place, entry] : trouble_) {
        entry.last = plain_time(entry.last);
        story_.trouble.push_back(std::move(entry));
    }
    std::stable_sort(story_.trouble.begin(), story_.trouble.end(),
                     [](const TroubleStory& a, const TroubleStory& b) { return a.times > b.times; });
    return std::move(story_);
}

}  // namespace

int sessions_of(const Story& story, const TargetStory& target) {
    if (target.unread) {
        return TargetStory::unknown;
    }
    if (target.sessions != TargetStory::unknown) {
        return target.sessions;
    }
    if (target.group_scoped) {
        return story.path_limit ? TargetStory::unknown : target.required;
    }
    return target.paths;
}

Story read_story(const std::vector<LogFile>& files) {
    Reader reader;
    LogLine parsed;
    std::size_t unreadable = 0;
    for (const LogFile& file : files) {
        std::string_view rest = file.text;
        while (!rest.empty()) {
            const std::string_view line = rest.substr(0, rest.find('\n'));
            rest.remove_prefix(std::min(line.size() + 1, rest.size()));
            if (shared::parse_log_line(line, parsed)) {
                reader.take(parsed);
            } else if (!line.empty()) {
                ++unreadable;
            }
        }
    }
    Story story = reader.finish();
    story.unreadable_lines = unreadable;
    return story;
}

}  // namespace oxrctl
