#include "soak/operator.h"

#include <fmt/format.h>

#include <vector>

#include "common/text.h"
#include "support/config_text.h"

namespace soak {

namespace {

std::string text_of(const ConfigValues& values) {
    return "# by hand\n" + testing_support::config_text(values);
}

std::string without_line(std::string text, const std::string& key) {
    const std::size_t begin = text.find("\n" + key + "=");
    return text.erase(begin, text.find('\n', begin + 1) - begin);
}

std::string in_quotes(std::string_view text) {
    std::string result;
    for (const char each : text) {
        const bool is_control = static_cast<unsigned char>(each) < ' ';
        result += is_control ? fmt::format("\\u{:04x}", int{each}) : std::string(1, each);
    }
    return '"' + result + '"';
}

}  // namespace

ConfigValues Operator::any_values() {
    Dice& dice = site_.dice;
    ConfigValues values;
    values.interval = dice.pick(std::vector{60U, 60U, 120U, 120U, 120U, 300U, 900U});
    values.min_vol_sessions = dice.any(2U, 5U);
    values.max_vol_sessions = site_.large ? dice.any(8U, 12U) : dice.any(6U, 16U);
    if (dice.one_in(3)) {
        values.vol_sessions = dice.any(values.min_vol_sessions, values.max_vol_sessions);
    }
    // More than a large site's host can have.
    if (site_.large && dice.one_in(2)) {
        values.vol_sessions = values.max_vol_sessions;
    }
    values.min_pe_sessions = dice.any(4U, 8U);
    values.max_pe_sessions = dice.any(6U, 24U);
    values.vmknic_count = dice.one_in(5) ? dice.any(1U, 6U) : 0;
    values.log_level = dice.one_in(8) ? 2 : 1;
    if (site_.has_deep_logs && dice.one_in(3)) {
        oxr::copy_text(values.ostrel_logs_path, DEEP_LOGS);
    }
    return values;
}

void Operator::leave() {
    edited_.clear();
    read_ = false;
}

std::string Operator::edit(bool hold_off_worker) {
    leave();
    values_ = any_values();
    values_.worker_stop = hold_off_worker ? 1 : 0;
    edited_ = text_of(values_);
    return in_quotes(edited_);
}

std::string Operator::damage() {
    leave();
    const std::string text = text_of(any_values());
    // Cut off ahead of the logs path, a part of which wouldn't be a path of this host.
    const std::string part = text.substr(0, site_.dice.any<std::size_t>(0, text.find("ostrel_logs_path=")));
    return in_quotes(site_.dice.pick(std::vector<std::string>{
        part,
        without_line(text, "use_ostrel_timeouts"),
        text + "interval=" + std::to_string(site_.dice.any(-5, 59)) + "\n",
        text + "min_vol_sessions=30\nvol_sessions=77\nlog_level=9\n",
        "interval:300\nvol_sessions:4\nvmknic_count:2\n",
        "",
        part + "\x01\xc2\x80=\n=\n" + std::string(600, 'x') + "=4\n" + text,
        text + "max_vol_sessions=\nostrel_logs_path=/var/log/ostrel/absent\n",
        without_line(without_line(text, "ostrel_logs_path"), "interval"),
    }));
}

std::string Operator::look(bool disturbed) const {
    const std::string text = site_.host().read_file(OSTREL_CONFIG_FILE);
    const auto lacks = [&](const char* part) { return text.find(part) == std::string::npos; };
    if (!edited_.empty()) {
        return text == edited_ ? "" : "a valid edit of oxr.conf is lost";
    }
    // A file that is absent is made at service start only, an empty one is left alone, and one of the old format until
    // the next start. What a reading finds no need to correct stays, e.g. a missing key that has a default.
    const bool is_left = text.empty() || (lacks("=") && !lacks("interval:"));
    const bool is_whole = !lacks("use_ostrel_timeouts=") && !lacks("ostrel_logs_path=");
    return !read_ || disturbed || is_left || is_whole ? "" : "oxr.conf isn't whole after a reading";
}

}  // namespace soak
