// What ostrel-simhost takes for in force, and its words for sessions, are those of the connection manager.
#include "programs/ostrel-simhost/config_file.h"

#include "OstrelConnections/inventory/session_inventory.h"
#include "OstrelProvider/config.h"
#include "programs/ostrel-simhost/scenario_parts.h"
#include "support/config_text.h"
#include "support/host_test.h"

using testing_support::config_text;
using testing_support::HostTest;

TEST_F(HostTest, PutsInForceWhatTheConnectionManagerTakes) {
    for (const char* const text :
         {"", "#\n", "#\ninterval=-4294967236\n", "\v# x\ninterval=300\n",
          "interval:300\nvol_sessions:4\nvmknic_count:2\n", "interval=300\n",
          "#\nmin_volsessions=9\nVolSessions=3\nworker_stop=-1\n", "#\nostrel_logs_path=/etc/ostrel\n",
          "#\nostrel_logs_path=/var/log/none\n", "#\nmax_vol_sessions=16\nmax_vol_sessions=99\n"}) {
        SCOPED_TRACE(text);
        const oxr::MutexLock lock(config_file_mutex);
        ConfigValues values;
        values.interval = 777;
        host->write_file(OSTREL_CONFIG_FILE, text);
        const ConfigValues at_cycle = ostrel_simhost::config_at_cycle(*host).value_or(values);
        (void)OSTREL_GetConfigValues(&values, CONFIG_NORMAL);
        EXPECT_EQ(config_text(at_cycle), config_text(values));

        host->write_file(OSTREL_CONFIG_FILE, text);
        const ConfigValues at_start = ostrel_simhost::config_at_start(*host);
        OSTREL_CreateConfigFile();
        ConfigValues started;  // a worker begins with the defaults
        (void)OSTREL_GetConfigValues(&started, CONFIG_NORMAL);
        EXPECT_EQ(config_text(at_start), config_text(started));
    }
}

TEST(SessionStates, HaveTheWordsOfTheLog) {
    for (std::uint32_t state = 0; state < 10; ++state) {
        EXPECT_EQ(ostrel_simhost::session_state_word(state), OxrSessionStateStr(state));
    }
}
