// Lines of an input, such as a terminal or a pipe, as they come.
#pragma once

#include <string>
#include <vector>

namespace ostrel_simhost {

class InputLines {
public:
    explicit InputLines(int fd) : fd_(fd) {}  // negative: nothing ever comes

    // Waits until something comes, this long at most; the lines that are whole then, without their ends. After the
    // input's end nothing comes. A signal ends the wait.
    std::vector<std::string> wait(int milliseconds);

private:
    void read_more();

    int fd_;
    std::string pending_;
};

}  // namespace ostrel_simhost
