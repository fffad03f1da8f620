// The program from its command line on does what commands.txt tells.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "shared/child_process.h"

namespace fs = std::filesystem;

namespace {

// Runs what stands behind "$ " with bash. Gives its exit code and all that it printed.
std::pair<int, std::string> run(const std::string& command) {
    std::string output;
    shared::ChildProcess bash;
    bash.command = {"bash", "-c", "exec 2>&1; set -o pipefail; " + command};
    bash.on_output = [&output](std::string_view piece) { output += piece; };
    const int exit_code = shared::run_child(bash).exit_code;
    return {exit_code, output};
}

}  // namespace

TEST(Commands, PrintWhatTheyShould) {
    const fs::path source = OXR_SOURCE_DIR "/tests/oxrctl";
    const fs::path folder = fs::path(testing::TempDir()) / ("oxrctl-" + std::to_string(getpid()));
    fs::create_directories(folder);
    fs::copy(source / "small.toml", folder);
    fs::copy(source / "kinds.toml", folder);
    fs::current_path(folder);
    setenv("TMPDIR", (folder / "tmp").c_str(), 1);
    setenv("PATH",
           (std::string(OXR_PROGRAMS_DIR "/oxrctl:" OXR_PROGRAMS_DIR "/ostrel-simhost:") + getenv("PATH")).c_str(), 1);
    unsetenv("COLUMNS");
    unsetenv("NO_COLOR");
    std::ifstream commands(source / "commands.txt");
    std::string command, output;
    int ran = 0;
    for (std::string line; std::getline(commands, line);) {
        if (line.starts_with("$ ")) {
            command = line.substr(2);
            ++ran;
        } else if (line.starts_with("-> ")) {
            int exit_code;
            std::tie(exit_code, output) = run(command);
            EXPECT_EQ("-> " + std::to_string(exit_code), line) << command << "\n" << output;
            EXPECT_EQ(exit_code > 1 && !output.starts_with("OSTREL "), output.starts_with("oxrctl: ")) << output;
        } else if (!line.empty() && !line.starts_with('#')) {
            EXPECT_NE(output.find(line), std::string::npos) << command << ": " << line << " in\n" << output;
        }
    }
    EXPECT_GT(ran, 150);
    fs::current_path("/");
    fs::remove_all(folder);
}
