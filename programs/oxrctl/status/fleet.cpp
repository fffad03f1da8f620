#include "oxrctl/status/fleet.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <thread>

#include "oxrctl/status/story_views.h"
#include "oxrctl/text.h"
#include "simhost/limits.h"

namespace oxrctl {

namespace {

struct Sum {
    std::array<std::size_t, 4> hosts{};  // by health
    std::int64_t volumes = 0, short_targets = 0, sessions = 0, paths = 0;
};

Sum sum_of(const std::vector<HostRow>& rows) {
    Sum sum;
    for (const HostRow& row : rows) {
        ++sum.hosts[static_cast<std::size_t>(row.judgement.health)];
        sum.volumes += std::max(row.volumes, 0);
        sum.short_targets += std::max(row.short_targets, 0);
        sum.sessions += std::max(row.sessions, 0);
        sum.paths += std::max(row.paths, 0);
    }
    return sum;
}

// "2 critical, 1 warning, 297 well".
std::string hosts_text(const Sum& sum) {
    std::vector<std::string> parts;
    for (const Health health : {Health::critical, Health::unknown, Health::warning, Health::well}) {
        if (const std::size_t hosts = sum.hosts[static_cast<std::size_t>(health)]; hosts > 0) {
            parts.push_back(fmt::format("{} {}", hosts, health_word(health)));
        }
    }
    return fmt::format("{}", fmt::join(parts, ", "));
}

std::string room(int value, int limit) {
    return value == TargetStory::unknown ? "-" : std::to_string(limit - value);
}

}  // namespace

HostRow host_row(const std::string& host, const Story& story, const Judgement& judgement, const Clock& clock) {
    HostRow row;
    row.host = host;
    row.judgement = judgement;
    if (story.last.time != NO_TIME) {
        row.age = clock.now - story.last.time;
    }
    row.last_pass = story.last_pass;
    row.volumes = story.volumes;
    row.short_targets = short_targets(story);
    row.sessions = story.sessions;
    row.paths = story.paths;
    row.worker_stop = value_of(story, "worker_stop");
    return row;
}

HostRow unread_host(const std::string& host, const std::string& problem) {
    HostRow row;
    row.host = host;
    row.problem = problem;
    row.judgement = {Health::unknown, {not_read(problem)}};
    return row;
}

void for_each_side_by_side(std::size_t number, const std::function<void(std::size_t)>& use) {
    std::atomic<std::size_t> next{0};
    const auto work = [&] {
        for (std::size_t i = next++; i < number; i = next++) {
            use(i);
        }
    };
    std::vector<std::jthread> threads;
    const std::size_t wanted = std::min<std::size_t>(std::max(std::thread::hardware_concurrency(), 1U), number);
    while (threads.size() + 1 < wanted) {
        threads.emplace_back(work);
    }
    work();
}

void sort_rows(std::vector<HostRow>& rows) {
    std::stable_sort(rows.begin(), rows.end(), [](const HostRow& a, const HostRow& b) {
        return is_worse(a.judgement.health, b.judgement.health);
    });
}

std::string fleet_text(const std::vector<HostRow>& rows) {
    Columns table("lllrrrrrr", "");
    table.add({"host", "health", "age", "volumes", "short", "sessions", "room", "paths", "room", "stop", "reason"});
    for (const HostRow& row : rows) {
        table.add({printable(row.host), std::string(health_word(row.judgement.health)),
                   row.age ? age_text(*row.age) : "-", number_or_dash(row.volumes), number_or_dash(row.short_targets),
                   number_or_dash(row.sessions), room(row.sessions, simhost::MAX_SESSIONS), number_or_dash(row.paths),
                   room(row.paths, simhost::MAX_PATHS), row.worker_stop.empty() ? "-" : printable(row.worker_stop),
                   reason_line(row.judgement)});
    }
    const Sum sum = sum_of(rows);
    return table.text() + "\n" +
           wrapped("",
                   fmt::format("{}: {}; {}, {} short; {} sessions, {} paths", count_of(rows.size(), "host", "hosts"),
                               hosts_text(sum), count_of(static_cast<std::size_t>(sum.volumes), "volume", "volumes"),
                               sum.short_targets, sum.sessions, sum.paths));
}

std::string fleet_line(const std::vector<HostRow>& rows) {
    const Sum sum = sum_of(rows);
    const HostRow& worst = rows.front();
    const std::string reason = reason_line(worst.judgement);
    return fmt::format("OSTREL {} - {}{} | volumes={} short={} sessions={} paths={}\n",
                       plugin_word(worst.judgement.health), hosts_text(sum),
                       reason.empty() ? "" : plugin_text("; " + worst.host + ": " + reason), sum.volumes,
                       sum.short_targets, sum.sessions, sum.paths);
}

Json fleet_json(const std::vector<HostRow>& rows) {
    Json hosts = Json::array();
    for (const HostRow& row : rows) {
        hosts.push_back({{"host", row.host},
                         {"health", health_word(row.judgement.health)},
                         {"reasons", reasons_json(row.judgement)},
                         {"problem", row.problem.empty() ? Json() : Json(row.problem)},
                         {"age_seconds", row.age ? Json(*row.age) : Json()},
                         {"last_pass", row.last_pass.empty() ? Json() : Json(row.last_pass)},
                         {"volumes", number_or_null(row.volumes)},
                         {"short", number_or_null(row.short_targets)},
                         {"sessions", number_or_null(row.sessions)},
                         {"paths", number_or_null(row.paths)},
                         {"worker_stop", row.worker_stop.empty() ? Json() : Json(row.worker_stop)}});
    }
    const Sum sum = sum_of(rows);
    Json health = Json::object();
    for (const Health each : {Health::critical, Health::unknown, Health::warning, Health::well}) {
        health[std::string(health_word(each))] = sum.hosts[static_cast<std::size_t>(each)];
    }
    return {{"version", JSON_VERSION},
            {"hosts", std::move(hosts)},
            {"sum",
             {{"health", std::move(health)},
              {"volumes", sum.volumes},
              {"short", sum.short_targets},
              {"sessions", sum.sessions},
              {"paths", sum.paths}}}};
}

}  // namespace oxrctl
