// What the targets share: hosts without a log file, and checks that end the process as a crash does.
#pragma once

#include <memory>
#include <string>

#include "simhost/host.h"

namespace fuzz {

// Ends the process when it doesn't hold, naming what was broken and what was found.
void require(bool holds, const char* what, const std::string& found = {});

// A host whose log messages are formatted and then lost: nothing is written.
std::unique_ptr<simhost::Host> make_host(simhost::HostOptions options = {});

// No IMA list, no descriptor and no shared mutex is held, and nothing was given back twice.
void require_nothing_held(const simhost::Host& host);

}  // namespace fuzz
