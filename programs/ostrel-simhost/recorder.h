// Watches the simulated host while the connection manager works on it and turns what it sees into records: a
// happening for each thing that befalls the host, a pass record at the end of each pass. They are handed over
// through a queue, so that nothing is printed while the host's lock is held.
#pragma once

#include <mutex>
#include <string>
#include <variant>
#include <vector>

#include "record.h"
#include "site.h"

namespace ostrel_simhost {

using RecordItem = std::variant<Happening, StateRecord, PassRecord>;

class Recorder {
public:
    // `log_level` 0 to 2: which lines of the connection manager's log go into the pass records. `with_states`: how
    // things stand is recorded at the beginning of passes, after actions and, with sample_every(), in between.
    Recorder(const Site& site, int log_level, bool with_states)
        : site_(site), log_level_(log_level), with_states_(with_states) {}

    // Begins to watch. Call once, before the connection manager is loaded; `host` must outlive its use.
    void watch(simhost::Host& host);

    // From now on how things stand is recorded at these steps of the host's clock, but for the inside of passes.
    void sample_every(simhost::Host& host, double seconds);

    // A timed action of the site ran. Called with the host's lock held.
    void action_done(simhost::Host& host, const TimedAction& action, const std::string& refusal);

    // What was to be an event of the running site is none. Any thread.
    void event_refused(double time, const Problem& problem);

    // What was recorded since the last call, in order. Any thread.
    std::vector<RecordItem> take();

    // After the run: what is still gathered.
    void finish();

    // The last complete pass, and how things stood; read after the run.
    int passes() const { return pass_number_; }
    int passes_after_last_happening() const { return passes_after_happening_; }
    double last_action_at() const { return last_action_at_; }
    int most_sessions() const { return most_sessions_; }
    int most_paths() const { return most_paths_; }

private:
    void see(const simhost::Event& event);
    void begin_pass(double time);
    void end_pass(double time);
    void read_log();
    void compare_configuration(double time);
    void note_totals();
    void note_growth();
    void gather(double time, Happening::Kind kind, const std::string& where);
    void flush();
    void record_state();
    void put(RecordItem item);

    const Site& site_;
    const int log_level_;
    const bool with_states_;
    simhost::Host* host_ = nullptr;

    // All below up to the queue is touched on observing threads only, with the host's lock held.
    PassRecord pass_;
    bool in_pass_ = false;
    int pass_number_ = 0;
    int passes_after_happening_ = 0;
    double last_action_at_ = -1;
    int most_sessions_ = 0;
    int most_paths_ = 0;
    bool growth_noted_ = false;
    ConfigValues config_;
    std::string config_text_;
    std::string log_path_;
    std::size_t log_read_ = 0;

    // Sessions made or lost at one moment are told as one happening.
    Happening gathered_;
    int gathered_count_ = 0;
    std::vector<std::string> gathered_where_;

    std::mutex queue_mutex_;
    std::vector<RecordItem> queue_;
};

// The lines of a piece of log up to `level` (0: ERROR and WARN, 1: INFO too, 2: all); for level 0 lines of one
// place in the code are folded into the first.
std::vector<FoldedLogLine> log_lines(std::string_view text, int level);

}  // namespace ostrel_simhost
