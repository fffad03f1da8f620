#include "OstrelConnections/renewal/renewal_state.h"

oxr::Mutex conn_renew_mutex;
std::atomic<std::int32_t> renew_connections_running{0};
std::atomic<pthread_t> conn_renew_thread{0};
std::atomic<int> renewals_at_work{0};
