#include "common/file_reader.h"

#include <fcntl.h>

#include <cerrno>

#include "common/descriptor.h"
#include "support/host_test.h"

namespace {

using testing_support::HostTest;
using testing_support::Lines;

constexpr char FILE_READ[] = "/etc/ostrel/text";

TEST_F(HostTest, AFileIsReadLineByLineAndLongLinesAreCut) {
    const std::pair<std::string, Lines> cases[] = {
        {"", {}},
        {"\n\na", {"\n", "\n", "a"}},
        {std::string(254, 'y') + "\nnext\n", {std::string(254, 'y') + "\n", "next\n"}},
        {std::string(255, 'z') + "interval=300\nnext", {std::string(255, 'z'), "next"}},
        {std::string(4095, 'b') + "\nnext\n", {std::string(255, 'b'), "next\n"}},
        {std::string("a\0b\n\0", 5), {std::string("a\0b\n", 4), std::string("\0", 1)}},
    };
    for (const auto& [text, lines] : cases) {
        host->write_file(FILE_READ, text);
        host->fail(testing_support::failing_with("read", EINTR));
        Lines found;
        oxr::FileReader reader(FILE_READ);
        for (std::string_view line; reader.next_line(line);) {
            found.emplace_back(line);
        }
        EXPECT_EQ(found, lines) << text.substr(0, 20);
    }
}

TEST_F(HostTest, AFailedReadingOfAFileIsFinal) {
    EXPECT_EQ(oxr::FileReader(FILE_READ).error(), ENOENT);
    host->write_file(FILE_READ, std::string(5000, 'x'));
    host->fail(testing_support::failing("read", 2));
    oxr::FileReader half(FILE_READ);
    std::string_view line;
    EXPECT_TRUE(half.next_line(line));
    EXPECT_EQ(half.error(), EIO);
    EXPECT_FALSE(half.next_line(line));
}

TEST_F(HostTest, AClosedDescriptorLeavesErrnoAsItWas) {
    host->write_file(FILE_READ, "");
    host->fail(testing_support::failing_with("close", ENOSPC));
    {
        const oxr::Descriptor file(open(FILE_READ, O_RDONLY));
        errno = EIO;
    }
    EXPECT_EQ(errno, EIO);
}

}  // namespace
