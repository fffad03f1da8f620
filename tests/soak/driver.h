// Drives the library on a host: cycle after cycle on one thread, or by its own worker.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "soak/watch.h"

namespace soak {

struct RenewalCall {
    std::vector<std::string> targets;
    bool digests = false;
    bool enable = false;
};

class Driver {
public:
    virtual ~Driver() = default;
    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;

    virtual void start() = 0;
    virtual void stop() = 0;
    virtual bool running() const = 0;
    // Lets cycles come and go until that moment.
    virtual void run_until(double seconds) = 0;
    // Runs to the end of so many cycles.
    virtual void run_cycles(int count) = 0;
    // To the end of a cycle that is under way.
    virtual void finish_cycle() {}
    // Stops somewhere inside one of the next passes; then nothing runs.
    virtual void stop_in_pass() = 0;
    // The renewal method's OXD status. No cycle comes meanwhile.
    virtual std::uint32_t renew(const RenewalCall& call) = 0;
    // The method "setvalue".
    void set_value(const std::string& name, std::uint32_t value);

protected:
    Driver(Site& site, Dice& dice, Watch& watch) : host_(site.host()), dice_(dice), watch_(watch) {}
    std::uint32_t call_renewal(const RenewalCall& call);

    simhost::Host& host_;
    Dice& dice_;
    Watch& watch_;
};

std::unique_ptr<Driver> make_direct_driver(Site& site, Dice& dice, Watch& watch);
std::unique_ptr<Driver> make_worker_driver(Site& site, Dice& dice, Watch& watch);

}  // namespace soak
