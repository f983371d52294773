// Property lists: values come back as written, and hostile files are refused without
// exhausting the stack or the memory.
#include "fq/documents/PropertyList.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace fq::documents {
namespace {

using Json = nlohmann::json;
using Ordered = nlohmann::ordered_json;

TEST(PropertyListTest, ValuesAndKeysComeBackWhole) {
    const Ordered value{{"clé ♯ 𝄪", 1},
                        {"", -2},
                        {std::string(200, 'k'), INT64_MIN},
                        {"\x7f\x01", Ordered::array({true, 0.5, "text"})}};
    const auto bytes = encodeBinaryPropertyList(value);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(bytes->substr(0, 8), "bplist00");
    const auto back = decodePropertyList(*bytes);
    ASSERT_TRUE(back) << back.error().message;
    EXPECT_EQ(*back, Json::parse(value.dump()));
    EXPECT_FALSE(decodePropertyList(*encodeBinaryPropertyList({{std::string(300, 'k'), 1}})))
        << "absurdly long keys are refused";
    EXPECT_FALSE(encodeBinaryPropertyList(Ordered(nullptr)));
}

std::string bigEndian(std::uint64_t value, int width) {
    std::string bytes;
    for (int shift = (width - 1) * 8; shift >= 0; shift -= 8)
        bytes += static_cast<char>((value >> shift) & 0xff);
    return bytes;
}

TEST(PropertyListTest, HostileFilesAreRefused) {
    const auto bytes = *encodeBinaryPropertyList({{"title", "x"}, {"list", {1, 2, 3}}});
    for (std::size_t length = 0; length < bytes.size(); ++length)
        EXPECT_FALSE(decodePropertyList(bytes.substr(0, length))) << "cut at " << length;

    // a binary file of arrays nested 300000 deep, each holding the next: a recursive reader
    // would overflow the stack on it
    constexpr std::uint32_t levels = 300000;
    std::string deep = "bplist00";
    std::string table;
    for (std::uint32_t level = 0; level < levels; ++level) {
        table += bigEndian(deep.size(), 4);
        deep += level + 1 < levels ? '\xa1' + bigEndian(level + 1, 4) : std::string("\xa0");
    }
    const auto tableOffset = deep.size();
    deep += table + std::string(6, '\0') + "\x04\x04" + bigEndian(levels, 8) + bigEndian(0, 8) +
            bigEndian(tableOffset, 8);
    EXPECT_EQ(decodePropertyList(deep).error().message, "The property list is nested too deeply");

    std::string xml = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
    for (int level = 0; level < 5000; ++level)
        xml += "<array>";
    for (int level = 0; level < 5000; ++level)
        xml += "</array>";
    EXPECT_FALSE(decodePropertyList(xml + "</plist>"));
    auto nested = Ordered::array();
    for (int level = 0; level < 500; ++level)
        nested = Ordered::array({nested});
    EXPECT_FALSE(encodeBinaryPropertyList(nested));

    // one array that claims two billion entries in a file of a few bytes
    std::string absurd = "bplist00";
    absurd += std::string("\xAF\x12\x7F\xFF\xFF\xFF", 6);
    absurd += '\x08';
    absurd += std::string(6, '\0') + "\x01\x01";
    for (const char last : {'\x01', '\x00', '\x0E'})
        absurd += std::string(7, '\0') + last;
    EXPECT_FALSE(decodePropertyList(absurd));
    for (const std::string& junk : {std::string("bplist00"), std::string("<plist><dict>"),
                                    std::string(64, '\0'), std::string("{\"title\":\"x\"}")})
        EXPECT_FALSE(decodePropertyList(junk));
}

} // namespace
} // namespace fq::documents
