// Our action for SIGUSR1 and the host's action that it replaces.
#pragma once

// Keeps the current action unless it is ours, and installs sigusr1_handler. Returns the result of sigaction.
int install_stop_signal();

// Restores the kept action if ours is still installed.
void remove_stop_signal();

// Passes a SIGUSR1 that was not sent to the worker to the kept action. Runs in a signal handler.
void pass_on_signal(int signal);
