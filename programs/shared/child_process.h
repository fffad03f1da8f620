// Another program that is run for its output, without a shell.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace shared {

struct ChildProcess {
    std::vector<std::string> command;  // the program first: a path, or a name that PATH leads to
    std::string_view input;            // for its standard input
    int output_fd = -1;                // that its standard output goes to; negative: to `on_output`
    std::function<void(std::string_view)> on_output = [](std::string_view) {};
};

struct ChildEnd {
    bool started = false;
    int error_number = 0;      // why it wasn't
    int exit_code = -1;        // negative: a signal ended it
    std::string error_output;  // what it wrote to standard error, the first 64 KiB
};

// Runs it to its end. Interrupts and broken pipes have their usual effect on it, whatever this program does with
// them. `on_output` is called with each piece on this thread.
ChildEnd run_child(const ChildProcess& child);

// Sends it to the children that run, and to those that are still started. May be called by a signal handler.
void send_to_children(int signal);

}  // namespace shared
