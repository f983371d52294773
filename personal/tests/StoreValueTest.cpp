// Which stored types stand in for which when a value is read as another type.

#include "fq/personal/StoreValue.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace fq::personal {
namespace {

using Int = std::int64_t;
constexpr auto none = std::nullopt;
constexpr double inf = std::numeric_limits<double>::infinity();
constexpr Int int64Max = std::numeric_limits<Int>::max();
constexpr Int int64Min = std::numeric_limits<Int>::min();

TEST(StoreValueTest, NumbersStandInForEachOtherTextAndBytesDoNot) {
    struct Case {
        std::optional<StoreValue> value;
        std::optional<Int> integer;
        std::optional<double> real;
        std::optional<bool> boolean;
    };
    const std::vector<Case> cases{
        {Int{42}, 42, 42.0, true},
        {Int{0}, 0, 0.0, false},
        {Int{-7}, -7, -7.0, true},
        {int64Max, int64Max, 9223372036854775807.0, true},
        {true, 1, 1.0, true},
        {false, 0, 0.0, false},
        {2.75, 2, 2.75, true},
        {-2.75, -2, -2.75, true},
        {-0.0, 0, -0.0, false},
        {0.4, 0, 0.4, true},
        {-9223372036854775808.0, int64Min, -9223372036854775808.0, true},
        {9223372036854775808.0, none, 9223372036854775808.0, true},
        {1e300, none, 1e300, true},
        {-inf, none, -inf, true},
        {std::string("42"), none, none, none},
        {std::string("true"), none, none, none},
        {core::Bytes{1}, none, none, none},
        {none, none, none, none},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.value));
        EXPECT_EQ(integerValue(c.value), c.integer);
        EXPECT_EQ(realValue(c.value), c.real);
        EXPECT_EQ(booleanValue(c.value), c.boolean);
    }
}

TEST(StoreValueTest, TextAndBytesReadOnlyAsThemselves) {
    EXPECT_EQ(textValue(StoreValue(std::string("C♯"))), "C♯");
    EXPECT_EQ(textValue(StoreValue(Int{42})), none);
    EXPECT_EQ(textValue(StoreValue(core::Bytes{'a'})), none);
    EXPECT_EQ(bytesValue(StoreValue(core::Bytes{0, 1})), (core::Bytes{0, 1}));
    EXPECT_EQ(bytesValue(StoreValue(std::string("ab"))), none);
    EXPECT_EQ(bytesValue(StoreValue(true)), none);
}

} // namespace
} // namespace fq::personal
