#include "recorder.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "shared/log_line.h"

namespace ostrel_simhost {

namespace {

int number_of_level(std::string_view word) {
    return word == "DEBUG" ? 2 : word == "INFO" ? 1 : 0;
}

std::string log_file_in(std::string_view folder) {
    return fmt::format("{}/oxr.log", folder);
}

void add_once(std::vector<std::string>& list, const std::string& text) {
    if (!text.empty() && std::find(list.begin(), list.end(), text) == list.end()) {
        list.push_back(text);
    }
}

}  // namespace

std::vector<FoldedLogLine> log_lines(std::string_view text, int level) {
    std::vector<FoldedLogLine> lines;
    shared::LogLine parsed;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (!shared::parse_log_line(line, parsed) || number_of_level(parsed.level) > level) {
            continue;
        }
        const auto begin = static_cast<std::size_t>(parsed.level.data() - line.data());
        const std::size_t length = level == 0 ? line.size() - begin - parsed.text.size() : std::string_view::npos;
        std::string key(line.substr(begin, length));
        const auto same =
            std::find_if(lines.begin(), lines.end(), [&](const FoldedLogLine& other) { return other.key == key; });
        if (same != lines.end()) {
            ++same->times;
        } else {
            lines.push_back(
                {std::string(parsed.level), std::string(parsed.function), std::string(parsed.text), std::move(key), 1});
        }
    }
    return lines;
}

void Recorder::watch(simhost::Host& host) {
    host_ = &host;
    config_text_ = host.read_file(CONFIG_FILE);
    log_path_ = log_file_in(DEFAULT_LOG_DIR);
    note_totals();
    host.observe([this](const simhost::Event& event) { see(event); });
}

void Recorder::put(RecordItem item) {
    const std::lock_guard lock(queue_mutex_);
    queue_.push_back(std::move(item));
}

std::vector<RecordItem> Recorder::take() {
    const std::lock_guard lock(queue_mutex_);
    return std::exchange(queue_, {});
}

void Recorder::note_totals() {
    most_sessions_ = std::max(most_sessions_, host_->totals().sessions);
    most_paths_ = std::max(most_paths_, balanced_paths(*host_));
}

// Paths are claimed and sessions made many at a time; once all of one moment are there, their number is looked at.
void Recorder::note_growth() {
    if (!growth_noted_) {
        growth_noted_ = true;
        host_->at(host_->now(), "count", [this](simhost::Host&) {
            growth_noted_ = false;
            note_totals();
        });
    }
}

void Recorder::gather(double time, Happening::Kind kind, const std::string& where) {
    if (gathered_count_ > 0 && (gathered_.kind != kind || gathered_.time != time)) {
        flush();
    }
    gathered_.kind = kind;
    gathered_.time = time;
    ++gathered_count_;
    add_once(gathered_where_, where);
}

void Recorder::flush() {
    if (gathered_count_ == 0) {
        return;
    }
    const bool made = gathered_.kind == Happening::Kind::sessions_made;
    const std::size_t targets = gathered_where_.size();
    gathered_.text = fmt::format("{} session{} {} ({} target{})", gathered_count_, gathered_count_ == 1 ? "" : "s",
                                 made ? "made by the host" : "lost", targets, targets == 1 ? "" : "s");
    gathered_count_ = 0;
    gathered_where_.clear();
    put(gathered_);
    note_totals();
}

void Recorder::finish() {
    flush();
}

void Recorder::action_done(simhost::Host& host, const TimedAction& action, const std::string& refusal) {
    if (gathered_.time != host.now()) {
        flush();
    }
    // The action stands before the sessions it cost.
    const int lost = gathered_count_;
    const Happening held = gathered_;
    auto where = std::exchange(gathered_where_, {});
    gathered_count_ = 0;
    std::string text = action.action.text;
    if (!action.note.empty()) {
        text += fmt::format("  ({})", action.note);
    }
    put(Happening{host.now(), Happening::Kind::action, std::move(text)});
    if (!refusal.empty()) {
        put(Happening{host.now(), Happening::Kind::failure, fmt::format("the host refused: {}", refusal)});
    }
    gathered_count_ = lost;
    gathered_ = held;
    gathered_where_ = std::move(where);
    passes_after_happening_ = 0;
    last_action_at_ = host.now();
    config_text_ = host.read_file(CONFIG_FILE);
    note_totals();
    record_state();
}

