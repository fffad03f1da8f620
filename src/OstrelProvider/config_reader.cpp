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
    bool has_key = false;
    bool has_old_key = false;  // in the other format
};

bool in_range(std::uint32_t value, std::uint32_t low, std::uint32_t high) {
    return value >= low && value <= high;
}

// How a key's value is read. A new key: a row here, a field in ConfigValues, and its lines in the canonical
// file (config_text.cpp).
struct Key {
    std::string_view name;
    std::string_view old_name;  // the second accepted spelling, or empty
    std::uint32_t ConfigValues::*field;
    std::uint32_t low;
    std::uint32_t high;
    const char* warned_as;  // the name in the warning about a value out of range; null: no warning
    bool rewrites;          // whether such a value is reason enough to rewrite the file
};

constexpr std::uint32_t any = UINT32_MAX;

constexpr Key keys[] = {
    {"interval", "", &ConfigValues::interval, MIN_INTERVAL, MAX_INTERVAL, "interval", true},
    {"min_vol_sessions", "min_volsessions", &ConfigValues::min_vol_sessions, 2, 32, "min_vol_sessions", false},
    {"max_vol_sessions", "max_volsessions", &ConfigValues::max_vol_sessions, 2, 32, "max_volsessions", true},
    {"vol_sessions", "volsessions", &ConfigValues::vol_sessions, 0, any, nullptr, false},
    {"worker_stop", "", &ConfigValues::worker_stop, 0, any, nullptr, false},
    {"log_level", "", &ConfigValues::log_level, 1, 2, nullptr, true},
    {"vmknic_count", "", &ConfigValues::vmknic_count, 0, any, nullptr, false},
    {"min_pe_sessions", "", &ConfigValues::min_pe_sessions, 4, 32, "min_pe_sessions", true},
    {"max_pe_sessions", "", &ConfigValues::max_pe_sessions, 4, 32, "max_pe_sessions", true},
    {"use_ostrel_timeouts", "", &ConfigValues::use_ostrel_timeouts, 0, 1, "use_ostrel_timeouts", true},
};

const Key* find_key(std::string_view name) {
    for (const Key& key : keys) {
        if (oxr::equal_ignoring_case(name, key.name) ||
            (!key.old_name.empty() && oxr::equal_ignoring_case(name, key.old_name))) {
            return &key;
        }
    }
    return nullptr;
}

// The old format's interval is given up, and its NIC count meant something else.
bool is_acceptable(const Reading& reading, const Key& key, std::uint32_t value) {
    return in_range(value, key.low, key.high) && !(reading.converting && key.field == &ConfigValues::interval);
}

void apply_value(Reading& reading, const Key& key, std::uint32_t value) {
    const ConfigValues defaults;
    if (reading.converting && key.field == &ConfigValues::vmknic_count) {
        value = defaults.vmknic_count;
    }
    if (!is_acceptable(reading, key, value)) {
        if (key.warned_as != nullptr) {
            OXR_WARN_IN(READER, "Invalid value - %s = %d in oxr.conf.Changing to default value of %d.", key.warned_as,
                        static_cast<int>(value), static_cast<int>(defaults.*key.field));
        }
        value = defaults.*key.field;
        reading.rewrite = reading.rewrite || key.rewrites;
    }
    reading.values.*key.field = value;
    if (key.field == &ConfigValues::vmknic_count) {
        OXR_INFO_IN(READER, "vmknic count read from oxr.conf file = %u", value);
    } else if (key.field == &ConfigValues::use_ostrel_timeouts) {
        reading.has_use_ostrel_timeouts = true;
    }
}

void apply_line(Reading& reading, std::string_view line) {
    line = line.substr(0, line.find('\0'));
    if (oxr::is_comment_line(line)) {
        reading.has_comment = true;
        return;
    }
    const std::size_t delimiter = line.find(reading.converting ? ':' : '=');
    if (delimiter == std::string_view::npos) {
        const std::size_t old_delimiter = line.find(':');
        reading.has_old_key = reading.has_old_key || (old_delimiter != std::string_view::npos &&
                                                      find_key(line.substr(0, old_delimiter)) != nullptr);
        return;
    }
    reading.has_key = true;
    const std::string_view name = line.substr(0, delimiter);
    // The path has a rule of its own, over the whole file; here it is only seen to be there.
    if (oxr::equal_ignoring_case(name, LOGS_PATH_KEY)) {
        reading.has_logs_path = true;
    } else if (const Key* const key = find_key(name)) {
        apply_value(reading, *key, oxr::read_number(line.substr(delimiter + 1)));
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

// Whether what was read must not be taken for the file's values, nor written over them; logs why. `error`: of
// reading the lines.
bool is_unfit(const Reading& reading, int error) {
    // Half a file must not be taken for the whole one and rewritten without the other half.
    if (error != 0) {
        OXR_ERROR_IN(READER, "%s, reading oxr.conf failed. Keeping the previous values.", oxr::error_text(error));
        return true;
    }
    // A file of the current format, found unreadable a moment ago, must not lose its values to a conversion, and
    // one that could not be converted must keep them for the next one.
    if (reading.converting && reading.has_comment) {
        OXR_ERROR_IN(READER, "oxr.conf has comment lines, so it is not in the old format. Not converting it.");
        return true;
    }
    if (!reading.converting && reading.has_old_key && !reading.has_key && !reading.has_comment) {
        OXR_ERROR_IN(READER, "oxr.conf is in the old format and has not been converted. Leaving it as it is.");
        return true;
    }
    return false;
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
    if (is_unfit(reading, file.error())) {
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
