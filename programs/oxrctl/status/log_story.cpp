#include "oxrctl/status/log_story.h"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>
#include <optional>
#include <unordered_map>

#include <fmt/format.h>

#include "configuration/config_keys.h"
#include "oxrctl/catalogue.h"
#include "oxrctl/message_format.h"
#include "oxrctl/status/flapping.h"
#include "oxrctl/status/trouble_book.h"
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

constexpr std::string_view HEAD_END = " : ";
constexpr std::size_t MOST_PLACES = 1024;  // a log that is damaged may have any number
constexpr std::size_t MOST_CHANGES = 4096;
constexpr std::size_t MOST_NAMING = 20;
constexpr std::size_t MOST_GONE = 512;
constexpr int LONGEST_PASS_SECONDS = 3600;  // beyond that the clock was set
constexpr std::size_t MOST_SESSIONS_OF_A_TARGET = 64;

}  // namespace

// Takes messages in their order and keeps what they add up to.
class StoryReader::Impl {
public:
    Impl(LogPosition since, std::string naming) : since_(since), naming_(std::move(naming)) { story_.counted = since; }
    void take_line(std::string_view line);
    LogSeconds time() const { return story_.last.time; }
    Story finish();

private:
    struct Rule {
        std::string_view function;
        const char* message;  // its name in the catalogue
        void (Impl::*meaning)(const Arguments&);
        bool notes_itself = false;  // the meaning decides whether the message is trouble
    };
    static const Rule rules[];

    // Where messages come from, with the rules that may be about them.
    struct Place {
        std::string_view head;  // ": DEBUG: oxd_ima_utility: get_num_nic:20 : "
        LogLine line;           // without time and text
        std::vector<std::pair<const Rule*, MessageFormat>> rules;
        bool is_trouble = false;
        std::array<Place*, 2> followers{};  // the places of the next message at the last times

        bool matters() const { return is_trouble || !rules.empty(); }
    };
    struct Hash : std::hash<std::string_view> {
        using is_transparent = void;
    };

    Place* known_place(std::string_view rest);
    Place* new_place(std::string_view line);
    void count_message();
    const Rule* rule_of(const Place& place);
    void take_message(const Place& place);
    void take_time(std::string_view logged);
    std::string now() const { return plain_time(time()); }

    // --- the worker ---
    void values(const Arguments& arguments);
    void held_off(const Arguments&) { worker(Story::Worker::held_off); }
    void held_off_by_renewal(const Arguments&) {
        worker(Story::Worker::held_off_by_renewal);
        ++story_.held_off_cycles;
    }
    void sleeping(const Arguments&);
    void stopped(const Arguments&) {
        leave_pass();
        worker(Story::Worker::stopped);
        count_cycle();
    }
    // A state that the cycle before had too goes on.
    void worker(Story::Worker state) {
        story_.worker = state;
        story_.worker_since = state == before_.first ? before_.second : now();
    }
    void count_cycle();

    // --- a pass ---
    void pass_begins(const Arguments& arguments);
    void pass_failed(const Arguments&) { pass_began_ = time(); }
    void end_pass();
    void leave_pass();
    void path_limit(const Arguments&) { story_.path_limit = true; }
    void host_sessions(const Arguments& arguments) { story_.sessions = number(arguments[0]); }

    void device_paths(const Arguments& arguments);
    void device_adapter(const Arguments& arguments) { devices_[device_].adapters.emplace_back(arguments[1]); }