void Recorder::record_state() {
    if (with_states_) {
        put(StateRecord{host_->now(), site_.rows(*host_, config_)});
    }
}

void Recorder::sample_every(simhost::Host& host, double seconds) {
    host.at(host.now() + seconds, "sample", [this, seconds](simhost::Host& running) {
        if (!in_pass_) {
            record_state();
        }
        sample_every(running, seconds);
    });
}

void Recorder::event_refused(double time, const Problem& problem) {
    put(Happening{
        time, Happening::Kind::failure,
        fmt::format("event refused: {}: expected {}, found {}", problem.key, problem.expected, problem.found)});
}

void Recorder::begin_pass(double time) {
    flush();
    compare_configuration(time);
    config_ = config_at_cycle(*host_).value_or(config_);
    pass_ = PassRecord{};
    pass_.number = ++pass_number_;
    pass_.began = time;
    pass_.skipped = config_.worker_stop != 0;
    pass_.config = config_;
    in_pass_ = true;
    record_state();
}

void Recorder::end_pass(double time) {
    flush();
    in_pass_ = false;
    pass_.ended = time;
    pass_.rows = site_.rows(*host_, config_);
    pass_.addresses = host_->nics();
    pass_.totals = host_->totals();
    pass_.paths = balanced_paths(*host_);
    ++passes_after_happening_;
    read_log();
    note_totals();
    put(pass_);
}

void Recorder::compare_configuration(double time) {
    std::string text = host_->read_file(CONFIG_FILE);
    if (text == config_text_) {
        return;
    }
    std::string told;
    if (config_text_.empty()) {
        told = "configuration file created with the defaults";
    } else {
        told = is_old_format(config_text_) ? "configuration file converted from the old format"
                                           : "configuration file rewritten";
        const auto differences = config_differences(config_text_, text);
        told +=
            fmt::format(": {}", differences.empty() ? "same values" : fmt::format("{}", fmt::join(differences, ", ")));
    }
    put(Happening{time, Happening::Kind::configuration, std::move(told)});
    config_text_ = std::move(text);
}

void Recorder::read_log() {
    const std::string path = log_file_in(config_.ostrel_logs_path);
    if (path != log_path_) {
        log_path_ = path;
        log_read_ = 0;
    }
    std::string text = host_->read_file(log_path_);
    std::string piece;
    if (text.size() < log_read_) {  // rotated: the rest of the old file, then the new one
        const std::string older = host_->read_file(log_path_ + ".1");
        piece = older.substr(std::min(log_read_, older.size()));
        log_read_ = 0;
    }
    piece += text.substr(log_read_);
    log_read_ = text.size();
    pass_.log = log_lines(piece, log_level_);
}

void Recorder::see(const simhost::Event& event) {
    using Kind = simhost::Event::Kind;
    switch (event.kind) {
        case Kind::pass_begun:
            begin_pass(event.time);
            break;
        case Kind::pass_ended:
            if (in_pass_) {
                end_pass(event.time);
            }
            break;
        case Kind::session_added:
            note_growth();
            if (in_pass_) {
                ++pass_.added;
            } else {
                gather(event.time, Happening::Kind::sessions_made, event.target);
            }
            break;
        case Kind::session_removed:
            ++pass_.removed;
            break;
        case Kind::session_lost:
            if (in_pass_) {
                ++pass_.lost;
            } else {
                gather(event.time, Happening::Kind::sessions_lost, event.target);
            }
            break;
        case Kind::path_claimed:
            note_growth();
            ++pass_.paths_claimed;
            break;
        case Kind::dead_path_deleted:
            ++pass_.dead_paths_deleted;
            break;
        case Kind::adapter_rescanned:
            add_once(pass_.rescanned, event.adapter);
            break;
        case Kind::dead_paths_requested:
            add_once(pass_.dead_paths_requested, event.adapter);
            break;
        case Kind::adapter_rediscovered:
            add_once(pass_.rediscovered, event.adapter);
            break;
        case Kind::static_target_removed:
            ++pass_.static_targets_removed;
            break;
        case Kind::fault_injected:
            put(Happening{event.time, Happening::Kind::fault, "fault at " + event.text});
            break;
        case Kind::violation:
            flush();
            put(Happening{event.time, Happening::Kind::violation, event.text});
            break;
        case Kind::mode_switched:
        case Kind::session_state:
        case Kind::path_died:
        case Kind::sleep_begun:
        case Kind::action:
            break;
    }
}

}  // namespace ostrel_simhost
