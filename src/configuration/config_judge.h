// Validates the text of a configuration file: which values are in force, what is wrong, and whether the file must be
// rewritten. Reads, logs and writes nothing: that is up to the caller.
#pragma once

#include <cstdint>
#include <string_view>

#include "configuration/config_values.h"

// A key with a numeric value. To add a key, add a row to the table (config_judge.cpp), a field to ConfigValues, and its
// lines to the canonical file (config_text.cpp).
struct ConfigKey {
    std::string_view name;
    std::string_view old_name;  // the second accepted spelling, or empty
    std::uint32_t ConfigValues::*field;
    std::uint32_t low;
    std::uint32_t high;
    const char* warned_as;  // its name in the warning about a value out of range; null: no warning
    bool rewrites;          // whether a value out of range causes a rewrite
};

// The key of this name, in either spelling and any case, or null.
const ConfigKey* find_config_key(std::string_view name);

// Receives the findings in the order of validation. Override only what you need.
class ConfigObserver {
public:
    // A key's line: the number in the line and the number that is used. They differ if it is not accepted.
    virtual void value_read(const ConfigKey& /*key*/, std::uint32_t /*found*/, std::uint32_t /*used*/,
                            bool /*accepted*/) {}
    // A line that is neither a comment nor a key of the file's format. `name` is the text before the delimiter, or the
    // whole line if `has_delimiter` is false.
    virtual void line_ignored(std::string_view /*name*/, bool /*has_delimiter*/) {}
    // Values that contradict each other, before their correction.
    virtual void minimum_above_maximum(const ConfigValues& /*values*/, std::uint32_t /*default_minimum*/) {}
    virtual void vol_sessions_outside(const ConfigValues& /*values*/) {}
    // A key that every rewritten file has is missing.
    virtual void key_missing(std::string_view /*name*/) {}

protected:
    ~ConfigObserver() = default;
};

// Whether the values may be used and the file may be rewritten with them.
enum class ConfigFitness {
    fit,
    has_comments,   // cannot be converted: only files of the current format have comment lines
    not_converted,  // contains keys in the old format only
};

// Pass it the file's lines one by one, then call finish(). `observer` must outlive it.
class ConfigJudge {
public:
    // `converting`: the lines have the old format (key, ":", value).
    ConfigJudge(bool converting, ConfigObserver& observer)
        : observer_(observer), converting_(converting), rewrite_(converting) {}

    // A line of the file, with or without its line feed. The caller cuts lines at 255 characters.
    void take_line(std::string_view line);
    ConfigFitness fitness() const;
    // Corrects values that contradict each other. Call it once, after the last line.
    void finish();

    // The logs path in them is the default: it has its own rule (logs_path_rule.h).
    const ConfigValues& values() const { return values_; }
    bool has_logs_path() const { return has_logs_path_; }
    bool wants_rewrite() const { return rewrite_; }

private:
    void take_value(const ConfigKey& key, std::uint32_t found);
    void take_line_without_delimiter(std::string_view line);

    ConfigObserver& observer_;
    const bool converting_;
    bool rewrite_;
    ConfigValues values_;
    bool has_use_ostrel_timeouts_ = false;
    bool has_logs_path_ = false;
    bool has_comment_ = false;
    bool has_key_ = false;
    bool has_old_key_ = false;  // in the other format
};