    // --- its targets ---
    TargetStory& story_of(std::string_view key, std::string_view iqn);
    TargetStory& target_in_hand() { return targets_[in_hand_]; }
    void forget(const std::string& key, TargetStory target);
    void note_untold();
    void change(std::string_view iqn, int added, int removed);
    void volume(const Arguments& arguments);
    void volume_behind_target(const Arguments& arguments);
    void static_volume(const Arguments& arguments);
    void group_scoped_target(const Arguments& arguments);
    void static_group_scoped_target(const Arguments& arguments);
    void required_of_target(const Arguments& arguments);
    void sessions_of_target(const Arguments& arguments);
    void session(const Arguments& arguments, const char* state);
    void dynamic_session(const Arguments& arguments) { session(arguments, "logged in"); }
    void pending_session(const Arguments& arguments) { session(arguments, "logging in"); }
    void static_session(const Arguments& arguments) { session(arguments, "static"); }
    void target_session(const Arguments& arguments);
    void no_nics(const Arguments& arguments) { story_.without_nics += number(arguments[0]) == 0 ? 1 : 0; }
    void cut_short(const Arguments&);
    void adding_over(const Arguments& arguments) { over("+", arguments); }
    void removing_over(const Arguments& arguments) { over("-", arguments); }
    void over(const char* sign, const Arguments& arguments);
    void adding(const Arguments& arguments);
    void added_less(const Arguments& arguments) { correct(number(arguments[0]), true); }
    void added_none(const Arguments&) { correct(0, true); }
    void removing(const Arguments& arguments);
    void cannot_remove(const Arguments&) { withheld_ = Trouble(line_, now()); }
    void removal_failed(const Arguments&) { removal_failed_ = true; }
    void removed_less(const Arguments& arguments);
    void removed_none(const Arguments&) { correct(0, false); }
    void removed_for_switch(const Arguments& arguments) { change(arguments[1], 0, 1); }
    void not_read(const Arguments&) { target_in_hand().unread = true; }
    void correct(int done, bool adding);
    void count_left(int difference);

    // --- renewals ---
    void renewal_begins(const Arguments&);
    void renewal_target(const Arguments& arguments) { story_.renewal_target = arguments[0]; }
    void renewal_ends(const Arguments& arguments);

    void note(const Trouble& trouble);
    void note_withheld();
    void keep_if_naming(const LogLine& line);

    // What a DEBUG log tells of a device before its pass begins.
    struct Device {
        std::vector<std::string> adapters;
        int dead_paths = TargetStory::unknown;
        int active_paths = TargetStory::unknown;
    };

    Story story_;
    const LogPosition since_;
    const std::string naming_;
    std::map<std::string, Device, std::less<>> devices_;
    std::string device_;
    std::vector<SessionStory> sessions_;            // of the inventory that is being told
    bool counts_ = false;                           // the message in hand is behind since_
    Totals cycle_;                                  // of the cycle in hand
    std::pair<Story::Worker, std::string> before_;  // the worker's state in the cycle before, and since when
    std::string last_time_;
    std::unordered_map<std::string, Place, Hash, std::equal_to<>> places_;  // by the head of their lines
    Place odd_place_;                                                       // one that is not kept
    Place* place_ = &odd_place_;                                            // of the last message
    LogLine line_;
    std::map<std::string, TargetStory, std::less<>> targets_;
    std::map<std::string, TargetStory, std::less<>> gone_;  // by the same keys
    std::map<std::string, int, std::less<>> left_;          // sessions by target, as the pass goes on
    std::string in_hand_;                                   // the target that the following messages are about
    int logging_in_before_ = 0;
    Arguments arguments_;
    bool in_pass_ = false;
    bool troubled_ = false;  // a warning or an error since the last cycle
    bool removal_failed_ = false;
    std::optional<Trouble> withheld_;
    int pass_ = 0;
    LogSeconds cycle_began_ = NO_TIME, pass_began_ = NO_TIME;
    TroubleBook trouble_;
    FlappingWatch flapping_;
};

