// The metrics of hosts in Prometheus's text format, as the node exporter's textfile collector reads them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "oxrctl/status/health.h"
#include "oxrctl/status/log_story.h"

namespace oxrctl {

// How far each log has been counted, and the counters until there.
struct MetricsMemory {
    std::map<std::string, LogPosition> positions;  // by host
    std::map<std::string, std::int64_t> counters;  // by name and labels, as they stand in the page
};

// Of the page in `file`; nothing when there is no such file. Throws a Refusal for a file that isn't such a page.
MetricsMemory read_metrics(const std::string& file);

struct MetricFamily;
struct MetricSample {
    const MetricFamily* family;
    std::string labels;  // "{...}", or empty
    std::int64_t value;
};

// `host` is a label of each, unless it is empty.
std::vector<MetricSample> metrics_of(const std::string& host, const Story& story, const Judgement& judgement,
                                     bool per_volume);
std::vector<MetricSample> metrics_of_unread(const std::string& host, const Judgement& judgement);

struct VersionLabels {
    std::string oxrctl, oxd, psp;
};

// The page. Counters go on from `memory`, whose positions become those of the page.
std::string metrics_page(const std::vector<MetricSample>& samples, const MetricsMemory& memory,
                         const VersionLabels& versions);

// Writes the page under another name beside the file and renames it, so that a reader sees all of it or none.
void write_metrics(const std::string& file, const std::string& page);

}  // namespace oxrctl
