// The providers of the linked objects behind a broker, on a small site, for targets that call them as a CIM server
// does. No worker runs between two inputs.
#pragma once

#include <string>
#include <string_view>

#include "cimserver/broker/broker.h"
#include "support/site.h"

namespace fuzz {

class Providers {
public:
    static Providers& get();

    const cimserver::Broker& broker() const { return *broker_; }

    // The site and the configuration file, anew. Without `threads` none can be created: neither a worker nor a
    // renewal.
    FuzzedSite& begin(std::string_view config, bool threads);

    // Stops what was started and holds all to what must be true after any operation: nothing is held, every object
    // was freed, and the configuration file is whole.
    void finish();

private:
    Providers();
    void require_whole_config() const;

    std::unique_ptr<cimserver::Broker> broker_;
    FuzzedSite* site_ = nullptr;
    std::string config_;  // as it was put
};

// Configurations to begin with; a number beyond picks the first.
std::string_view config_of(unsigned number);

}  // namespace fuzz