// The messages that the story is read from.
const StoryReader::Impl::Rule StoryReader::Impl::rules[] = {
    {"do_work", "values", &Impl::values},
    {"do_work", "held_off", &Impl::held_off},
    {"do_work", "held_off_by_renewal", &Impl::held_off_by_renewal},
    {"do_work", "sleeping", &Impl::sleeping},
    {"sigusr1_handler", "stopped", &Impl::stopped},

    {"handle_ostrel_connections", "pass_begins", &Impl::pass_begins},
    {"handle_ostrel_connections", "pass_failed", &Impl::pass_failed},
    {"handle_ostrel_connections", "path_limit", &Impl::path_limit},
    {"get_all_system_sessions", "host_sessions", &Impl::host_sessions},

    {"get_host_total_scsiPaths", "device_paths", &Impl::device_paths},
    {"get_host_total_scsiPaths", "device_adapter", &Impl::device_adapter},
    {"populate_oxr_sessions", "pending_session", &Impl::pending_session},
    {"populate_oxr_sessions", "dynamic_session", &Impl::dynamic_session},
    {"populate_oxr_sessions", "static_session", &Impl::static_session},

    {"handle_ostrel_connections", "volume", &Impl::volume},
    {"handle_ostrel_connections", "volume_behind_target", &Impl::volume_behind_target},
    {"handle_ostrel_connections", "static_volume", &Impl::static_volume},
    {"handle_group_scoped_target_connections", "group_scoped_target", &Impl::group_scoped_target},
    {"handle_group_scoped_target_connections", "static_group_scoped_target", &Impl::static_group_scoped_target},
    {"handle_group_scoped_target_connections", "required_of_target", &Impl::required_of_target},
    {"handle_group_scoped_target_connections", "target_session", &Impl::target_session},
    {"handle_num_sessions", "sessions_of_target", &Impl::sessions_of_target},
    {"handle_num_sessions", "cut_short", &Impl::cut_short},
    {"handle_num_sessions", "adding", &Impl::adding},
    {"add_isid_sessions", "adding_over", &Impl::adding_over},
    {"remove_isid_sessions", "removing_over", &Impl::removing_over},
    {"handle_num_sessions", "added_less", &Impl::added_less},
    {"handle_num_sessions", "added_none", &Impl::added_none},
    {"handle_num_sessions", "removing", &Impl::removing},
    {"remove_isid_sessions", "cannot_remove", &Impl::cannot_remove, true},
    {"remove_isid_sessions", "removal_failed", &Impl::removal_failed},
    {"handle_num_sessions", "removed_less", &Impl::removed_less, true},
    {"handle_num_sessions", "removed_none", &Impl::removed_none},

    {"handle_ostrel_connections", "no_nics", &Impl::no_nics},
    {"handle_ostrel_connections", "volume_not_read", &Impl::not_read},
    {"handle_group_scoped_target_connections", "target_not_read", &Impl::not_read},
    {"remove_all_dynamic_sessions_but_two", "removed_for_switch", &Impl::removed_for_switch},

    {"OstrelHandleRenewIscsiConnections", "renewal_begins", &Impl::renewal_begins},
    {"renew_iscsi_connections", "renewal_target", &Impl::renewal_target},
    {"OstrelHandleRenewIscsiConnections", "renewal_ends", &Impl::renewal_ends},
};

// Most lines bear the time of the one before, and a log has few places: only what is new is parsed.
void StoryReader::Impl::take_line(std::string_view line) {
    const bool is_same_time = line.starts_with(last_time_);
    Place* place = is_same_time ? known_place(line.substr(last_time_.size())) : nullptr;
    if (place != nullptr) {
        count_message();
        if (!place->matters()) {
            return;
        }
        line_ = place->line;
        line_.time = line.substr(0, last_time_.size());
        line_.text = line.substr(last_time_.size() + place->head.size());
    } else {
        place = new_place(line);
        if (place == nullptr) {
            story_.unreadable_lines += line.empty() ? 0 : 1;
            return;
        }
        take_time(line_.time);
        count_message();
    }
    take_message(*place);
}

// `rest`: a line behind its time. Messages follow each other alike, so that their heads are mostly as foreseen.
StoryReader::Impl::Place* StoryReader::Impl::known_place(std::string_view rest) {
    auto& [latest, other] = place_->followers;
    if (latest != nullptr && rest.starts_with(latest->head)) {
        return place_ = latest;
    }
    if (other == nullptr || !rest.starts_with(other->head)) {
        const std::size_t end = rest.find(HEAD_END);
        const std::size_t length = end == std::string_view::npos ? 0 : end + HEAD_END.size();
        const auto known = places_.find(rest.substr(0, length));
        if (known == places_.end()) {
            return nullptr;
        }
        other = &known->second;
    }
    std::swap(latest, other);
    return place_ = latest;
}

// Null for a line that isn't a message.
StoryReader::Impl::Place* StoryReader::Impl::new_place(std::string_view line) {
    if (!shared::parse_log_line(line, line_)) {
        return nullptr;
    }
    const std::string head(line.substr(line_.time.size(), line.size() - line_.time.size() - line_.text.size()));
    const bool is_kept = places_.size() < MOST_PLACES && head.find(HEAD_END) + HEAD_END.size() == head.size();
    Place* place = &odd_place_;
    LogLine parts = line_;
    if (is_kept) {
        const auto [entry, is_new] = places_.try_emplace(head);
        place = &entry->second;
        place_ = place;
        if (!is_new) {
            return place;
        }
        (void)shared::parse_log_line_end(entry->first, parts);
        place->head = entry->first;
    }
    place->line = parts;
    place->is_trouble = parts.level == "ERROR" || parts.level == "WARN";
    place->rules.clear();
    for (const Rule& rule : rules) {
        if (rule.function == parts.function) {
            place->rules.emplace_back(&rule, catalogue().named.at(rule.message));
        }
    }
    return place;
}

