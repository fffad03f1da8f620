// What the benchmarks share: a settled site, time taken and medians.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "simhost/host.h"

namespace bench {

inline constexpr char log_file[] = "/var/log/ostrel/oxr.log";

// A host whose `volumes` volumes have the eight sessions they should: a pass over it changes nothing. With 256
// volumes the last one has none, which makes 2040 sessions.
std::unique_ptr<simhost::Host> make_settled_site(int volumes, simhost::HostOptions options = {});

// One pass as the worker makes it, without its waits.
void run_pass();

// Seconds of processor time that this thread has had: what others on the machine do doesn't count.
double processor_time();

double median(std::vector<double> values);

// Resident memory of this process, in KiB.
long resident_kib();

// Whole lines of a log, line feeds included.
std::vector<std::string> lines_of(const std::string& log);

// The file calls of a written message, without anything around them.
void write_bare(const char* path, const std::string& line);

}  // namespace bench
