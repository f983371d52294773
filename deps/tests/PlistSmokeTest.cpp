#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct PlistDeleter {
    void operator()(void* node) const { plist_free(node); }
};
struct BinDeleter {
    void operator()(char* bytes) const { plist_to_bin_free(bytes); }
};
struct XmlDeleter {
    void operator()(char* text) const { plist_to_xml_free(text); }
};
struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
using Plist = std::unique_ptr<void, PlistDeleter>;
using BinBytes = std::unique_ptr<char, BinDeleter>;
using XmlText = std::unique_ptr<char, XmlDeleter>;
template <typename T>
using Malloced = std::unique_ptr<T, FreeDeleter>;

// Keys deliberately out of alphabetical order, to tell insertion order from sorted order.
const std::vector<std::string> kKeyOrder = {"title", "capo",   "transpose",
                                            "tempo", "tuning", "thumbnail"};
constexpr int64_t kTranspose = -2;
const std::string kThumbnail("\x89PNG\0\x01\xff", 7);

Plist makeSong() {
    Plist dict(plist_new_dict());
    plist_dict_set_item(dict.get(), "title", plist_new_string("Open E drill"));
    plist_dict_set_item(dict.get(), "capo", plist_new_bool(1));
    // libplist 2.2 has only unsigned integers: a negative goes in as its two's complement.
    plist_dict_set_item(dict.get(), "transpose", plist_new_uint(static_cast<uint64_t>(kTranspose)));
    plist_dict_set_item(dict.get(), "tempo", plist_new_uint(96));
    plist_dict_set_item(dict.get(), "tuning", plist_new_real(440.25));
    plist_dict_set_item(dict.get(), "thumbnail",
                        plist_new_data(kThumbnail.data(), kThumbnail.size()));
    return dict;
}

std::vector<std::string> keysInIterationOrder(plist_t dict) {
    std::vector<std::string> keys;
    plist_dict_iter raw = nullptr;
    plist_dict_new_iter(dict, &raw);
    Malloced<void> iter(raw);
    while (true) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(dict, iter.get(), &key, &value);
        if (value == nullptr) break;
        keys.emplace_back(Malloced<char>(key).get());
    }
    return keys;
}

std::string bytesOf(const BinBytes& bin, uint32_t length) {
    return {bin.get(), length};
}

TEST(PlistSmoke, BinaryRoundTripKeepsEveryTypeAndTheKeyOrder) {
    const Plist song = makeSong();
    EXPECT_EQ(keysInIterationOrder(song.get()), kKeyOrder);

    char* rawBin = nullptr;
    uint32_t length = 0;
    plist_to_bin(song.get(), &rawBin, &length);
    BinBytes bin(rawBin);
    ASSERT_NE(bin, nullptr);
    const std::string bytes = bytesOf(bin, length);
    ASSERT_TRUE(bytes.starts_with("bplist00"));

    plist_t rawBack = nullptr;
    plist_from_bin(bin.get(), length, &rawBack);
    const Plist back(rawBack);
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(plist_get_node_type(back.get()), PLIST_DICT);
    EXPECT_EQ(keysInIterationOrder(back.get()), kKeyOrder);

    char* title = nullptr;
    plist_get_string_val(plist_dict_get_item(back.get(), "title"), &title);
    EXPECT_STREQ(Malloced<char>(title).get(), "Open E drill");

    uint8_t capo = 0;
    plist_get_bool_val(plist_dict_get_item(back.get(), "capo"), &capo);
    EXPECT_EQ(capo, 1);

    uint64_t tempo = 0;
    plist_get_uint_val(plist_dict_get_item(back.get(), "tempo"), &tempo);
    EXPECT_EQ(tempo, 96u);

    uint64_t transpose = 0;
    plist_get_uint_val(plist_dict_get_item(back.get(), "transpose"), &transpose);
    EXPECT_EQ(static_cast<int64_t>(transpose), kTranspose);

    double tuning = 0.0;
    plist_get_real_val(plist_dict_get_item(back.get(), "tuning"), &tuning);
    EXPECT_EQ(tuning, 440.25);

    char* data = nullptr;
    uint64_t dataLength = 0;
    plist_get_data_val(plist_dict_get_item(back.get(), "thumbnail"), &data, &dataLength);
    const Malloced<char> ownedData(data);
    EXPECT_EQ(std::string(ownedData.get(), dataLength), kThumbnail);
}

// What libplist 2.2 makes of signed values: the 64 bits are written as a signed 8-byte integer
// (marker 0x13, big-endian two's complement), the form other property-list readers expect for
// negatives. The flip side: an unsigned value above INT64_MAX cannot be told from a negative one,
// so counters and sizes must stay within int64.
TEST(PlistSmoke, IntegersAreSigned64BitOnTheWire) {
    const Plist song = makeSong();
    char* rawBin = nullptr;
    uint32_t length = 0;
    plist_to_bin(song.get(), &rawBin, &length);
    BinBytes bin(rawBin);
    ASSERT_NE(bin, nullptr);
    const std::string minusTwo("\x13\xff\xff\xff\xff\xff\xff\xff\xfe", 9);
    EXPECT_NE(bytesOf(bin, length).find(minusTwo), std::string::npos);

    Plist big(plist_new_dict());
    plist_dict_set_item(big.get(), "transpose", plist_new_uint(static_cast<uint64_t>(kTranspose)));
    plist_dict_set_item(big.get(), "huge", plist_new_uint(UINT64_MAX));
    char* rawXml = nullptr;
    uint32_t xmlLength = 0;
    plist_to_xml(big.get(), &rawXml, &xmlLength);
    XmlText xml(rawXml);
    ASSERT_NE(xml, nullptr);
    const std::string_view text(xml.get(), xmlLength);
    EXPECT_NE(text.find("<integer>-2</integer>"), std::string_view::npos) << text;
    EXPECT_NE(text.find("<integer>-1</integer>"), std::string_view::npos)
        << "UINT64_MAX is no longer written as -1:\n"
        << text;
}

} // namespace
