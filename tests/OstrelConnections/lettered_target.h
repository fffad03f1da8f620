// A target of make_site() whose sessions are written as letters, with its record and theirs. It is seen by the adapters
// named.
//   d dynamic, b the same in FREE, x in XPT_WAIT, i in IN_LOGIN; s static; p login pending
//   1 and 2 (vmhba64), 3 and 4 (vmhba65): the NIC of the sessions behind it; before any it is 1.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "OstrelConnections/inventory/session_inventory.h"
#include "simhost/host.h"

struct LetteredTarget {
    std::unique_ptr<simhost::Host> host;
    std::string iqn;
    std::vector<simhost::SessionView> before;
    OxrLun lun{};
    TargetDtls records[MAX_SESSIONS_PER_TARGET] = {};

    explicit LetteredTarget(std::string_view letters, const simhost::Fault& fault = {});
    // Which of the sessions are gone, by position: "02".
    std::string gone() const;
    // NICs of the sessions made since, in order: "31".
    std::string added() const;
};
