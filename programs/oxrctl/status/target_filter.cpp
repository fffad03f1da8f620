#include "oxrctl/status/target_filter.h"

#include <fmt/format.h>
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

template <typename Wanted>
std::set<std::string> iqns_of(const Story& story, Wanted is_wanted) {
    std::set<std::string> iqns;
    for (const auto* const targets : {&story.targets, &story.gone}) {
        for (const TargetStory& target : *targets) {
            if (is_wanted(target)) {
                iqns.insert(target.iqn);
            }
        }
    }
    return iqns;
}

}  // namespace

bool TargetFilter::apply(Story& story) const {
    const auto is_other = [this, named = iqns_of(story, [this](const TargetStory& target) {
                                     return volume.empty() || is_named(volume, target);
                                 })](const TargetStory& target) {
        return !named.contains(target.iqn) || (!adapter.empty() && !is_at(adapter, target));
    };
    std::erase_if(story.targets, is_other);
    std::erase_if(story.gone,
                  [&](const TargetStory& target) { return is_other(target) || (volume.empty() && !target.untold); });
    const bool is_any = !story.targets.empty() || !story.gone.empty();
    if (problems) {
        std::erase_if(story.targets, [&story](const TargetStory& target) { return !has_problem(story, target); });
    }
    if (is_set()) {
        const std::set<std::string> shown = iqns_of(story, [](const TargetStory&) { return true; });
        std::erase_if(story.changes, [&shown](const ChangeStory& change) { return !shown.contains(change.target); });
    }
    return is_any || (volume.empty() && adapter.empty());
}

std::string TargetFilter::text() const {
    std::vector<std::string> parts;
    if (!volume.empty()) {
        parts.push_back("named " + volume);
    }
    if (!adapter.empty()) {
        parts.push_back("at adapter " + adapter);
    }
    if (problems) {
        parts.emplace_back("with a problem");
    }
    return fmt::format("{}", fmt::join(parts, ", "));
}

}  // namespace oxrctl
