#include "OstrelProvider/provider_users.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "OstrelConnections/renewal/renewal_state.h"
#include "OstrelProvider/config.h"
#include "OstrelProvider/worker.h"
#include "support/log_lines.h"
#include "support/service_test.h"

namespace {

using testing_support::Lines;

std::atomic<int> host_signals{0};
std::atomic<int> host_infos{0};

class UsersTest : public testing_support::ServiceTest {
protected:
    void init(ProviderMi mi = ProviderMi::service_instance) {
        hand_out(mi);
        OstrelProviderInit();
    }
    void wait_for_worker() { ASSERT_TRUE(host->wait_for_horizon(10)); }
    // Blocks or unblocks SIGUSR1 in this thread.
    static void block(int how) {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGUSR1);
        pthread_sigmask(how, &signals, nullptr);
    }
    static struct sigaction installed() {
        struct sigaction action {};
        sigaction(SIGUSR1, nullptr, &action);
        return action;
    }
};

TEST_F(UsersTest, EachFactoryPreparesAndOneWorkerRuns) {
    init();
    wait_for_worker();
    const Lines first = said();
    ASSERT_GE(first.size(), 3U);
    EXPECT_EQ(first[0], "INFO OSTREL_CreateLogDir: Log dir exists. No need to create.");
    EXPECT_EQ(first[1], "INFO OstrelProviderInit: Initializing the provider.");
    EXPECT_EQ(first[2], "INFO OstrelProviderInit: Calling StartService.");
    EXPECT_EQ(host->calls("pthread_mutex_init"), 5U);
    init(ProviderMi::service_method);
    EXPECT_EQ(said(), (Lines{"INFO OSTREL_CreateLogDir: Log dir exists. No need to create.",
                             "INFO OstrelProviderInit: Initializing the provider.",
                             "INFO OstrelProviderInit: Calling StartService.",
                             "INFO StartService: Worker thread exists; no need to create."}));
    EXPECT_EQ(host->calls("pthread_mutex_init"), 5U);
    EXPECT_EQ(host->calls("pthread_create"), 1U);
}

TEST_F(UsersTest, AFailedPreparationStartsNothingAndCanBeTriedAgain) {
    const std::string mutex = "ERROR OstrelProviderInit: pthread_mutex_init returned 12";
    const struct {
        simhost::Fault fault;
        std::string message;
    } cases[] = {
        {testing_support::failing_with("pthread_mutex_init", ENOMEM), mutex},
        {testing_support::failing_with("pthread_mutex_init", ENOMEM), mutex + " for config_file_mutex"},
        {testing_support::failing_with("pthread_mutex_init", ENOMEM), mutex + " for lock_file_mutex"},
        {testing_support::failing_with("pthread_mutex_init", ENOMEM), mutex + " for conn_renew_mutex"},
        {testing_support::failing_with("pthread_mutex_init", ENOMEM), mutex + " for start_service_mutex"},
        {testing_support::failing_with("sigaction", EINVAL),
         "ERROR OstrelProviderInit: sigaction returned -1, Invalid argument"},
        {testing_support::failing("pthread_create"),
         "ERROR OstrelProviderInit: Could not create worker thread in StartService()."},
    };
    host->write_file(OSTREL_CONFIG_FILE, "#\nostrel_logs_path=/var/log/ostrel\n");
    std::uint64_t nth = 1;
    for (auto each : cases) {
        SCOPED_TRACE(each.message);
        if (each.fault.operation == "pthread_mutex_init") {
            each.fault.nth = nth++;
            host->fail(each.fault);
            each.fault.nth = 6;  // a failed one is tried once more
        }
        host->fail(each.fault);
        init();
        EXPECT_EQ(oxr_thread, 0U);
        EXPECT_EQ(said("ERROR").back(), each.message);
        give_back(ProviderMi::service_instance);
        host->clear_faults();
        (void)said();
    }
    init();
    EXPECT_NE(oxr_thread, 0U);
}

TEST_F(UsersTest, TheLastUserStopsTheWorkerAndDestroysTheMutexes) {
    const struct sigaction before = installed();
    for (int round = 1; round <= 3; ++round) {
        SCOPED_TRACE(round);
        hand_out(ProviderMi::setting_instance);
        init();
        init();  // handed out twice, one user all the same
        wait_for_worker();
        give_back(ProviderMi::service_instance);
        EXPECT_NE(oxr_thread, 0U);
        EXPECT_EQ(host->calls("pthread_mutex_destroy"), 5U * static_cast<unsigned>(round - 1));
        give_back(ProviderMi::profile_instance);  // no user
        EXPECT_NE(oxr_thread, 0U);
        give_back(ProviderMi::setting_instance);
        EXPECT_EQ(oxr_thread, 0U);
        EXPECT_EQ(host->calls("pthread_mutex_destroy"), 5U * static_cast<unsigned>(round));
        EXPECT_EQ(host->calls("pthread_mutex_init"), 5U * static_cast<unsigned>(round));
        EXPECT_EQ(installed().sa_handler, before.sa_handler);
        give_back(ProviderMi::setting_instance);  // again: nothing left to do
        EXPECT_EQ(host->calls("pthread_mutex_destroy"), 5U * static_cast<unsigned>(round));
    }
}

