#include "oxrctl/message_format.h"

#include <gtest/gtest.h>

namespace oxrctl {

using Arguments = std::vector<std::string_view>;

TEST(MessageFormat, GivesTheArgumentsOfATextThatItCanPrint) {
    const struct {
        const char* format;
        const char* text;
        Arguments arguments;
    } cases[] = {
        {"", "", {}},
        {"a %s b %s", "a  b ", {"", ""}},
        {"%s, %s", "a, b, c", {"a", "b, c"}},
        {"%s failed", "a failed failed", {"a failed"}},
        {"rc = %d", "rc = -1", {"-1"}},
        {"%5d|%-5d|", "   12|12   |", {"   12", "12   "}},
        {"0x%x %p %p", "0xdead 0x7f00 (nil)", {"dead", "0x7f00", "(nil)"}},
        {"%ld %lu %zu", "-1 2 3", {"-1", "2", "3"}},
        {"ip %.*s is", "ip 10.0.0.1 is", {"10.0.0.1"}},
        {"100%% of %d%%", "100% of 7%", {"7"}},
        {"%c%c", "ab", {"a", "b"}},
    };
    for (const auto& each : cases) {
        Arguments arguments;
        EXPECT_TRUE(MessageFormat(each.format).match(each.text, arguments)) << each.format << " / " << each.text;
        EXPECT_EQ(arguments, each.arguments) << each.format << " / " << each.text;
    }
    const std::pair<const char*, const char*> others[] = {
        {"", "a"},        {"a", ""},       {"a", "b"},   {"%d", ""},      {"%d", "x"},  {"%d", "-"},
        {"%d", "1-"},     {"%d", " 1"},    {"%u", "-1"}, {"0x%x", "0xg"}, {"%c", ""},   {"%5d", "     "},
        {"100%%", "100"}, {"%d%%", "7 %"}, {"%s.", "a"}, {"%", "%"},      {"%d ", "1"},
    };
    for (const auto& [format, text] : others) {
        EXPECT_FALSE(MessageFormat(format).matches(text)) << format << " / " << text;
    }
    EXPECT_EQ(MessageFormat("a %-5d b %% %.*s").own_letters(), 7U);
}

}  // namespace oxrctl