void StoryReader::Impl::take_time(std::string_view logged) {
    if (logged != last_time_) {
        last_time_ = logged;
        if (const auto seconds = seconds_of(logged); seconds && *seconds != time()) {
            story_.steps_back += *seconds < time() ? 1 : 0;
            story_.last = {*seconds, 0};
        }
    }
}

void StoryReader::Impl::count_message() {
    ++story_.last.messages;
    if (story_.messages++ == 0) {
        story_.first = time();
        story_.first_time = now();
    }
    counts_ = time() > since_.time || (time() == since_.time && story_.last.messages > since_.messages);
}

const StoryReader::Impl::Rule* StoryReader::Impl::rule_of(const Place& place) {
    for (const auto& [rule, format] : place.rules) {
        if (format.match(line_.text, arguments_)) {
            return rule;
        }
    }
    return nullptr;
}

void StoryReader::Impl::take_message(const Place& place) {
    if (place.is_trouble) {
        keep_if_naming(line_);
    }
    const Rule* const rule = rule_of(place);
    if (place.is_trouble && (rule == nullptr || !rule->notes_itself)) {
        note(Trouble(line_, now()));
    }
    if (rule != nullptr) {
        (this->*rule->meaning)(arguments_);
    }
}

void StoryReader::Impl::values(const Arguments& arguments) {
    leave_pass();
    before_ = {story_.worker, story_.worker_since};
    cycle_began_ = time();
    story_.values.resize(arguments.size());
    for (const ConfigKey& key : config_keys) {
        const auto place = static_cast<std::size_t>(key.logged.place);
        story_.values[place] = {std::string(key.name), std::string(arguments[place])};
        if (key.name == std::string_view("interval")) {
            story_.interval = number(arguments[place]);
        }
    }
    worker(Story::Worker::in_pass);
}

void StoryReader::Impl::device_paths(const Arguments& arguments) {
    device_ = arguments[0];
    devices_[device_] = {{}, number(arguments[6]), number(arguments[7])};
}

void StoryReader::Impl::pass_begins(const Arguments& arguments) {
    in_pass_ = true;
    ++pass_;
    pass_began_ = time();
    story_.volumes = number(arguments[0]);
    story_.paths = number(arguments[1]);
    story_.path_limit = false;
    story_.without_nics = 0;
    left_.clear();
    worker(Story::Worker::in_pass);
}

void StoryReader::Impl::end_pass() {
    devices_.clear();
    ++story_.passes;
    story_.ended_pass = pass_;
    cycle_.passes += counts_ ? 1 : 0;
    story_.last_pass_began = pass_began_;
    if (!troubled_) {
        cycle_.good_passes += counts_ ? 1 : 0;
        story_.last_good_pass_began = pass_began_;
        trouble_ = {};
    }
    if (cycle_began_ != NO_TIME && time() >= cycle_began_ && time() - cycle_began_ <= LONGEST_PASS_SECONDS) {
        story_.pass_seconds = static_cast<int>(time() - cycle_began_);
        story_.longest_pass = std::max(story_.longest_pass, story_.pass_seconds);
    }
    std::size_t told = 0;
    for (auto entry = targets_.begin(); entry != targets_.end();) {
        const auto target = entry++;
        if (target->second.pass != pass_) {
            target->second.untold = true;
            forget(target->first, std::move(target->second));
            targets_.erase(target);
        } else {
            const auto left = left_.find(target->second.iqn);
            target->second.left = left == left_.end() ? TargetStory::unknown : left->second;
            told += target->second.devices.size();
        }
    }
    story_.untold = std::max(story_.volumes - static_cast<int>(told), 0);
    note_untold();
    flapping_.end_pass(pass_, story_.changes);
}

