// Which stored types stand in for which when a value is read as another type.

#include "fq/personal/StoreValue.h"

#include <gtest/gtest.h>

#include <limits>

namespace fq::personal {
namespace {

using Int = std::int64_t;
constexpr auto none = std::nullopt;

TEST(StoreValueTest, NumbersStandInForEachOtherTextAndBytesOnlyForThemselves) {
    struct Case {
        std::optional<StoreValue> value;
        std::optional<Int> integer;
        std::optional<double> real;
        std::optional<bool> boolean;
        std::optional<std::string> text;
        std::optional<core::Bytes> bytes;
    };
    constexpr Int int64Max = std::numeric_limits<Int>::max();
    constexpr Int int64Min = std::numeric_limits<Int>::min();
    const std::vector<Case> cases{
        {Int{0}, 0, 0.0, false, none, none},
        {Int{-7}, -7, -7.0, true, none, none},
        {int64Max, int64Max, 9223372036854775807.0, true, none, none},
        {true, 1, 1.0, true, none, none},
        {-2.75, -2, -2.75, true, none, none}, // towards zero
        {0.4, 0, 0.4, true, none, none},
        {-9223372036854775808.0, int64Min, -9223372036854775808.0, true, none, none},
        {9223372036854775808.0, none, 9223372036854775808.0, true, none, none}, // out of range
        {-std::numeric_limits<double>::infinity(), none, -std::numeric_limits<double>::infinity(),
         true, none, none},
        {std::string("42"), none, none, none, "42", none},
        {core::Bytes{1}, none, none, none, none, core::Bytes{1}},
        {none, none, none, none, none, none},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.value));
        EXPECT_EQ(integerValue(c.value), c.integer);
        EXPECT_EQ(realValue(c.value), c.real);
        EXPECT_EQ(booleanValue(c.value), c.boolean);
        EXPECT_EQ(textValue(c.value), c.text);
        EXPECT_EQ(bytesValue(c.value), c.bytes);
    }
}

} // namespace
} // namespace fq::personal
