#include "support/golden.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>

#include "support/engine.h"
#include "support/log_lines.h"

namespace testing_support {

Golden::Golden(const std::string& folder, const std::string& name)
    : file_(OXR_TESTS_DIR "/" + folder + "/golden/" + name + ".log") {}

Golden::~Golden() {
    if (std::getenv("OXR_GOLDEN") != nullptr) {
        std::ofstream(file_) << text_;
    }
    std::ostringstream golden;
    golden << std::ifstream(file_).rdbuf();
    EXPECT_EQ(text_, golden.str()) << file_;
    EXPECT_FALSE(text_.empty());
}

void Golden::heading(const std::string& text) {
    text_ += "== " + text + "\n";
}

void Golden::add_log(simhost::Host& host, const char* levels, std::size_t last) {
    static const std::regex source_line("at line (number )?[0-9]+");
    std::vector<LoggedMessage> lines = parse_log(host.log());
    std::erase_if(lines, [&](const LoggedMessage& line) { return std::strchr(levels, line.level[0]) == nullptr; });
    for (std::size_t i = lines.size() - std::min(lines.size(), last); i < lines.size(); ++i) {
        text_ += lines[i].level + " " + lines[i].module + " " + lines[i].operation + ": " +
                 std::regex_replace(lines[i].text, source_line, "at line $1#") + "\n";
    }
    host.write_file("/var/log/ostrel/oxr.log", "");
}

void Golden::follow(simhost::Host& host) {
    host.observe([this, &host](const simhost::Event& event) {
        if (const std::string text = request_text(event); !text.empty()) {
            add_log(host);
            text_ += "-> " + text + (event.target.empty() ? "" : " on " + event.adapter + ", " + event.text) + "\n";
        }
    });
}

}  // namespace testing_support
