#include "OstrelProvider/provider_users.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "OstrelProvider/worker.h"
#include "support/engine.h"
#include "support/golden.h"
#include "support/service_test.h"

namespace {

using testing_support::errno_fault;
using testing_support::lasting;
using testing_support::Lines;

std::atomic<int> host_signals{0};

class UsersTest : public testing_support::ServiceTest {
protected:
    void init(ProviderMi mi = ProviderMi::service_instance) {
        hand_out(mi);
        OstrelProviderInit();
    }
};

TEST_F(UsersTest, TheFirstOneStartsTheWorkerAndTheLastOneStopsIt) {
    for (const std::uint64_t round : {1, 2}) {
        SCOPED_TRACE(round);
        init(ProviderMi::setting_instance);
        init();
        init();  // handed out twice, one user all the same
        ASSERT_TRUE(host->wait_for_horizon(10));
        EXPECT_EQ(host->calls("pthread_create"), round);
        give_back(ProviderMi::service_instance);
        give_back(ProviderMi::profile_instance);  // no user
        EXPECT_NE(oxr_thread, 0U);
        EXPECT_EQ(host->calls("pthread_mutex_destroy"), 5 * (round - 1));
        give_back(ProviderMi::setting_instance);
        give_back(ProviderMi::setting_instance);  // again: nothing left to do
        EXPECT_EQ(oxr_thread, 0U);
        EXPECT_EQ(host->calls("pthread_mutex_destroy"), 5 * round);
        EXPECT_EQ(host->calls("pthread_mutex_init"), 5 * round);
    }
    const oxr::MutexLock lock(log_file_mutex);  // for the last messages
    EXPECT_EQ(testing_support::shared_mutexes_held(), Lines{"log_file_mutex"});
}

TEST_F(UsersTest, AFailedPreparationStartsNothingAndCanBeTriedAgain) {
    testing_support::Golden golden("OstrelProvider", "preparation_failures");
    for (std::uint64_t nth = 1; nth <= 6; ++nth) {  // mutex that fails, and every later one; at last, none
        host->fail(
            lasting(nth < 6 ? errno_fault("pthread_mutex_init", ENOMEM, nth) : errno_fault("sigaction", ENOMEM)));
        init();
        host->clear_faults();
        give_back(ProviderMi::service_instance);
        golden.add_log(*host, "E");
        EXPECT_EQ(host->calls("pthread_create"), 0U);
    }
    init();
    EXPECT_NE(oxr_thread, 0U);
}

TEST_F(UsersTest, AMutexThatCannotBeDestroyedStaysAsItIs) {
    hand_out(ProviderMi::service_instance);
    host->fail(lasting(errno_fault("pthread_mutex_destroy", EBUSY)));
    give_back(ProviderMi::service_instance);
    EXPECT_EQ(said("ERROR OstrelProviderCleanup").size(), 5U);
    host->clear_faults();
    hand_out(ProviderMi::service_instance);  // whoever holds one still has it
    EXPECT_EQ(host->calls("pthread_mutex_init"), 5U);
    give_back(ProviderMi::service_instance);
}

TEST_F(UsersTest, ASignalToTheProcessReachesTheHostsOwnHandler) {
    struct sigaction own {};
    own.sa_flags = SA_SIGINFO;
    own.sa_sigaction = [](int signal, siginfo_t* info, void*) {
        host_signals += info != nullptr && info->si_signo == signal ? 1 : 1000;
        errno = EINVAL;
    };
    sigaction(SIGUSR1, &own, nullptr);
    init();
    init();  // our own handler is not taken for the host's
    errno = EBUSY;
    kill(getpid(), SIGUSR1);
    const int error = errno;
    EXPECT_EQ(error, EBUSY) << "of what the signal interrupted";
    EXPECT_TRUE(testing_support::wait_until([] { return host_signals == 1; })) << "a sanitizer may hold it up";
    give_back(ProviderMi::service_instance);
    struct sigaction put_back {};
    sigaction(SIGUSR1, nullptr, &put_back);
    EXPECT_EQ(put_back.sa_sigaction, own.sa_sigaction);
}

TEST_F(UsersTest, ASignalThatTheHostIgnoresOrDiesOfDoesTheSame) {
    const auto get_signal = [this](sighandler_t disposition) {
        signal(SIGUSR1, disposition);
        init();
        kill(getpid(), SIGUSR1);
        poll(nullptr, 0, 5);
        _exit(StopService() == 0 ? 7 : 8);
    };
    EXPECT_EXIT(get_signal(SIG_IGN), ::testing::ExitedWithCode(7), "");
    EXPECT_EXIT(get_signal(SIG_DFL), ::testing::KilledBySignal(SIGUSR1), "");
}

}  // namespace
