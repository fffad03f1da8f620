#include <array>
#include <cstddef>
#include <string_view>

#include "OstrelProvider/config.h"
#include "OstrelProvider/logs_path.h"
#include "OstrelProviderSetting/config_writer.h"
#include "common/blank.h"
#include "common/file_reader.h"
#include "common/number.h"
#include "common/text.h"

// Messages of the reader carry the name of its one operation.
#define READER "OSTREL_GetConfigValues"

namespace {

// What a read has gathered so far.
struct Reading {
    ConfigValues values;
    bool converting = false;
    bool rewrite = false;
    bool has_use_ostrel_timeouts = false;
    bool has_logs_path = false;
    bool has_comment = false;
};

bool in_range(std::uint32_t value, std::uint32_t low, std::uint32_t high) {
    return value >= low && value <= high;
}

void apply_interval(Reading& reading, std::uint32_t value) {
    const ConfigValues defaults;
    if (reading.converting || !in_range(value, MIN_INTERVAL, MAX_INTERVAL)) {
        OXR_WARN_IN(READER, "Invalid value - interval = %d in oxr.conf.Changing to default value of %d.",
                    static_cast<int>(value), static_cast<int>(defaults.interval));
        value = defaults.interval;
        reading.rewrite = true;
    }
    reading.values.interval = value;
}

void apply_min_vol_sessions(Reading& reading, std::uint32_t value) {
    const ConfigValues defaults;
    if (!in_range(value, 2, 32)) {
        OXR_WARN_IN(READER, "Invalid value - min_vol_sessions = %d in oxr.conf.Changing to default value of %d.",
                    static_cast<int>(value), static_cast<int>(defaults.min_vol_sessions));
        value = defaults.min_vol_sessions;
    }
    reading.values.min_vol_sessions = value;
}

void apply_max_vol_sessions(Reading& reading, std::uint32_t value) {
    const ConfigValues defaults;
    if (!in_range(value, 2, 32)) {
        OXR_WARN_IN(READER, "Invalid value - max_volsessions = %d in oxr.conf.Changing to default value of %d.",
                    static_cast<int>(value), static_cast<int>(defaults.max_vol_sessions));
        value = defaults.max_vol_sessions;
        reading.rewrite = true;
    }
    reading.values.max_vol_sessions = value;
}

void apply_vol_sessions(Reading& reading, std::uint32_t value) {
    reading.values.vol_sessions = value;
}

void apply_worker_stop(Reading& reading, std::uint32_t value) {
    reading.values.worker_stop = value;
}

void apply_log_level(Reading& reading, std::uint32_t value) {
    if (!in_range(value, 1, 2)) {
        value = 1;
        reading.rewrite = true;
    }
    reading.values.log_level = value;
}

void apply_vmknic_count(Reading& reading, std::uint32_t value) {
    reading.values.vmknic_count = reading.converting ? 0 : value;
    OXR_INFO_IN(READER, "vmknic count read from oxr.conf file = %u", reading.values.vmknic_count);
}

void apply_min_pe_sessions(Reading& reading, std::uint32_t value) {
    const ConfigValues defaults;
    if (!in_range(value, 4, 32)) {
        OXR_WARN_IN(READER, "Invalid value - min_pe_sessions = %d in oxr.conf.Changing to default value of %d.",
                    static_cast<int>(value), static_cast<int>(defaults.min_pe_sessions));
        value = defaults.min_pe_sessions;
        reading.rewrite = true;
    }
    reading.values.min_pe_sessions = value;
}

void apply_max_pe_sessions(Reading& reading, std::uint32_t value) {
    const ConfigValues defaults;
    if (!in_range(value, 4, 32)) {
        OXR_WARN_IN(READER, "Invalid value - max_pe_sessions = %d in oxr.conf.Changing to default value of %d.",
                    static_cast<int>(value), static_cast<int>(defaults.max_pe_sessions));
        value = defaults.max_pe_sessions;
        reading.rewrite = true;
    }
    reading.values.max_pe_sessions = value;
}

void apply_use_ostrel_timeouts(Reading& reading, std::uint32_t value) {
    const ConfigValues defaults;
    reading.has_use_ostrel_timeouts = true;
    if (value > 1) {
        OXR_WARN_IN(READER, "Invalid value - use_ostrel_timeouts = %d in oxr.conf.Changing to default value of %d.",
                    static_cast<int>(value), static_cast<int>(defaults.use_ostrel_timeouts));
        value = defaults.use_ostrel_timeouts;
        reading.rewrite = true;
    }
    reading.values.use_ostrel_timeouts = value;
}

// The path has a rule of its own, over the whole file; here it is only seen to be there.
void note_logs_path(Reading& reading, std::uint32_t) {
    reading.has_logs_path = true;
}

// A new key: its spellings, a function that applies one occurrence, a field in ConfigValues, and its lines in
// the canonical file (config_text.cpp).
struct Key {
    std::string_view name;
    std::string_view old_name;  // the second accepted spelling, or empty
    void (*apply)(Reading& reading, std::uint32_t value);
};

constexpr std::array<Key, 11> keys{{
    {"interval", "", apply_interval},
    {"min_vol_sessions", "min_volsessions", apply_min_vol_sessions},
    {"max_vol_sessions", "max_volsessions", apply_max_vol_sessions},
    {"vol_sessions", "volsessions", apply_vol_sessions},
    {"worker_stop", "", apply_worker_stop},
    {"log_level", "", apply_log_level},
    {"vmknic_count", "", apply_vmknic_count},
    {"min_pe_sessions", "", apply_min_pe_sessions},
    {"max_pe_sessions", "", apply_max_pe_sessions},
    {"use_ostrel_timeouts", "", apply_use_ostrel_timeouts},
    {LOGS_PATH_KEY, "", note_logs_path},
}};

const Key* find_key(std::string_view name) {
    for (const Key& key : keys) {
        if (oxr::equal_ignoring_case(name, key.name) ||
            (!key.old_name.empty() && oxr::equal_ignoring_case(name, key.old_name))) {
            return &key;
        }
    }
    return nullptr;
}

void apply_line(Reading& reading, std::string_view line) {
    line = line.substr(0, line.find('\0'));
    if (oxr::is_comment_line(line)) {
        reading.has_comment = true;
        return;
    }
    const std::size_t delimiter = line.find(reading.converting ? ':' : '=');
    if (delimiter == std::string_view::npos) {
        return;
    }
    if (const Key* const key = find_key(line.substr(0, delimiter))) {
        key->apply(reading, static_cast<std::uint32_t>(oxr::read_number(line.substr(delimiter + 1))));
    }
}

void check_relations(Reading& reading) {
    const ConfigValues defaults;
    ConfigValues& values = reading.values;
    if (values.min_vol_sessions > values.max_vol_sessions) {
        OXR_WARN_IN(READER,
                    "Invalid value - min_vol_sessions = %d, max_volsessions = %d  in oxr.conf.Changing "
                    "min_vol_sesions to default value of %d.",
                    static_cast<int>(values.min_vol_sessions), static_cast<int>(values.max_vol_sessions),
                    static_cast<int>(defaults.min_vol_sessions));
        values.min_vol_sessions = defaults.min_vol_sessions;
        reading.rewrite = true;
    }
    if (values.vol_sessions != 0 && !in_range(values.vol_sessions, values.min_vol_sessions, values.max_vol_sessions)) {
        OXR_WARN_IN(READER,
                    "Invalid value - vol_sessions should be between min_vol_sessions and max_vol_sessions.Changing "
                    "to min_vol_sessions value of %d.",
                    static_cast<int>(values.min_vol_sessions));
        values.vol_sessions = values.min_vol_sessions;
        reading.rewrite = true;
    }
    if (!reading.has_use_ostrel_timeouts || !reading.has_logs_path) {
        reading.rewrite = true;
    }
}

}  // namespace

