// Drives the library on a host by its service and its methods. The clock goes as far as the horizon; beyond it the
// worker sleeps, and nothing runs but the caller.
#pragma once

#include <string>
#include <vector>

#include "soak/watch.h"

namespace soak {

class Driver {
public:
    Driver(RandomSite& site, Watch& watch);
    ~Driver() { stop(); }
    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;

    void start();
    void stop();
    bool running() const;
    // Lets cycles come and go until that moment.
    void run_until(double seconds);
    // To the end of a cycle that is under way, or of the next one.
    void finish_cycle();
    void run_cycle();
    // Stops somewhere inside one of the next passes; then nothing runs.
    void stop_in_pass();
    // The renewal method's OXD status. No cycle comes meanwhile.
    std::string renew(const std::vector<std::string>& targets, const std::string& name, const std::string& value);
    void set_value(const std::string& name, std::uint32_t value);

private:
    simhost::Host& host_;
    Dice& dice_;
    Watch& watch_;
    double wakes_at_ = -1;      // the worker's sleep between two cycles ends; -1: it isn't in one
    std::uint64_t cycles_ = 0;  // finished
    int stop_at_change_ = 0;    // of the host's sessions or paths, so many from now; 0: at none

    void note(const simhost::Event& event);
    void run_on(double from);
    void wait();
};

}  // namespace soak
