#include "soak/operator.h"

#include <algorithm>
#include <vector>

#include "common/text.h"
#include "configuration/config_text.h"

namespace soak {

namespace {

constexpr char datastore_logs[] = "/vmfs/volumes/datastore/logs";

std::string text_of(const ConfigValues& values) {
    char text[CONFIG_TEXT_SIZE];
    return {text, compose_config(text, ConfigForm::rewritten, values)};
}

// Whether the file has every key once, and so all that a reader needs.
bool is_whole(const std::string& text) {
    for (const char* key :
         {"interval", "min_vol_sessions", "max_vol_sessions", "vol_sessions", "min_pe_sessions", "max_pe_sessions",
          "log_level", "vmknic_count", "worker_stop", "use_ostrel_timeouts", "ostrel_logs_path"}) {
        const std::string line = "\n" + std::string(key) + "=";
        const std::size_t found = text.find(line);
        if (found == std::string::npos || text.find(line, found + 1) != std::string::npos) {
            return false;
        }
    }
    return true;
}

std::string without_line(std::string text, const std::string& key) {
    const std::size_t begin = text.find("\n" + key + "=");
    return begin == std::string::npos ? text : text.erase(begin, text.find('\n', begin + 1) - begin);
}

}  // namespace

ConfigValues Operator::any_values() {
    ConfigValues values;
    const std::vector<std::uint32_t> intervals{60, 60, 120, 120, 120, 300, 900};
    values.interval = dice_.pick(intervals);
    values.min_vol_sessions = static_cast<std::uint32_t>(dice_.any(2, 5));
    values.max_vol_sessions = static_cast<std::uint32_t>(site_.large ? dice_.any(8, 12) : dice_.any(6, 16));
    if (dice_.one_in(3)) {
        values.vol_sessions = static_cast<std::uint32_t>(
            dice_.any(static_cast<int>(values.min_vol_sessions), static_cast<int>(values.max_vol_sessions)));
    }
    // More than a large site's host can have.
    if (site_.large && dice_.one_in(2)) {
        values.vol_sessions = values.max_vol_sessions;
    }
    values.min_pe_sessions = static_cast<std::uint32_t>(dice_.any(4, 8));
    values.max_pe_sessions = static_cast<std::uint32_t>(dice_.any(6, 24));
    values.vmknic_count = dice_.one_in(5) ? static_cast<std::uint32_t>(dice_.any(1, 6)) : 0;
    values.log_level = dice_.one_in(8) ? 2 : 1;
    if (dice_.one_in(5)) {
        oxr::copy_text(values.ostrel_logs_path, datastore_logs);
    }
    return values;
}

void Operator::write(const std::string& text) {
    edited_.clear();
    read_ = false;
    site_.host->write_file(OSTREL_CONFIG_FILE, text);
}

void Operator::edit(const ConfigValues& values) {
    const std::string text = "# by hand\n" + text_of(values);
    write(text);
    edited_ = text;
    values_ = values;
}

void Operator::edit(bool hold_off_worker) {
    ConfigValues values = any_values();
    values.worker_stop = hold_off_worker ? 1 : 0;
    edit(values);
}

void Operator::damage() {
    const std::string text = "# by hand\n" + text_of(any_values());
    const auto part = [&] {
        return text.substr(0, static_cast<std::size_t>(dice_.any(0, static_cast<int>(text.size()))));
    };
    switch (dice_.any(1, 9)) {
        case 1:
            return write(part());
        case 2:
            return write(without_line(text, "use_ostrel_timeouts"));
        case 3:
            return write(text + "interval=" + std::to_string(dice_.any(-5, 59)) + "\n");
        case 4:
            return write(text + "min_vol_sessions=30\nvol_sessions=77\nlog_level=9\n");
        case 5:
            return write("interval:300\nvol_sessions:4\nvmknic_count:2\n");
        case 6:
            return write("");
        case 7:
            return write(part() + std::string("\0\xff\x80=\n=\n", 7) + std::string(600, 'x') + "=4\n" + text);
        case 8:
            return write(text + "max_vol_sessions=\nostrel_logs_path=/nowhere\n");
        default:
            return write(without_line(without_line(text, "ostrel_logs_path"), "interval"));
    }
}

void Operator::remove() {
    edited_.clear();
    site_.host->remove_file(OSTREL_CONFIG_FILE);
}

std::string Operator::look(bool disturbed) const {
    const std::string text = site_.host->read_file(OSTREL_CONFIG_FILE);
    if (!edited_.empty() && !site_.host->exists(OSTREL_CONFIG_FILE)) {
        return "oxr.conf is gone";
    }
    if (!edited_.empty()) {
        return text == edited_ ? "" : "a valid edit of oxr.conf is lost";
    }
    // An absent file is made at service start only.
    if (!read_ || disturbed || !site_.host->exists(OSTREL_CONFIG_FILE) || is_whole(text)) {
        return "";
    }
    // An empty file is left alone, one of the old format until the next start.
    if (text.empty() || (text.find('=') == std::string::npos && text.find("interval:") != std::string::npos)) {
        return "";
    }
    // What a reading finds no need to correct stays, e.g. a missing key that has a default.
    const bool needs_rewriting =
        text.find("use_ostrel_timeouts=") == std::string::npos || text.find("ostrel_logs_path=") == std::string::npos;
    return needs_rewriting ? "oxr.conf isn't whole after a reading" : "";
}

}  // namespace soak
