#include "common/text.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "common/blank.h"
#include "common/number.h"

namespace {

TEST(Number, ReadsSignDigitsAndNothingElse) {
    const struct {
        std::string_view text;
        std::int64_t value;
    } cases[] = {
        {"", 0},
        {"120", 120},
        {" \t\n\v\f\r120", 120},
        {"+7", 7},
        {"-7", -7},
        {"--7", 0},
        {"+-7", 0},
        {"- 7", 0},
        {"12ab", 12},
        {"1 2", 1},
        {"ab", 0},
        {"0x10", 0},
        {"007", 7},
        {"\xa0"
         "5",
         0},
        {"1e3", 1},
        {"60.9", 60},
        {"-0", 0},
        {"2147483647", INT32_MAX},
        {"2147483648", 2147483648},
        {"4294967295", UINT32_MAX},
        {"4294967296", INT32_MAX},
        {"-2147483648", INT32_MIN},
        {"-2147483649", INT32_MIN},
        {"-4294967295", INT32_MIN},
        {"4294967416", INT32_MAX},
        {"18446744073709551736", INT32_MAX},
        {"-99999999999999999999999999999999", INT32_MIN},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(oxr::read_number(each.text), static_cast<std::uint32_t>(each.value)) << '"' << each.text << '"';
    }
    const std::string cut = "1234";
    EXPECT_EQ(oxr::read_number(std::string_view(cut).substr(0, 2)), 12U);
}

TEST(Text, IsComparedWithoutCaseInFull) {
    EXPECT_TRUE(oxr::equal_ignoring_case("Interval", "iNTERVAL"));
    EXPECT_FALSE(oxr::equal_ignoring_case("interval", "interva"));
    EXPECT_FALSE(oxr::equal_ignoring_case("interva", "interval"));
    EXPECT_FALSE(oxr::equal_ignoring_case("[", "{"));
}

// Fields stand alone on the heap, so that a byte read behind one is seen.
TEST(Field, HoldsItsWidthAndIsReadWithinIt) {
    const struct {
        std::string_view text;
        std::string_view field;
        std::string_view terminated;
    } cases[] = {
        {"", "", ""},
        {"vmh", "vmh", "vmh"},
        {"vmhba", "vmhba", "vmhb"},
        {"vmhba64", "vmhba", "vmhb"},
    };
    using Field = char[5];
    for (const auto& each : cases) {
        SCOPED_TRACE(each.text);
        const auto field = std::unique_ptr<Field[]>(new Field[1]);
        std::memset(field[0], '?', sizeof(Field));
        oxr::copy_field(field[0], each.text);
        EXPECT_EQ(oxr::field_view(field[0]), each.field);
        EXPECT_EQ(std::string(oxr::FieldText(field[0]).c_str()), each.field);
        EXPECT_EQ(std::string(field[0] + each.field.size(), sizeof(Field) - each.field.size()),
                  std::string(sizeof(Field) - each.field.size(), '\0'));

        std::memset(field[0], '?', sizeof(Field));
        oxr::copy_text(field[0], each.text);
        EXPECT_EQ(std::string(field[0]), each.terminated);
    }
}

TEST(ErrorText, NamesEveryNumber) {
    EXPECT_STREQ(oxr::error_text(2), "No such file or directory");
    EXPECT_STREQ(oxr::error_text(static_cast<int>(0x80000006)), "Unknown error -2147483642");
}

}  // namespace
