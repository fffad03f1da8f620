#include "soak/trace.h"

#include <cstdio>

namespace soak {

using simhost::Event;

namespace {

const char* name_of(Event::Kind kind) {
    switch (kind) {
        case Event::Kind::session_added:
            return "session added";
        case Event::Kind::session_removed:
            return "session removed";
        case Event::Kind::session_lost:
            return "session lost";
        case Event::Kind::session_state:
            return "session state";
        case Event::Kind::path_claimed:
            return "path claimed";
        case Event::Kind::path_died:
            return "path died";
        case Event::Kind::dead_path_deleted:
            return "dead path deleted";
        case Event::Kind::adapter_rescanned:
            return "adapter rescanned";
        case Event::Kind::dead_paths_requested:
            return "dead paths requested";
        case Event::Kind::adapter_rediscovered:
            return "adapter rediscovered";
        case Event::Kind::static_target_removed:
            return "static target removed";
        case Event::Kind::mode_switched:
            return "mode switched";
        case Event::Kind::pass_begun:
            return "pass begun";
        case Event::Kind::pass_ended:
            return "pass ended";
        case Event::Kind::sleep_begun:
            return "sleep begun";
        case Event::Kind::action:
            return "action";
        case Event::Kind::fault_injected:
            return "fault";
        case Event::Kind::violation:
            return "VIOLATION";
    }
    return "?";
}

}  // namespace

Trace::Trace(simhost::Host& host) : host_(host) {
    host_.observe([this](const Event& event) { tell(event); });
}

void Trace::tell(const Event& event) {
    tell_log("/var/log/ostrel");
    tell_log("/vmfs/volumes/datastore/logs");
    std::printf("%12.3f  %s %s %s %s\n", event.time, name_of(event.kind), event.target.c_str(), event.adapter.c_str(),
                event.text.c_str());
}

void Trace::tell_log(const std::string& folder) {
    const std::string text = host_.read_file(folder + "/oxr.log");
    std::size_t& told = told_[folder];
    told = told > text.size() ? 0 : told;  // it began anew
    std::fwrite(text.data() + told, 1, text.size() - told, stdout);
    told = text.size();
}

}  // namespace soak