TEST_F(UsersTest, FailedDestructionsAreTold) {
    hand_out(ProviderMi::service_instance);
    OstrelProviderInit();
    wait_for_worker();
    EXPECT_EQ(StopService(), 0);
    (void)said();
    simhost::Fault fault = testing_support::failing_with("pthread_mutex_destroy", EBUSY);
    fault.persistent = true;
    host->fail(fault);
    give_back(ProviderMi::service_instance);
    const std::string destroy = "ERROR OstrelProviderCleanup: ";
    EXPECT_EQ(said(),
              (Lines{destroy + "pthread_mutex_destroy returned 16", destroy + "pthread_mutex_destroy returned 16",
                     destroy + "pthread_mutex_destroy returned 16", destroy + "lock_file_mutex destroy returned 16",
                     destroy + "conn_renew_mutex destroy returned 16"}));
    host->clear_faults();
    hand_out(ProviderMi::service_instance);  // whoever holds one still has it
    EXPECT_EQ(host->calls("pthread_mutex_init"), 5U);
    give_back(ProviderMi::service_instance);
}

// A signal may come a moment later: from the worker that gives it back, or held up by a sanitizer.
int settled(const std::atomic<int>& count, int expected) {
    for (int waits = 0; count < expected && waits < 5000; ++waits) {
        poll(nullptr, 0, 1);
    }
    return count;
}

TEST_F(UsersTest, ASignalToTheProcessReachesTheHostsOwnHandler) {
    struct sigaction own {};
    for (const bool with_info : {false, true}) {
        SCOPED_TRACE(with_info);
        if (with_info) {
            own.sa_flags = SA_SIGINFO;
            own.sa_sigaction = [](int signal, siginfo_t* info, void*) {
                host_infos += info != nullptr && info->si_signo == signal ? 1 : 1000;
                errno = EINVAL;
            };
        } else {
            own.sa_handler = [](int signal) { host_signals += signal == SIGUSR1 ? 1 : 1000; };
        }
        sigaction(SIGUSR1, &own, nullptr);
        init();
        init(ProviderMi::service_method);  // our own handler is not taken for the host's
        wait_for_worker();
        std::atomic<int>& count = with_info ? host_infos : host_signals;
        errno = EBUSY;
        kill(getpid(), SIGUSR1);
        const int error = errno;
        EXPECT_EQ(error, EBUSY) << "of what the signal interrupted";
        EXPECT_EQ(settled(count, 1), 1);

        // With every other thread blocking it, the signal finds the sleeping worker.
        block(SIG_BLOCK);
        kill(getpid(), SIGUSR1);
        poll(nullptr, 0, 5);
        block(SIG_UNBLOCK);
        EXPECT_EQ(settled(count, 2), 2);
        EXPECT_NE(oxr_thread, 0U);
        EXPECT_EQ(testing_support::count_lines(host->log(), "", "sigusr1_handler", ""), 0);
        host->set_horizon(host->now() + 1e6);
        EXPECT_EQ(StopService(), 0);
        host->set_horizon(host->now());
        EXPECT_EQ(count, 2);
        give_back(ProviderMi::service_instance);
        give_back(ProviderMi::service_method);
        kill(getpid(), SIGUSR1);
        EXPECT_EQ(settled(count, 3), 3);
        (void)said();
    }
}

TEST_F(UsersTest, ASignalThatTheHostIgnoresOrDiesOfDoesTheSame) {
    for (const bool ignored : {true, false}) {
        const pid_t child = fork();
        if (child == 0) {
            signal(SIGUSR1, ignored ? SIG_IGN : SIG_DFL);
            init();
            kill(getpid(), SIGUSR1);
            poll(nullptr, 0, 5);
            _exit(StopService() == 0 ? 7 : 8);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(ignored ? WIFEXITED(status) && WEXITSTATUS(status) == 7
                          : WIFSIGNALED(status) && WTERMSIG(status) == SIGUSR1,
                  true)
            << ignored << ' ' << status;
    }
}

}  // namespace
