#include "support/host.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "OstrelConnections/renewal/renewal_state.h"
#include "OstrelProvider/config.h"
#include "OstrelProvider/log.h"
#include "OstrelProvider/service.h"
#include "OstrelProvider/worker.h"

extern "C" {

// Freed blocks are kept for a while only, for the records are large, and with the last of their callers only.
const char* __asan_default_options() {
    return "quarantine_size_mb=8:malloc_context_size=3:detect_stack_use_after_return=0";
}

// Options of this process, ahead of those from the command line, which may change them: no watching thread, for its
// sleep would move the host's clock; SIGUSR1 is the library's; what the library prints goes nowhere; leaks are looked
// for at the end, for a look after an input takes longer than the input; and so does weighing the corpus.
int LLVMFuzzerInitialize(int* argc, char*** argv) {
    static char no_watching[] = "-rss_limit_mb=0";
    static char largest_block[] = "-malloc_limit_mb=256";
    static char no_signal[] = "-handle_usr1=0";
    static char no_stderr[] = "-close_fd_mask=3";
    static char no_leaks[] = "-detect_leaks=0";
    static char no_weights[] = "-entropic=0";
    static std::vector<char*> arguments;
    arguments.assign(*argv, *argv + *argc);
    arguments.insert(arguments.begin() + 1, {no_watching, largest_block, no_signal, no_stderr, no_leaks, no_weights});
    *argc = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    *argv = arguments.data();
    return 0;
}

}  // extern "C"

namespace fuzz {

namespace {

// Removed with the process, unless it crashes.
struct RootFolder {
    std::string path;
    RootFolder() {
        const bool in_memory = std::filesystem::is_directory("/dev/shm");
        path = (in_memory ? "/dev/shm" : std::filesystem::temp_directory_path().string()) + "/oxr-fuzz-XXXXXX";
        if (mkdtemp(path.data()) == nullptr) {
            std::abort();
        }
    }
    ~RootFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
};

bool is_held(oxr::Mutex& mutex) {
    // The wrapper keeps the native mutex to itself, as its only member.
    static_assert(sizeof(oxr::Mutex) == sizeof(pthread_mutex_t));
    auto* const native = reinterpret_cast<pthread_mutex_t*>(&mutex);
    if (pthread_mutex_trylock(native) != 0) {
        return true;
    }
    pthread_mutex_unlock(native);
    return false;
}

}  // namespace

void require(bool holds, const char* what, const std::string& found) {
    if (holds) {
        return;
    }
    // Standard error may be closed; libFuzzer prints the stack that names the check.
    std::fprintf(stderr, "broken: %s\n%s\n", what, found.c_str());
    std::abort();
}

std::unique_ptr<simhost::Host> make_host(simhost::HostOptions options) {
    static const RootFolder root;
    options.root = root.path;
    set_log_filename("");
    return std::make_unique<simhost::Host>(std::move(options));
}

void put_file(const std::string& path, std::string_view text) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0 || ::write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()) || ::close(fd) != 0) {
        std::abort();
    }
}

void require_nothing_held(const simhost::Host& host) {
    require(host.lists_held() == 0, "an IMA list is held");
    require(host.descriptors_held() == 0, "a descriptor is held");
    require(!is_held(log_file_mutex), "log_file_mutex is held");
    require(!is_held(config_file_mutex), "config_file_mutex is held");
    require(!is_held(lock_file_mutex), "lock_file_mutex is held");
    require(!is_held(conn_renew_mutex), "conn_renew_mutex is held");
    require(!is_held(start_service_mutex), "start_service_mutex is held");
    for (const std::string& violation : host.violations()) {
        require(violation.find("IMA_FreeMemory") == std::string::npos && violation.find("twice") == std::string::npos,
                "given back twice", violation);
    }
}

}  // namespace fuzz
