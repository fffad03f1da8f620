// Who uses the library. Each management interface that a factory has handed out and no cleanup has taken back
// is a user, however often it is handed out. The shared mutexes, the stop signal's handler and the worker live
// until the last user is gone.
#pragma once

enum class ProviderMi : unsigned {
    service_instance,
    service_method,
    setting_instance,
    setting_method,
    profile_instance,
    association_instance,
    association,
};

// Called first by every factory.
void hand_out(ProviderMi mi);

// Called last by every cleanup. With the last user it stops a worker that still runs, destroys the shared
// mutexes and puts the host's own SIGUSR1 action back.
void give_back(ProviderMi mi);
