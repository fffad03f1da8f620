#include "soak/operator.h"

#include <algorithm>
#include <vector>

#include "common/text.h"
#include "configuration/config_keys.h"
#include "configuration/config_text.h"

namespace soak {

namespace {

std::string text_of(const ConfigValues& values) {
    char text[CONFIG_TEXT_SIZE];
    return {text, compose_config(text, ConfigForm::rewritten, values)};
}

// Whether the file has every key once, and so all that a reader needs.
bool is_whole(const std::string& text) {
    for (const ConfigKey& key : config_keys) {
        const std::string line = "\n" + std::string(key.name) + "=";
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
    values.max_vol_sessions = static_cast<std::uint32_t>(site_.large() ? dice_.any(8, 12) : dice_.any(6, 16));
    if (dice_.one_in(3)) {
        values.vol_sessions = static_cast<std::uint32_t>(
            dice_.any(static_cast<int>(values.min_vol_sessions), static_cast<int>(values.max_vol_sessions)));
    }
    // More than a large site's host can have.
    if (site_.large() && dice_.one_in(2)) {
        values.vol_sessions = values.max_vol_sessions;
    }
    values.min_pe_sessions = static_cast<std::uint32_t>(dice_.any(4, 8));
    values.max_pe_sessions = static_cast<std::uint32_t>(dice_.any(6, 24));
    values.vmknic_count = dice_.one_in(5) ? static_cast<std::uint32_t>(dice_.any(1, 6)) : 0;
    values.log_level = dice_.one_in(8) ? 2 : 1;
    if (site_.has_deep_logs() && dice_.one_in(3)) {
        oxr::copy_text(values.ostrel_logs_path, DEEP_LOGS);
    }
    return values;
}

// The file as it was is no longer looked at.
void Operator::leave() {
    edited_.clear();
    read_ = false;
}

std::vector<std::string> Operator::edits(bool hold_off_worker) {
    leave();
    values_ = any_values();
    values_.worker_stop = hold_off_worker ? 1 : 0;
    edited_ = "# by hand\n" + text_of(values_);
    return {quoted(edited_)};
}

std::vector<std::string> Operator::removals() {
    leave();
    return {"true"};
}

std::vector<std::string> Operator::damages() {
    leave();
    const std::string text = "# by hand\n" + text_of(any_values());
    // Cut off ahead of the logs path, a part of which wouldn't be a path of this host.
    const auto part = [&] {
        const auto most = static_cast<int>(text.find("ostrel_logs_path="));
        return text.substr(0, static_cast<std::size_t>(dice_.any(0, most)));
    };
    std::vector<std::string> texts{
        part(),
        without_line(text, "use_ostrel_timeouts"),
        text + "interval=" + std::to_string(dice_.any(-5, 59)) + "\n",
        text + "min_vol_sessions=30\nvol_sessions=77\nlog_level=9\n",
        "interval:300\nvol_sessions:4\nvmknic_count:2\n",
        "",
        part() + "\x01\xc2\x80=\n=\n" + std::string(600, 'x') + "=4\n" + text,
        text + "max_vol_sessions=\nostrel_logs_path=/var/log/ostrel/absent\n",
        without_line(without_line(text, "ostrel_logs_path"), "interval"),
    };
    std::transform(texts.begin(), texts.end(), texts.begin(), quoted);
    return texts;
}

std::string Operator::look(bool disturbed) const {
    const std::string text = site_.host().read_file(OSTREL_CONFIG_FILE);
    const bool exists = site_.host().exists(OSTREL_CONFIG_FILE);
    if (!edited_.empty() && !exists) {
        return "oxr.conf is gone";
    }
    if (!edited_.empty()) {
        return text == edited_ ? "" : "a valid edit of oxr.conf is lost";
    }
    // An absent file is made at service start only.
    if (!read_ || disturbed || !exists || is_whole(text)) {
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
