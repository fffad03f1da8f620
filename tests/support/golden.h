// Logs of whole procedures, held against files that somebody has read: golden/NAME.log in the folder of the test. With
// OXR_GOLDEN=renew in the environment the tests write these files anew; read the difference before you commit it.
#pragma once

#include <string>

#include "simhost/host.h"

namespace testing_support {

class Golden {
public:
    // `folder`: that of the test, below tests/.
    Golden(const std::string& folder, const std::string& name);
    ~Golden();  // compares
    Golden(const Golden&) = delete;
    Golden& operator=(const Golden&) = delete;

    // What comes next, as a line of its own.
    void heading(const std::string& text);
    // The messages since the last call whose level begins with one of these letters, each with its level, module,
    // operation and text; of many the last ones. Empties the log.
    void add_log(simhost::Host& host, const char* levels = "EWID", std::size_t last = SIZE_MAX);
    // From now on, the messages are told as they come, with what is changed on the host between them.
    void follow(simhost::Host& host);

private:
    std::string file_;
    std::string text_;
};

}  // namespace testing_support
