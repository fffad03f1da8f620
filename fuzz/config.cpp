// The configuration file, the logs path in it and the version file: any text gives values within their bounds, and
// what is written back reads as the same values and isn't written again.
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <optional>

#include "OstrelProvider/config.h"
#include "OstrelProvider/log_level.h"
#include "OstrelProvider/logs_path.h"
#include "OstrelProvider/service.h"
#include "common/file_reader.h"
#include "configuration/config_keys.h"
#include "configuration/logs_path_rule.h"
#include "support/host.h"
#include "tests/support/config_text.h"

namespace {

using testing_support::config_text;

// The host with its files; the version file is another name of the configuration file.
struct ConfigSite {
    const std::unique_ptr<simhost::Host> host = fuzz::make_host();

    ConfigSite() {
        fuzz::require(::symlink("oxr.conf", host->path("/etc/ostrel/oxdversion.txt").c_str()) == 0, "no version file");
        fuzz::require(::mkdir(host->path("/vmfs/volumes/logs of 2").c_str(), 0755) == 0, "no folder for logs");
    }
    void put(std::string_view text) const { host->write_file(OSTREL_CONFIG_FILE, text); }
    std::string text() const { return host->read_file(OSTREL_CONFIG_FILE); }
};

bool within(std::uint32_t value, std::uint32_t low, std::uint32_t high) {
    return low <= value && value <= high;
}

void require_bounds(const ConfigValues& values) {
    for (const ConfigKey& key : config_keys) {
        fuzz::require(key.number == nullptr || within(values.*key.number, key.low, key.high), key.name.data());
    }
    fuzz::require(values.min_vol_sessions <= values.max_vol_sessions, "min_vol_sessions");
    fuzz::require(
        values.vol_sessions == 0 || within(values.vol_sessions, values.min_vol_sessions, values.max_vol_sessions),
        "vol_sessions");
    fuzz::require(log_level.load() == values.log_level, "log_level");
    const std::size_t length = strnlen(values.ostrel_logs_path, sizeof values.ostrel_logs_path);
    fuzz::require(within(static_cast<std::uint32_t>(length), 1, MAX_LOGS_PATH), "ostrel_logs_path");
    fuzz::require(::access(values.ostrel_logs_path, F_OK) == 0, "ostrel_logs_path doesn't exist");
}

// Its values, which are within their bounds; none when the file isn't read.
std::optional<ConfigValues> read(const ConfigSite& site) {
    ConfigValues values;
    int result;
    {
        const oxr::MutexLock lock(config_file_mutex);
        result = OSTREL_GetConfigValues(&values, CONFIG_NORMAL);
    }
    fuzz::require_nothing_held(*site.host);
    if (result != 0) {
        fuzz::require(config_text(values) == config_text(), "a refused file gives values");
        return std::nullopt;
    }
    require_bounds(values);
    return values;
}

// What was written reads as the same values and isn't written again.
void require_fixed_point(const ConfigSite& site, const ConfigValues& values) {
    fuzz::require(site.text() == config_text(values), "written in another form", site.text());
    const std::uint64_t writes = site.host->calls("write");
    const auto again = read(site);
    fuzz::require(again && config_text(*again) == config_text(values), "read again, it has other values", site.text());
    fuzz::require(site.host->calls("write") == writes, "written again");
}

bool has_comment_line() {
    oxr::FileReader file(OSTREL_CONFIG_FILE);
    std::string_view line;
    while (file.next_line(line)) {
        if (oxr::is_comment_line(line)) {
            return true;
        }
    }
    return false;
}

// Only an empty file and one that still waits for its conversion are refused, and they are left alone.
void read_values(const ConfigSite& site, std::string_view text) {
    const auto values = read(site);
    if (!values) {
        fuzz::require(site.text() == text, "a refused file is changed");
        fuzz::require(text.empty() || (!has_comment_line() && text.find(':') != std::string_view::npos),
                      "a file is refused");
    } else if (site.text() != text) {
        require_fixed_point(site, *values);
    }
}

void read_versions(std::string_view text) {
    char version[VERSION_TEXT_SIZE] = {};
    const int result = getOxdVersion(version);
    fuzz::require(result == 1 || result == -1, "version result");
    fuzz::require(version[VERSION_TEXT_SIZE - 1] == '\0', "version isn't terminated");
    fuzz::require(text.find(std::string(version, strnlen(version, sizeof version))) != std::string_view::npos,
                  "version isn't from the file");
}

void read_log_filename() {
    char filename[LOG_FILENAME_SIZE];
    const std::string_view name = get_log_filename(filename);
    fuzz::require(name.size() < LOG_FILENAME_SIZE && name.ends_with("/oxr.log"), "log file name", std::string(name));
}

// A file without comments is in the old format and comes back in the present one; any other and an empty one are left
// alone.
void convert(const ConfigSite& site, std::string_view text) {
    const bool is_old = !text.empty() && !has_comment_line();
    {
        const oxr::MutexLock lock(config_file_mutex);
        OSTREL_CreateConfigFile();
    }
    if (!is_old) {
        fuzz::require(site.text() == text, "a file that isn't in the old format is converted");
        return;
    }
    const auto values = read(site);
    fuzz::require(values && site.text() == config_text(*values), "not converted to the present form", site.text());
    fuzz::require(values->interval == 120 && values->vmknic_count == 0, "what a conversion gives up");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const ConfigSite site;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    site.put(text);
    read_versions(text);
    read_log_filename();
    convert(site, text);
    site.put(text);
    read_values(site, text);
    return 0;
}
