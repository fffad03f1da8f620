#include "common/text.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "common/blank.h"
#include "common/number.h"

namespace {

TEST(Number, ReadsSignDigitsAndNothingElse) {
    const std::pair<std::string, std::int64_t> cases[] = {{"", 0},
                                                          {" \t\n\v\f\r120", 120},
                                                          {"+7", 7},
                                                          {"-7", -7},
                                                          {"0x10", 0},
                                                          {"\xa0"
                                                           "7",
                                                           0},
                                                          {"4294967295", UINT32_MAX},
                                                          {"4294967296", INT32_MAX},
                                                          {"18446744073709551736", INT32_MAX},
                                                          {"-2147483648", INT32_MIN},
                                                          {"-99999999999999999999999999999999", INT32_MIN}};
    for (const auto& [text, value] : cases) {
        // What stands behind the text isn't read.
        EXPECT_EQ(oxr::read_number({(text + "5").data(), text.size()}), static_cast<std::uint32_t>(value)) << text;
    }
}

// Fields stand alone on the heap, so that a byte read behind one is seen.
TEST(Field, HoldsItsWidthAndIsReadWithinIt) {
    using Field = char[5];
    for (const std::string text : {"", "vmh", "vmhba", "vmhba64"}) {
        const auto field = std::unique_ptr<Field[]>(new Field[1]);
        std::memset(field[0], '?', sizeof(Field));
        oxr::copy_field(field[0], text);
        EXPECT_EQ(oxr::field_view(field[0]), text.substr(0, 5));
        EXPECT_STREQ(oxr::FieldText(field[0]).c_str(), text.substr(0, 5).c_str());
        EXPECT_EQ(std::string(field[0], sizeof(Field)), (text + std::string(5, '\0')).substr(0, 5));
        std::memset(field[0], '?', sizeof(Field));
        oxr::copy_text(field[0], text);
        EXPECT_STREQ(field[0], text.substr(0, 4).c_str());
    }
}

TEST(ErrorText, NamesEveryNumber) {
    EXPECT_STREQ(oxr::error_text(2), "No such file or directory");
    EXPECT_STREQ(oxr::error_text(static_cast<int>(0x80000006)), "Unknown error -2147483642");
}

}  // namespace
