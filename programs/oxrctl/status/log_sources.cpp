#include "oxrctl/status/log_sources.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "oxrctl/command.h"

namespace oxrctl {

namespace {

namespace fs = std::filesystem;

constexpr char LOG_NAME[] = "oxr.log";

// A log is named after its folder, unless it has a name of its own.
std::string host_of(const fs::path& log) {
    std::error_code error;
    const fs::path whole = fs::absolute(log, error);
    const std::string folder = whole.parent_path().filename().string();
    return whole.filename() == LOG_NAME && !folder.empty() ? folder : whole.filename().string();
}

void add_folder(const fs::path& folder, const std::string& host, Logs& logs) {
    std::vector<LogSource>& sources = logs.sources;
    std::error_code error;
    if (fs::exists(folder / LOG_NAME, error)) {
        sources.push_back({host.empty() ? host_of(folder / LOG_NAME) : host, folder / LOG_NAME});
        return;
    }
    std::vector<LogSource> found;
    bool is_of_hosts = false;
    for (const auto& each : fs::directory_iterator(folder, error)) {
        if (each.is_directory(error) && !each.path().filename().string().starts_with('.')) {
            const bool has_log = fs::exists(each.path() / LOG_NAME, error);
            found.push_back({each.path().filename(), has_log ? each.path() / LOG_NAME : each.path()});
            is_of_hosts |= has_log;
        }
    }
    if (!is_of_hosts) {
        sources.push_back({host.empty() ? host_of(folder / LOG_NAME) : host, folder});
        return;
    }
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.host < b.host; });
    sources.insert(sources.end(), found.begin(), found.end());
    logs.of_hosts = true;
}

// "HOST=LOG", unless all of it is a path that is there.
LogSource named(const std::string& given) {
    std::error_code error;
    const std::size_t equals = given.find('=');
    if (equals == 0 || equals == std::string::npos || fs::exists(given, error)) {
        return {"", given};
    }
    return {given.substr(0, equals), given.substr(equals + 1)};
}

}  // namespace

Logs find_logs(const std::vector<std::string>& given) {
    Logs logs{{}, given.size() > 1};
    std::vector<LogSource>& sources = logs.sources;
    std::error_code error;
    for (const std::string& each : given) {
        const LogSource source = named(each);
        if (source.file.empty()) {
            throw Refusal(fmt::format("'{}' names no log", each));
        }
        if (source.file == "-") {
            sources.push_back({source.host.empty() ? "-" : source.host, "-"});
        } else if (fs::is_directory(source.file, error)) {
            add_folder(source.file, source.host, logs);
        } else {
            sources.push_back({source.host.empty() ? host_of(source.file) : source.host, source.file});
        }
    }
    std::set<std::string> hosts;
    for (const LogSource& source : sources) {
        if (!hosts.insert(source.host).second) {
            throw Refusal(fmt::format("{}: two logs are of this host; give each another name, HOST=LOG", source.host));
        }
    }
    return logs;
}

}  // namespace oxrctl
