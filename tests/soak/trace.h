// Tells a run as it goes: the host's events, and the log as it is written.
#pragma once

#include <map>
#include <string>

#include "simhost/host.h"

namespace soak {

class Trace {
public:
    explicit Trace(simhost::Host& host);

private:
    simhost::Host& host_;
    std::map<std::string, std::size_t> told_;  // bytes of each log file

    void tell(const simhost::Event& event);
    void tell_log(const std::string& folder);
};

}  // namespace soak