// What a cycle announced may be corrected until it ends, and a position that the clock went back behind would be
// counted again: only whole cycles count, up to the furthest position.
void StoryReader::Impl::count_cycle() {
    Totals& totals = story_.totals;
    totals.passes += cycle_.passes;
    totals.good_passes += cycle_.good_passes;
    totals.added += cycle_.added;
    totals.removed += cycle_.removed;
    for (const auto& [kind, times] : cycle_.messages) {
        totals.messages[kind] += times;
    }
    cycle_ = {};
    const auto& [time, messages] = story_.last;
    if (time > story_.counted.time || (time == story_.counted.time && messages > story_.counted.messages)) {
        story_.counted = story_.last;
    }
}

// A pass that was stopped, or whose end isn't in the log.
void StoryReader::Impl::leave_pass() {
    note_withheld();
    in_pass_ = false;
}

void StoryReader::Impl::sleeping(const Arguments&) {
    note_withheld();
    if (in_pass_) {
        end_pass();
    }
    leave_pass();
    count_cycle();
    cycle_began_ = NO_TIME;
    troubled_ = false;
    if (story_.worker != Story::Worker::held_off_by_renewal) {
        story_.held_off_cycles = 0;
    }
    if (story_.worker == Story::Worker::in_pass) {
        worker(Story::Worker::sleeping);
    }
}

// Of a target that a pass didn't find any more, what was known last is kept; when there are too many, not that of the
// one that has been gone for longest.
void StoryReader::Impl::forget(const std::string& key, TargetStory target) {
    gone_[key] = std::move(target);
    if (gone_.size() > MOST_GONE) {
        gone_.erase(std::min_element(gone_.begin(), gone_.end(),
                                     [](const auto& a, const auto& b) { return a.second.seen < b.second.seen; }));
    }
}

// Where the pass told all that it found, the others are gone.
void StoryReader::Impl::note_untold() {
    story_.vanished.clear();
    for (auto& [name, entry] : gone_) {
        entry.untold = entry.untold && story_.untold > 0;
        if (entry.untold && story_.without_nics > 0 && !entry.group_scoped) {
            story_.vanished.push_back(name);
        }
    }
}

// `key`: a volume's name, or the IQN of a group-scoped target.
TargetStory& StoryReader::Impl::story_of(std::string_view key, std::string_view iqn) {
    in_hand_ = key;
    TargetStory& entry = targets_[in_hand_];
    if (entry.pass != pass_) {
        logging_in_before_ = entry.passes_logging_in;
        entry = {};
        entry.iqn = iqn;
        entry.pass = pass_;
        entry.seen = time();
        gone_.erase(in_hand_);
    }
    return entry;
}

void StoryReader::Impl::volume(const Arguments& arguments) {
    TargetStory& entry = story_of(arguments[1], arguments[2]);
    sessions_.clear();
    entry.devices.emplace_back(arguments[1]);
    entry.nics = number(arguments[3]);
    entry.arrays = number(arguments[4]);
    entry.mode_changed = number(arguments[6]) != 0;
    entry.paths = number(arguments[8]);
    entry.required = number(arguments[9]);
    if (const auto device = devices_.find(in_hand_); device != devices_.end()) {
        entry.adapters = device->second.adapters;
        entry.dead_paths = device->second.dead_paths;
    }
}

void StoryReader::Impl::volume_behind_target(const Arguments& arguments) {
    TargetStory& entry = story_of(arguments[2], arguments[2]);
    entry.devices.emplace_back(arguments[1]);
    if (const auto device = devices_.find(arguments[1]); device != devices_.end()) {
        for (const std::string& adapter : device->second.adapters) {
            if (std::find(entry.adapters.begin(), entry.adapters.end(), adapter) == entry.adapters.end()) {
                entry.adapters.push_back(adapter);
            }
        }
    }
}

void StoryReader::Impl::static_volume(const Arguments& arguments) {
    TargetStory& entry = story_of(arguments[1], arguments[2]);
    entry.devices.emplace_back(arguments[1]);
    entry.static_mode = true;
    entry.mode_changed = number(arguments[4]) != 0;
    if (const auto device = devices_.find(in_hand_); device != devices_.end()) {
        entry.adapters = device->second.adapters;
        entry.dead_paths = device->second.dead_paths;
        entry.paths = device->second.active_paths;
    }
}

