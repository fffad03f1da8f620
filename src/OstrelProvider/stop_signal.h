// The action installed for SIGUSR1 and the host's own one that it replaced.
#pragma once

// Keeps the action found, unless it is ours, and installs sigusr1_handler. Result of sigaction.
int install_stop_signal();

// Puts the kept action back when ours is still installed.
void remove_stop_signal();

// Gives a SIGUSR1 that is not meant for the worker to the kept action. Runs in a signal handler.
void pass_on_signal(int signal);
