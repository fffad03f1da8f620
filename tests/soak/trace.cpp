#include "soak/trace.h"

#include <fmt/format.h>

#include <cstdio>
#include <map>
#include <string>

#include "soak/site.h"

namespace soak {

namespace {

// By Event::Kind.
constexpr const char* kinds[] = {"session added",
                                 "session removed",
                                 "session lost",
                                 "session state",
                                 "path claimed",
                                 "path died",
                                 "dead path deleted",
                                 "adapter rescanned",
                                 "dead paths requested",
                                 "rediscovered",
                                 "static target removed",
                                 "mode switched",
                                 "pass begun",
                                 "pass ended",
                                 "sleep begun",
                                 "action",
                                 "fault",
                                 "VIOLATION"};
static_assert(std::size(kinds) == static_cast<std::size_t>(simhost::Event::Kind::violation) + 1);

}  // namespace

void trace(simhost::Host& host) {
    host.observe([&host, told = std::map<std::string, std::size_t>()](const simhost::Event& event) mutable {
        for (const std::string folder : {"/var/log/ostrel", DEEP_LOGS}) {
            const std::string text = host.read_file(folder + "/oxr.log");
            std::size_t& bytes = told[folder];
            bytes = bytes > text.size() ? 0 : bytes;  // it began anew
            fmt::print("{}", text.substr(bytes));
            bytes = text.size();
        }
        fmt::print("{:12.3f}  {} {} {} {}\n", event.time, kinds[static_cast<std::size_t>(event.kind)], event.target,
                   event.adapter, event.text);
    });
}

}  // namespace soak
