#include "OstrelProvider/stop_signal.h"

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cerrno>

#include "OstrelProvider/worker.h"

namespace {

// The action installed for SIGUSR1.
struct sigaction sig_actions;

// The handler may read the kept action while another factory call replaces it, so the replacement is written to the
// unused place.
struct sigaction kept_places[2];
std::atomic<const struct sigaction*> kept_action{nullptr};

// The thread that currently calls the kept action. A handler that the host installed over ours may call ours again.
std::atomic<pthread_t> passing_on{0};

bool is_ours(const struct sigaction& action) {
    return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == sigusr1_handler;
}

void keep(const struct sigaction& found) {
    struct sigaction* const place = kept_action.load() == &kept_places[0] ? &kept_places[1] : &kept_places[0];
    *place = found;
    kept_action.store(place);
}

void call(const struct sigaction& action, int signal) {
    if ((action.sa_flags & SA_SIGINFO) != 0) {
        siginfo_t info{};
        info.si_signo = signal;
        info.si_code = SI_USER;
        action.sa_sigaction(signal, &info, nullptr);
    } else if (action.sa_handler == SIG_DFL) {
        // The default action ends the process, as soon as this handler returns.
        (void)sigaction(SIGUSR1, &action, nullptr);
        (void)raise(signal);
    } else if (action.sa_handler != SIG_IGN) {
        action.sa_handler(signal);
    }
}

}  // namespace

int install_stop_signal() {
    sig_actions = {};
    sig_actions.sa_handler = sigusr1_handler;
    sigemptyset(&sig_actions.sa_mask);
    sig_actions.sa_flags = 0;
    // Keep it first: a signal can arrive as soon as our action is installed.
    struct sigaction found {};
    if (const int result = sigaction(SIGUSR1, nullptr, &found); result != 0) {
        return result;
    }
    if (!is_ours(found)) {
        keep(found);
    }
    return sigaction(SIGUSR1, &sig_actions, nullptr);
}

void remove_stop_signal() {
    struct sigaction installed {};
    const struct sigaction* const kept = kept_action.load();
    if (kept != nullptr && sigaction(SIGUSR1, nullptr, &installed) == 0 && is_ours(installed)) {
        (void)sigaction(SIGUSR1, kept, nullptr);  // cannot fail for a valid signal and action
    }
}

void pass_on_signal(int signal) {
    const int error = errno;
    const struct sigaction* const kept = kept_action.load();
    pthread_t nobody = 0;
    const bool first = passing_on.compare_exchange_strong(nobody, pthread_self());
    const bool came_back = !first && pthread_equal(nobody, pthread_self()) != 0;
    if (kept != nullptr && !came_back) {
        call(*kept, signal);
    }
    if (first) {
        passing_on.store(0);
    }
    errno = error;
}
