#include "OstrelProvider/stop_signal.h"

#include <atomic>

#include "OstrelProvider/worker.h"

namespace {

// The action installed for SIGUSR1.
struct sigaction sig_actions;

// The handler may read the kept action while another factory call replaces it, so a replacement is written
// into the place that is not in use.
struct sigaction kept_places[2];
std::atomic<const struct sigaction*> kept_action{nullptr};

bool is_ours(const struct sigaction& action) {
    return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == sigusr1_handler;
}

void keep(const struct sigaction& found) {
    struct sigaction* const place = kept_action.load() == &kept_places[0] ? &kept_places[1] : &kept_places[0];
    *place = found;
    kept_action.store(place);
}

}  // namespace

int install_stop_signal() {
    sig_actions = {};
    sig_actions.sa_handler = sigusr1_handler;
    sigemptyset(&sig_actions.sa_mask);
    sig_actions.sa_flags = 0;
    struct sigaction found {};
    const int result = sigaction(SIGUSR1, &sig_actions, &found);
    if (result == 0 && !is_ours(found)) {
        keep(found);
    }
    return result;
}

void remove_stop_signal() {
    struct sigaction installed {};
    const struct sigaction* const kept = kept_action.load();
    if (kept != nullptr && sigaction(SIGUSR1, nullptr, &installed) == 0 && is_ours(installed)) {
        (void)sigaction(SIGUSR1, kept, nullptr);  // with a valid signal and action it can't fail
    }
}

void pass_on_signal(int signal, siginfo_t* info) {
    const struct sigaction* const kept = kept_action.load();
    if (kept == nullptr) {
        return;
    }
    if ((kept->sa_flags & SA_SIGINFO) != 0) {
        siginfo_t made{};
        made.si_signo = signal;
        made.si_code = SI_USER;
        kept->sa_sigaction(signal, info != nullptr ? info : &made, nullptr);
    } else if (kept->sa_handler == SIG_DFL) {
        // The host would have ended by it; so it does.
        (void)sigaction(SIGUSR1, kept, nullptr);
        (void)raise(signal);
    } else if (kept->sa_handler != SIG_IGN) {
        kept->sa_handler(signal);
    }
}
