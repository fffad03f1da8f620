#include "oxrctl/message_format.h"

#include <gtest/gtest.h>

namespace oxrctl {

namespace {

using Arguments = std::vector<std::string_view>;

TEST(MessageFormat, GivesTheArgumentsOfATextThatItCanPrint) {
    const struct {
        const char* format;
        const char* text;
        Arguments arguments;
    } cases[] = {
        {"", "", {}},
        {"%s", "", {""}},
        {"a %s b %s", "a  b ", {"", ""}},
        {"%s, %s", "a, b, c", {"a", "b, c"}},
        {"%s failed", "a failed failed", {"a failed"}},
        {"rc = %d", "rc = -1", {"-1"}},
        {"%5d|", "   12|", {"   12"}},
        {"%-5d|", "12   |", {"12   "}},
        {"0x%x", "0xdead", {"dead"}},
        {"%p", "0x7f00", {"0x7f00"}},
        {"%p", "(nil)", {"(nil)"}},
        {"%ld %lu %zu", "-1 2 3", {"-1", "2", "3"}},
        {"ip %.*s is", "ip 10.0.0.1 is", {"10.0.0.1"}},
        {"100%% of %d", "100% of 7", {"7"}},
        {"%d%%", "7%", {"7"}},
        {"%c%c", "ab", {"a", "b"}},
    };
    for (const auto& each : cases) {
        Arguments arguments;
        EXPECT_TRUE(match(each.format, each.text, arguments)) << each.format << " / " << each.text;
        EXPECT_EQ(arguments, each.arguments) << each.format << " / " << each.text;
    }
}

TEST(MessageFormat, RefusesATextThatItCannotPrint) {
    const struct {
        const char* format;
        const char* text;
    } cases[] = {
        {"", "a"},        {"a", ""},       {"a", "b"},   {"%d", ""},      {"%d", "x"},  {"%d", "-"},
        {"%d", "1-"},     {"%d", " 1"},    {"%u", "-1"}, {"0x%x", "0xg"}, {"%c", ""},   {"%5d", "     "},
        {"100%%", "100"}, {"%d%%", "7 %"}, {"%s.", "a"}, {"%", "%"},      {"%d ", "1"},
    };
    for (const auto& each : cases) {
        EXPECT_FALSE(matches(each.format, each.text)) << each.format << " / " << each.text;
    }
}

TEST(MessageFormat, CountsTheLettersOfItsOwn) {
    EXPECT_EQ(own_letters(""), 0U);
    EXPECT_EQ(own_letters("%s"), 0U);
    EXPECT_EQ(own_letters("a %-5d b %% %.*s"), 7U);
}

}  // namespace

}  // namespace oxrctl
