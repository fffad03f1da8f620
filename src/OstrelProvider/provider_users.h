// The users of the library: each management interface from its factory call to its cleanup, however often it is handed
// out. The shared mutexes, the stop signal's handler and the worker exist until the last user is gone.
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

// Called last by every cleanup. For the last user it stops a running worker, destroys the shared mutexes and restores
// the host's SIGUSR1 action.
void give_back(ProviderMi mi);
