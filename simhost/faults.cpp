#include "simhost/faults.h"

namespace simhost {

std::optional<Fault> FaultBook::hit(std::string_view operation, std::string_view path) {
    auto found = operations_.find(operation);
    if (found == operations_.end()) {
        found = operations_.emplace(operation, CountedOperation{}).first;
    }
    CountedOperation& entry = found->second;
    ++entry.calls;
    if (!path.empty()) {
        auto of_path = entry.calls_by_path.find(path);
        if (of_path == entry.calls_by_path.end()) {
            of_path = entry.calls_by_path.emplace(path, 0).first;
        }
        ++of_path->second;
    }
    std::optional<Fault> answer;
    for (std::size_t i = 0; i < entry.armed.size();) {
        Armed& armed = entry.armed[i];
        const std::string& part = armed.fault.path_contains;
        if (!part.empty() && path.find(part) == std::string_view::npos) {
            ++i;
            continue;
        }
        ++armed.seen;
        const bool fires = armed.fault.persistent ? armed.seen >= armed.fault.nth : armed.seen == armed.fault.nth;
        if (!fires) {
            ++i;
            continue;
        }
        if (!answer) {
            answer = armed.fault;
            ++injected_;
        }
        if (armed.fault.persistent) {
            ++i;
        } else {
            entry.armed.erase(entry.armed.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
    return answer;
}

void FaultBook::set(const Fault& fault) {
    operations_[fault.operation].armed.push_back({fault, 0});
}

void FaultBook::clear() {
    for (auto& [name, operation] : operations_) {
        operation.armed.clear();
    }
}

std::uint64_t FaultBook::calls(std::string_view operation, std::string_view path_contains) const {
    const auto found = operations_.find(operation);
    if (found == operations_.end()) {
        return 0;
    }
    if (path_contains.empty()) {
        return found->second.calls;
    }
    std::uint64_t calls = 0;
    for (const auto& [path, of_path] : found->second.calls_by_path) {
        calls += path.find(path_contains) != std::string::npos ? of_path : 0;
    }
    return calls;
}

std::vector<std::string> FaultBook::called() const {
    std::vector<std::string> names;
    for (const auto& [name, operation] : operations_) {
        if (operation.calls > 0) {
            names.push_back(name);
        }
    }
    return names;
}

}  // namespace simhost
