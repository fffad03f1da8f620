#include "common/file_reader.h"

#include <cerrno>

#include "support/host_test.h"

namespace {

using testing_support::HostTest;
using testing_support::Lines;

class FileReaderTest : public HostTest {
protected:
    static constexpr char file[] = "/etc/ostrel/text";

    Lines lines() {
        Lines found;
        oxr::FileReader reader(file);
        std::string_view line;
        while (reader.next_line(line)) {
            found.emplace_back(line);
        }
        return found;
    }
};

TEST_F(FileReaderTest, SplitsAtLineFeedsAndCutsLongLines) {
    const std::string long_line(100000, 'x');
    const std::string at_limit(254, 'y');
    const std::string past_limit(255, 'z');
    const std::string up_to_buffer(4095, 'b');
    const struct {
        std::string text;
        Lines lines;
    } cases[] = {
        {"", {}},
        {"a", {"a"}},
        {"a\n", {"a\n"}},
        {"\n\na", {"\n", "\n", "a"}},
        {"a\r\nb\r\n", {"a\r\n", "b\r\n"}},
        {at_limit + "\nnext\n", {at_limit + "\n", "next\n"}},
        {past_limit + "\nnext\n", {past_limit, "next\n"}},
        {past_limit + "interval=300\nnext", {past_limit, "next"}},
        {long_line + "\nnext", {long_line.substr(0, 255), "next"}},
        {long_line, {long_line.substr(0, 255)}},
        {up_to_buffer + "\nnext\n", {up_to_buffer.substr(0, 255), "next\n"}},
        {std::string("a\0b\n\0", 5), {std::string("a\0b\n", 4), std::string("\0", 1)}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.text.substr(0, 20));
        host->write_file(file, each.text);
        EXPECT_EQ(lines(), each.lines);
    }
}

TEST_F(FileReaderTest, TellsWhyItEnded) {
    EXPECT_EQ(oxr::FileReader(file).error(), ENOENT);
    EXPECT_FALSE(oxr::FileReader(file).opened());

    host->write_file(file, std::string(5000, 'x'));
    host->fail(testing_support::failing("read", 2));
    oxr::FileReader half(file);
    std::string_view line;
    EXPECT_TRUE(half.next_line(line));
    EXPECT_EQ(half.error(), EIO);
    EXPECT_FALSE(half.next_line(line));  // an error is final
}

TEST_F(FileReaderTest, AnInterruptedReadGoesOn) {
    host->write_file(file, "a\n");
    host->fail(testing_support::failing_with("read", EINTR));
    EXPECT_EQ(lines(), Lines{"a\n"});
}

TEST(CommentLine, IsOneWhoseFirstNonBlankIsAHash) {
    for (const char* const line : {"#", "# a", " \t#a", "#=", "\r#"}) {
        EXPECT_TRUE(oxr::is_comment_line(line)) << line;
    }
    for (const char* const line : {"", "\n", "a#", "a # b", "=#"}) {
        EXPECT_FALSE(oxr::is_comment_line(line)) << line;
    }
}

}  // namespace
