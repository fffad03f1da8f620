// The management interfaces of this process, behind a broker, without a worker.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cimserver/broker/broker.h"

namespace fault_sweep {

class Providers {
public:
    Providers();  // makes a host for the time of the loading; no other may exist

    // Each answers what the client got: the CIM code; of a renewal "renewed" and the OXD status.
    std::string renew(const std::vector<std::string>& targets, const std::string& name, const std::string& value);
    std::string set_value(const std::string& name, std::uint32_t value);
    std::string enumerate();  // every class, both ways, and the association from its two ends

private:
    std::unique_ptr<cimserver::Broker> broker_;
};

// Loaded at the first call, for the whole process.
Providers& providers();

}  // namespace fault_sweep