int OSTREL_GetConfigValues(ConfigValues* values, std::uint32_t conversion) {
    oxr::FileReader file(OSTREL_CONFIG_FILE);
    if (!file.opened()) {
        OXR_ERROR("%s, fopen() failed on oxr.conf.", oxr::error_text(file.error()));
        return -1;
    }
    Reading reading;
    reading.converting = conversion != CONFIG_NORMAL;
    reading.rewrite = reading.converting;

    std::string_view line;
    while (file.next_line(line)) {
        apply_line(reading, line);
    }
    // Half a file must not be taken for the whole one and rewritten without the other half.
    if (file.error() != 0) {
        OXR_ERROR("%s, reading oxr.conf failed. Keeping the previous values.", oxr::error_text(file.error()));
        return -1;
    }
    // A file of the current format, found unreadable a moment ago, must not lose its values to a conversion.
    if (reading.converting && reading.has_comment) {
        OXR_ERROR("oxr.conf has comment lines, so it is not in the old format. Not converting it.");
        return -1;
    }
    check_relations(reading);
    if (reading.has_logs_path) {
        get_logs_path(reading.values.ostrel_logs_path);
    }
    *values = reading.values;
    log_level.store(values->log_level, std::memory_order_relaxed);

    if (reading.rewrite && set_value_in_file(values) != 0) {
        OXR_ERROR("%s", "failed to set values in oxr.conf");
        return -1;
    }
    return 0;
}