void StoryReader::Impl::group_scoped_target(const Arguments& arguments) {
    TargetStory& entry = story_of(arguments[1], arguments[1]);
    entry.group_scoped = true;
    entry.mode_changed = number(arguments[3]) != 0;
    entry.paths = number(arguments[6]);
    entry.dead_paths = number(arguments[7]);
}

void StoryReader::Impl::static_group_scoped_target(const Arguments& arguments) {
    TargetStory& entry = story_of(arguments[1], arguments[1]);
    entry.group_scoped = true;
    entry.static_mode = true;
    entry.mode_changed = number(arguments[3]) != 0;
}

void StoryReader::Impl::required_of_target(const Arguments& arguments) {
    TargetStory& entry = target_in_hand();
    entry.nics = number(arguments[0]);
    entry.arrays = number(arguments[1]);
    entry.required = number(arguments[3]);
}

// The inventory of a volume comes behind the volume's message, that of a group-scoped target before its own.
void StoryReader::Impl::session(const Arguments& arguments, const char* state) {
    if (sessions_.size() > MOST_SESSIONS_OF_A_TARGET) {
        sessions_.clear();  // inventories that aren't of a pass
    }
    sessions_.push_back({std::string(arguments[0]), "", std::string(arguments[2]), "", state});
}

void StoryReader::Impl::target_session(const Arguments& arguments) {
    if (number(arguments[0]) == 0) {
        sessions_.clear();
    }
    sessions_.push_back({std::string(arguments[1]), std::string(arguments[2]), std::string(arguments[4]),
                         std::string(arguments[5]), std::string(arguments[6])});
}

void StoryReader::Impl::sessions_of_target(const Arguments& arguments) {
    TargetStory& entry = target_in_hand();
    entry.sessions_seen = std::exchange(sessions_, {});
    entry.sessions = number(arguments[2]);
    entry.pending = number(arguments[3]);
    left_[entry.iqn] = entry.sessions;
    entry.passes_logging_in = entry.pending > 0 ? logging_in_before_ + 1 : 0;
}

void StoryReader::Impl::cut_short(const Arguments&) {
    target_in_hand().cut_short = true;
}

// Attempts of the change that was announced last.
void StoryReader::Impl::over(const char* sign, const Arguments& arguments) {
    if (!story_.changes.empty() && story_.changes.back().pass == pass_) {
        story_.changes.back().over.push_back(fmt::format("{} {} {}", sign, arguments[1], arguments[2]));
    }
}

// Those that belong together stand in one entry.
void StoryReader::Impl::change(std::string_view iqn, int added, int removed) {
    if (story_.changes.empty() || story_.changes.back().pass != pass_ || story_.changes.back().target != iqn) {
        story_.changes.push_back({now(), pass_, std::string(iqn), 0, 0, {}});
        if (story_.changes.size() > MOST_CHANGES) {
            story_.changes.pop_front();
            ++story_.earlier_changes;
        }
    }
    cycle_.added += counts_ ? added : 0;
    cycle_.removed += counts_ ? removed : 0;
    story_.changes.back().added += added;
    story_.changes.back().removed += removed;
}

void StoryReader::Impl::adding(const Arguments& arguments) {
    const int wanted = number(arguments[0]);
    target_in_hand().added += wanted;
    count_left(wanted);
    change(arguments[1], wanted, 0);
}

void StoryReader::Impl::removing(const Arguments& arguments) {
    const int wanted = number(arguments[0]);
    removal_failed_ = false;
    target_in_hand().removed += wanted;
    count_left(-wanted);
    change(arguments[1], 0, wanted);
}

// Fewer were removed than asked for. Sessions of a group-scoped target that carry active paths stay: that is no
// trouble, unless the host refused a removal.
void StoryReader::Impl::removed_less(const Arguments& arguments) {
    TargetStory& entry = target_in_hand();
    if (entry.group_scoped && !removal_failed_) {
        entry.in_use = number(arguments[1]) - number(arguments[0]);
        withheld_.reset();
    } else {
        note_withheld();
        note(Trouble(line_, now()));
    }
    correct(number(arguments[0]), false);
}

// Of what was announced last, only so many came about.
void StoryReader::Impl::correct(int done, bool adding) {
    if (story_.changes.empty()) {
        return;
    }
    TargetStory& entry = target_in_hand();
    int& of_target = adding ? entry.added : entry.removed;
    ChangeStory& change = story_.changes.back();
    (adding ? change.added : change.removed) += done - of_target;
    (adding ? cycle_.added : cycle_.removed) += counts_ ? done - of_target : 0;
    count_left((adding ? 1 : -1) * (done - of_target));
    of_target = done;
    if (change.added == 0 && change.removed == 0) {
        story_.changes.pop_back();
    }
}

