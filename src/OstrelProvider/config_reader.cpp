#include <cerrno>
#include <string_view>

#include "OstrelProvider/config.h"
#include "OstrelProvider/log_level.h"
#include "OstrelProvider/logs_path.h"
#include "OstrelProviderSetting/config_writer.h"
#include "common/file_reader.h"
#include "common/text.h"
#include "configuration/config_judge.h"

namespace {

constexpr LogOperation reading = "OSTREL_GetConfigValues";

// Logs wrong values of the file.
class LoggingObserver final : public ConfigObserver {
public:
    void value_read(const ConfigKey& key, std::uint32_t found, std::uint32_t used, bool accepted) override {
        if (!accepted && key.warned_as != nullptr) {
            OXR_WARN_IN(reading, "Invalid value - %s = %d in oxr.conf.Changing to default value of %d.", key.warned_as,
                        static_cast<int>(found), static_cast<int>(used));
        }
        if (key.number == &ConfigValues::vmknic_count) {
            OXR_INFO_IN(reading, "vmknic count read from oxr.conf file = %u", used);
        }
    }

    void minimum_above_maximum(const ConfigValues& values, std::uint32_t default_minimum) override {
        OXR_WARN_IN(reading,
                    "Invalid value - min_vol_sessions = %d, max_volsessions = %d  in oxr.conf.Changing "
                    "min_vol_sesions to default value of %d.",
                    static_cast<int>(values.min_vol_sessions), static_cast<int>(values.max_vol_sessions),
                    static_cast<int>(default_minimum));
    }

    void vol_sessions_outside(const ConfigValues& values) override {
        OXR_WARN_IN(reading,
                    "Invalid value - vol_sessions should be between min_vol_sessions and max_vol_sessions.Changing "
                    "to min_vol_sessions value of %d.",
                    static_cast<int>(values.min_vol_sessions));
    }
};

// Whether the values may be used and the file may be rewritten; logs the reason if not. `error`: errno of the read.
bool is_fit(ConfigFitness fitness, int error) {
    // A file that was read only partly must not be rewritten without the rest.
    if (error != 0) {
        OXR_ERROR_IN(reading, "%s, reading oxr.conf failed. Keeping the previous values.", oxr::error_text(error));
        return false;
    }
    switch (fitness) {
        case ConfigFitness::fit:
            return true;
        case ConfigFitness::has_comments:
            OXR_ERROR_IN(reading, "oxr.conf has comment lines, so it is not in the old format. Not converting it.");
            return false;
        case ConfigFitness::not_converted:
            OXR_ERROR_IN(reading, "oxr.conf is in the old format and has not been converted. Leaving it as it is.");
            return false;
    }
    return false;
}

// Passes the file's lines to the judge. 0, or the errno of the read. An empty file has no values: somebody is about to
// write it, or a full disk truncated it. In either case the defaults must not replace what it held.
int judge_lines(oxr::FileReader& file, ConfigJudge& judge) {
    std::string_view line;
    bool is_empty = true;
    while (file.next_line(line)) {
        is_empty = false;
        judge.take_line(line);
    }
    return file.error() == 0 && is_empty ? ENODATA : file.error();
}

}  // namespace

ConfigRead read_config_file(ConfigValues& values, std::uint32_t conversion) {
    oxr::FileReader file(OSTREL_CONFIG_FILE);
    if (!file.opened()) {
        OXR_ERROR_IN(reading, "%s, fopen() failed on oxr.conf.", oxr::error_text(file.error()));
        return file.error() == ENOENT ? ConfigRead::absent : ConfigRead::refused;
    }
    const bool converting = conversion != CONFIG_NORMAL;
    LoggingObserver observer;
    ConfigJudge judge(converting, observer);
    const int error = judge_lines(file, judge);
    if (!is_fit(judge.fitness(), error)) {
        return ConfigRead::refused;
    }
    judge.finish();
    values = judge.values();
    if (judge.has_logs_path()) {
        get_logs_path(values.ostrel_logs_path);
    }
    log_level.store(values.log_level, std::memory_order_relaxed);

    if (judge.wants_rewrite() && set_value_in_file(&values) != 0) {
        OXR_ERROR_IN(reading, "%s", "failed to set values in oxr.conf");
        return ConfigRead::not_rewritten;
    }
    return ConfigRead::read;
}

int OSTREL_GetConfigValues(ConfigValues* values, std::uint32_t conversion) {
    return read_config_file(*values, conversion) == ConfigRead::read ? 0 : -1;
}
