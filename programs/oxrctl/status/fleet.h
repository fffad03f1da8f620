// The logs of many hosts: one row each.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "oxrctl/command.h"
#include "oxrctl/status/health.h"
#include "oxrctl/status/log_files.h"
#include "oxrctl/status/log_sources.h"

namespace oxrctl {

struct HostRow {
    std::string host;
    std::string problem;  // why the log could not be read; empty: it was
    Judgement judgement;
    std::optional<LogSeconds> age;
    std::string last_pass;
    int volumes = TargetStory::unknown, short_targets = TargetStory::unknown;
    int sessions = TargetStory::unknown, paths = TargetStory::unknown;
    std::string worker_stop;  // as logged; empty: not told
};

// The row of a host whose log was read.
HostRow host_row(const std::string& host, const Story& story, const Judgement& judgement, const Clock& clock);
HostRow unread_host(const std::string& host, const std::string& problem);

// Calls `use` with each index below `number`, on all processors, and waits. `use` must be thread-safe.
void for_each_side_by_side(std::size_t number, const std::function<void(std::size_t)>& use);

// The worst first.
void sort_rows(std::vector<HostRow>& rows);

std::string fleet_text(const std::vector<HostRow>& rows);
std::string fleet_line(const std::vector<HostRow>& rows);  // for a monitoring plug-in
Json fleet_json(const std::vector<HostRow>& rows);

}  // namespace oxrctl
