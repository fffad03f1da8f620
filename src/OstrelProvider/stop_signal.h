// The action installed for SIGUSR1 and the host's own one that it replaced.
#pragma once

#include <signal.h>

// Installs sigusr1_handler, keeping the action found unless it is ours. Result of sigaction.
int install_stop_signal();

// Puts the kept action back when ours is still installed.
void remove_stop_signal();

// Gives a SIGUSR1 that is not meant for the worker to the kept action. `info` may be null. Runs in a signal
// handler too.
void pass_on_signal(int signal, siginfo_t* info);
