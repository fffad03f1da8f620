#include "support/host.h"

#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
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
// The hosts' files are in memory.
int LLVMFuzzerInitialize(int* argc, char*** argv) {
    setenv("TMPDIR", "/dev/shm", 0);
    static char options[][24] = {"-rss_limit_mb=0",  "-malloc_limit_mb=256", "-handle_usr1=0",
                                 "-close_fd_mask=3", "-detect_leaks=0",      "-entropic=0"};
    static std::vector<char*> arguments(*argv, *argv + *argc);
    arguments.insert(arguments.begin() + 1, std::begin(options), std::end(options));
    *argc = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    *argv = arguments.data();
    return 0;
}

}  // extern "C"

namespace fuzz {

namespace {

void require_free(oxr::Mutex& mutex, const char* name) {
    // The wrapper keeps the native mutex to itself, as its only member.
    static_assert(sizeof(oxr::Mutex) == sizeof(pthread_mutex_t));
    auto* const native = reinterpret_cast<pthread_mutex_t*>(&mutex);
    require(pthread_mutex_trylock(native) == 0, "a mutex is held", name);
    pthread_mutex_unlock(native);
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
    set_log_filename("");
    return std::make_unique<simhost::Host>(std::move(options));
}

void require_nothing_held(const simhost::Host& host) {
    require(host.lists_held() == 0, "an IMA list is held");
    require(host.descriptors_held() == 0, "a descriptor is held");
    require_free(log_file_mutex, "log_file_mutex");
    require_free(config_file_mutex, "config_file_mutex");
    require_free(lock_file_mutex, "lock_file_mutex");
    require_free(conn_renew_mutex, "conn_renew_mutex");
    require_free(start_service_mutex, "start_service_mutex");
    for (const std::string& violation : host.violations()) {
        require(violation.find("IMA_FreeMemory") == std::string::npos && violation.find("twice") == std::string::npos,
                "given back twice", violation);
    }
}

}  // namespace fuzz
