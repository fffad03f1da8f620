#include "oxrctl/status/target_filter.h"

#include <fnmatch.h>

#include <algorithm>
#include <set>

#include "oxrctl/status/health.h"

namespace oxrctl {

namespace {

bool is_named(const std::string& pattern, const TargetStory& target) {
    const auto fits = [&pattern](const std::string& name) { return ::fnmatch(pattern.c_str(), name.c_str(), 0) == 0; };
    return fits(target.iqn) || fits(target.iqn.substr(target.iqn.rfind(':') + 1)) ||
           std::any_of(target.devices.begin(), target.devices.end(), fits);
}

bool is_at(const std::string& adapter, const TargetStory& target) {
    return std::find(target.adapters.begin(), target.adapters.end(), adapter) != target.adapters.end() ||
           std::any_of(target.sessions_seen.begin(), target.sessions_seen.end(),
                       [&adapter](const SessionStory& session) { return session.adapter == adapter; });
}

}  // namespace

void TargetFilter::apply(Story& story) const {
    std::erase_if(story.targets, [&](const TargetStory& target) {
        return (!volume.empty() && !is_named(volume, target)) || (!adapter.empty() && !is_at(adapter, target)) ||
               (problems && !has_problem(story, target));
    });
    std::set<std::string> names;
    for (const TargetStory& target : story.targets) {
        names.insert(target.iqn);
    }
    if (is_set()) {
        std::erase_if(story.changes, [&names](const ChangeStory& change) { return !names.contains(change.target); });
    }
}

}  // namespace oxrctl
