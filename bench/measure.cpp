#include "bench/measure.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "OstrelConnections/polling_pass.h"
#include "OstrelProvider/log.h"
#include "oxd_ima_utility/oid_cache.h"

namespace bench {

std::unique_ptr<simhost::Host> make_settled_site(int volumes, simhost::HostOptions options) {
    options.claim_seconds = -1;
    auto host = std::make_unique<simhost::Host>(options);
    set_log_filename(log_file);
    host->add_adapter("vmhba64", {"10.0.1.1", "10.0.1.2"});
    host->add_adapter("vmhba65", {"10.0.2.1", "10.0.2.2"});
    host->add_group(
        {"g", simhost::GroupMode::dynamic_discovery, "10.0.9.100", {{"a1", {"10.0.9.1"}}, {"a2", {"10.0.9.2"}}}});
    for (int v = 0; v < volumes; ++v) {
        simhost::VolumeSpec volume;
        volume.eui = "vol-" + std::to_string(v);
        volume.group = "g";
        host->add_volume(volume);
        if (v < 255) {
            host->connect(host->iqn_of(volume.eui), 8);
        }
    }
    return host;
}

void run_pass() {
    (void)handle_ostrel_connections(ConfigValues{});
    refresh_target_oids_table();
}

double processor_time() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

long resident_kib() {
    long pages = 0;
    long resident = 0;
    std::FILE* const file = std::fopen("/proc/self/statm", "r");
    if (file == nullptr || std::fscanf(file, "%ld %ld", &pages, &resident) != 2) {
        std::abort();
    }
    std::fclose(file);
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

std::vector<std::string> lines_of(const std::string& log) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < log.size();) {
        const std::size_t end = std::min(log.find('\n', at), log.size() - 1);
        lines.push_back(log.substr(at, end + 1 - at));
        at = end + 1;
    }
    return lines;
}

void write_bare(const char* path, const std::string& line) {
    struct stat status {};
    (void)::stat(path, &status);
    const int fd = ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (fd < 0 || ::write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        std::abort();
    }
    ::close(fd);
}

}  // namespace bench