void StoryReader::Impl::count_left(int difference) {
    if (const auto left = left_.find(target_in_hand().iqn); left != left_.end()) {
        left->second += difference;
    }
}

void StoryReader::Impl::renewal_begins(const Arguments&) {
    story_.renewal_under_way = true;
    story_.renewal_since = now();
    story_.renewal_target.clear();
}

void StoryReader::Impl::renewal_ends(const Arguments& arguments) {
    story_.renewal_under_way = false;
    story_.last_renewal = now();
    story_.last_renewal_status = number(arguments[0]);
}

void StoryReader::Impl::note(const Trouble& trouble) {
    troubled_ = true;
    trouble_.note(trouble);
    if (counts_) {
        ++cycle_.messages[{trouble.level, trouble_.subject_of(trouble)}];
    }
}

void StoryReader::Impl::keep_if_naming(const LogLine& line) {
    if (!naming_.empty() && ::fnmatch(naming_.c_str(), std::string(line.text).c_str(), 0) == 0) {
        story_.naming.push_back({now(), std::string(line.level), std::string(line.text)});
        if (story_.naming.size() > MOST_NAMING) {
            story_.naming.pop_front();
        }
    }
}

void StoryReader::Impl::note_withheld() {
    if (withheld_) {
        note(*withheld_);
        withheld_.reset();
    }
}

Story StoryReader::Impl::finish() {
    note_withheld();
    story_.last_time = now();
    story_.last_pass = plain_time(story_.last_pass_began);
    story_.last_good_pass = plain_time(story_.last_good_pass_began);
    for (auto& [name, entry] : targets_) {
        story_.targets.push_back(std::move(entry));
    }
    for (auto& [name, entry] : gone_) {
        story_.gone.push_back(std::move(entry));
    }
    story_.trouble = trouble_.worst_first();
    story_.flapping = flapping_.found(pass_, story_.targets);
    return std::move(story_);
}

StoryReader::StoryReader(LogPosition since, std::string naming)
    : impl_(std::make_unique<Impl>(since, std::move(naming))) {}
StoryReader::~StoryReader() = default;
StoryReader::StoryReader(StoryReader&&) noexcept = default;

void StoryReader::take(std::string_view line) {
    impl_->take_line(line);
}

Story StoryReader::finish() {
    return impl_->finish();
}

std::string value_of(const Story& story, std::string_view key) {
    const auto found =
        std::find_if(story.values.begin(), story.values.end(), [key](const auto& value) { return value.first == key; });
    return found == story.values.end() ? "" : found->second;
}

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

int missing_sessions(const Story& story, const TargetStory& target) {
    const int told = sessions_of(story, target);
    const int found = told == TargetStory::unknown ? target.paths : told;
    const int sessions = target.left == TargetStory::unknown ? found : target.left;
    if (target.pass > story.ended_pass || target.static_mode || target.required == TargetStory::unknown ||
        sessions == TargetStory::unknown) {
        return 0;
    }
    return std::max(target.required - sessions, 0);
}

bool knows_targets(const Story& story) {
    return story.passes > 0 && (!story.targets.empty() || story.volumes <= 0);
}

std::size_t present_targets(const Story& story) {
    return story.targets.size() +
           static_cast<std::size_t>(std::count_if(story.gone.begin(), story.gone.end(),
                                                  [](const TargetStory& target) { return target.untold; }));
}

int short_targets(const Story& story) {
    if (!knows_targets(story)) {
        return TargetStory::unknown;
    }
    return static_cast<int>(
        std::count_if(story.targets.begin(), story.targets.end(),
                      [&story](const TargetStory& target) { return missing_sessions(story, target) > 0; }));
}

int dead_paths(const Story& story) {
    int sum = 0;
    for (const TargetStory& target : story.targets) {
        if (target.dead_paths == TargetStory::unknown) {
            return TargetStory::unknown;
        }
        sum += target.dead_paths;
    }
    return story.passes == 0 || story.untold > 0 ? TargetStory::unknown : sum;
}

}  // namespace oxrctl
