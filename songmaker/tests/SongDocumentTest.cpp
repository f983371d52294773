#include "SongTestSupport.h"

#include <fq/documents/PropertyList.h>
#include <fq/songmaker/SongDocument.h>

#include <gtest/gtest.h>

#include <functional>

namespace fq::songmaker {

using documents::decodePropertyList;
using documents::encodeBinaryPropertyList;
namespace {

using namespace testing;
using Json = nlohmann::json;

TEST(SongDocumentTest, RoundTripsThroughTheBinaryForm) {
    auto empty = sampleSong("Empty");
    empty.sections.clear();
    auto twins = sampleSong("Twins");
    twins.sections[1].title = twins.sections[0].title; // equal titles are fine; ids differ
    for (const auto& song : {sampleSong(), empty, twins}) {
        const auto bytes = encodeSong(song);
        ASSERT_TRUE(bytes) << bytes.error().message;
        EXPECT_EQ(bytes->substr(0, 8), "bplist00");
        const auto decoded = decodeSong(*bytes);
        ASSERT_TRUE(decoded) << decoded.error().message;
        EXPECT_EQ(decoded->sections, song.sections);
        EXPECT_EQ(decoded->bpm, song.bpm);
        EXPECT_EQ(comparable(*decoded), comparable(song));
    }
}

TEST(SongDocumentTest, NewDocumentsHaveTheirDefaults) {
    const FrtQulDocument document;
    EXPECT_EQ(document.title, "Untitled");
    EXPECT_TRUE(document.sections.empty());
    EXPECT_EQ(document.key, (core::Chord{core::Note::D, "major", 0}));
    EXPECT_EQ(document.bpm, 120);
    std::set<std::string> names;
    for (const auto& sequence : core::arpeggioSequences())
        names.insert(sequence.name);
    std::set<std::string> drawn;
    for (int draw = 0; draw < 200; ++draw)
        drawn.insert(FrtQulDocument{}.sequence.name);
    EXPECT_TRUE(std::includes(names.begin(), names.end(), drawn.begin(), drawn.end()));
    EXPECT_GT(drawn.size(), 4u) << "drawn from the whole list, not the first four";
    const SongSection section;
    EXPECT_TRUE(section.isGuitarEnabled && section.isBassEnabled && section.isDrumsEnabled &&
                section.shouldAddFillAtEnd);
}

/// Each change to a valid file's JSON form, and whether the file must still read.
struct Mutation {
    const char* name;
    std::function<void(Json&)> change;
    bool reads;
};

TEST(SongDocumentTest, EveryKeyIsRequiredAndTypesAreStrict) {
    const std::vector<Mutation> mutations{
        {"unknown keys are ignored",
         [](Json& j) {
             j["extra"] = 1;
             j["sections"][0]["colour"] = "red";
         },
         true},
        {"no title", [](Json& j) { j.erase("title"); }, false},
        {"no sections", [](Json& j) { j.erase("sections"); }, false},
        {"no key", [](Json& j) { j.erase("key"); }, false},
        {"no bpm", [](Json& j) { j.erase("bpm"); }, false},
        {"no sequence", [](Json& j) { j.erase("sequence"); }, false},
        {"section without id", [](Json& j) { j["sections"][0].erase("id"); }, false},
        {"section without fill flag", [](Json& j) { j["sections"][1].erase("shouldAddFillAtEnd"); },
         false},
        {"section without chords", [](Json& j) { j["sections"][0].erase("chords"); }, false},
        {"chord without variant", [](Json& j) { j["sections"][0]["chords"][0].erase("variant"); },
         false},
        {"key without variant", [](Json& j) { j["key"].erase("variant"); }, false},
        {"unknown section type", [](Json& j) { j["sections"][0]["sectionType"] = "solo"; }, false},
        {"id not a UUID", [](Json& j) { j["sections"][0]["id"] = "section-1"; }, false},
        {"lower-case UUID reads",
         [](Json& j) { j["sections"][0]["id"] = "e621e1f8-c36c-495a-93fc-0c247a3e6e5f"; }, true},
        {"flag as integer", [](Json& j) { j["sections"][0]["isBassEnabled"] = 1; }, false},
        {"bpm as real", [](Json& j) { j["bpm"] = 120.5; }, false},
        {"bpm as text", [](Json& j) { j["bpm"] = "120"; }, false},
        {"title as data",
         [](Json& j) {
             j["title"] = Json::binary({1, 2});
         },
         false},
        {"sections as dictionary", [](Json& j) { j["sections"] = Json::object(); }, false},
        {"unknown root note", [](Json& j) { j["key"]["rootNote"] = "H"; }, false},
        {"sequence step not an array", [](Json& j) { j["sequence"]["sequence"][0] = 5; }, false},
        {"top level an array", [](Json& j) { j = Json::array({j}); }, false},
    };
    const auto base = Json::parse(toJson(sampleSong()).dump());
    for (const auto& mutation : mutations) {
        auto json = base;
        mutation.change(json);
        const auto bytes = encodeBinaryPropertyList(nlohmann::ordered_json::parse(json.dump()));
        // binary values do not survive the text round above; put them back
        if (mutation.name == std::string("title as data")) {
            auto ordered = nlohmann::ordered_json::parse(base.dump());
            ordered["title"] = nlohmann::ordered_json::binary({1, 2});
            EXPECT_FALSE(decodeSong(*encodeBinaryPropertyList(ordered)));
            continue;
        }
        ASSERT_TRUE(bytes) << mutation.name;
        const auto decoded = decodeSong(*bytes);
        EXPECT_EQ(decoded.has_value(), mutation.reads) << mutation.name;
        if (!mutation.reads && !decoded) {
            EXPECT_FALSE(decoded.error().message.empty());
        }
    }
}

TEST(SongDocumentTest, BadBytesAreRefusedWithoutCrashing) {
    const auto bytes = *encodeSong(sampleSong());
    for (std::size_t length = 0; length < bytes.size(); length += 7)
        EXPECT_FALSE(decodeSong(bytes.substr(0, length))) << "truncated at " << length;
    for (const std::string& junk :
         {std::string("bplist00"), std::string("not a plist"), std::string("<plist><dict>"),
          std::string(64, '\0'), std::string("{\"title\":\"x\"}")})
        EXPECT_FALSE(decodeSong(junk));

    // an offset table that claims far more objects than the file holds
    auto absurd = bytes;
    const std::size_t trailer = absurd.size() - 32;
    for (std::size_t index = 8; index < 16; ++index)
        absurd[trailer + index] = '\x7f';
    EXPECT_FALSE(decodeSong(absurd));

    // nesting far deeper than a song needs
    auto deep = nlohmann::ordered_json::array();
    for (int level = 0; level < 500; ++level)
        deep = nlohmann::ordered_json::array({deep});
    EXPECT_FALSE(encodeBinaryPropertyList(deep));
    std::string xml = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
    for (int level = 0; level < 500; ++level)
        xml += "<array>";
    for (int level = 0; level < 500; ++level)
        xml += "</array>";
    xml += "</plist>";
    EXPECT_FALSE(decodePropertyList(xml));

    // a binary file of arrays nested 300000 deep, each holding the next: the library's
    // recursive reader would overflow the stack on it
    constexpr std::uint32_t levels = 300000;
    std::string binary = "bplist00";
    std::vector<std::uint32_t> offsets;
    const auto bigEndian = [&binary](std::uint64_t value, int width) {
        for (int shift = (width - 1) * 8; shift >= 0; shift -= 8)
            binary += static_cast<char>((value >> shift) & 0xff);
    };
    for (std::uint32_t level = 0; level < levels; ++level) {
        offsets.push_back(static_cast<std::uint32_t>(binary.size()));
        binary += level + 1 < levels ? '\xa1' : '\xa0';
        if (level + 1 < levels) bigEndian(level + 1, 4);
    }
    const auto table = binary.size();
    for (const auto offset : offsets)
        bigEndian(offset, 4);
    binary += std::string(6, '\0') + "\x04\x04";
    bigEndian(levels, 8);
    bigEndian(0, 8);
    bigEndian(table, 8);
    const auto refused = decodePropertyList(binary);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().message, "The property list is nested too deeply");
}

TEST(SongDocumentTest, KeysReadWholeAndInputsFoundByFuzzingAreSurvived) {
    nlohmann::ordered_json dictionary{
        {"clé ♯ 𝄪", 1}, {"", 2}, {std::string(200, 'k'), 3}, {"\x7f\x01", 4}};
    const auto back = decodePropertyList(*encodeBinaryPropertyList(dictionary));
    ASSERT_TRUE(back) << back.error().message;
    EXPECT_EQ(*back, Json::parse(dictionary.dump()));
    EXPECT_FALSE(decodePropertyList(*encodeBinaryPropertyList({{std::string(300, 'k'), 1}})))
        << "absurdly long keys are refused";

    // each of these once crashed or hung the reader; any answer but a crash will do
    for (const auto& entry : std::filesystem::directory_iterator(FQ_SONGMAKER_TEST_DATA)) {
        const auto result = decodeSong(readBytes(entry.path()));
        if (result) {
            EXPECT_TRUE(decodeSong(*encodeSong(*result))) << entry.path();
        }
    }
}

TEST(SongDocumentTest, AFolderIsNotASongFile) {
    TemporaryFolder folder;
    const auto inner = folder.path() / "Folder.frtqul";
    std::filesystem::create_directory(inner);
    const auto result = FrtQulDocument::read(inner);
    ASSERT_FALSE(result);
    EXPECT_EQ(
        result.error().message,
        "The file “Folder.frtqul” couldn’t be opened because it isn’t in the correct format.");
}

// Another implementation of property lists reads what we write and writes what we read.
TEST(SongDocumentTest, PythonReadsOurFilesAndWeReadItsFiles) {
    if (!havePython()) GTEST_SKIP() << "python3 is not installed";
    TemporaryFolder folder;
    const auto ours = folder.path() / "ours.frtqul";
    const auto song = sampleSong();
    writeBytes(ours, *encodeSong(song));

    std::string output;
    ASSERT_EQ(runPython("import plistlib, json, sys\n"
                        "d = plistlib.load(open('" +
                            ours.string() +
                            "', 'rb'))\n"
                            "print(json.dumps({'keys': list(d), 'sectionKeys': "
                            "list(d['sections'][0]), 'doc': d}))",
                        &output),
              0);
    const auto seen = Json::parse(output);
    EXPECT_EQ(seen["keys"], Json::parse(R"(["title","sections","key","bpm","sequence"])"));
    EXPECT_EQ(seen["sectionKeys"],
              Json::parse(R"(["id","title","chords","sectionType","isGuitarEnabled",)"
                          R"("isBassEnabled","isDrumsEnabled","shouldAddFillAtEnd"])"));
    EXPECT_EQ(seen["doc"], Json::parse(toJson(song).dump()));
    EXPECT_EQ(seen["doc"]["bpm"], -7);

    // Python writes the same song back, binary and XML, with more negative numbers
    for (const char* format : {"FMT_BINARY", "FMT_XML"}) {
        const auto theirs = folder.path() / (std::string(format) + ".frtqul");
        ASSERT_EQ(runPython("import plistlib, json\n"
                            "d = json.loads(" +
                            Json(toJson(song).dump()).dump() +
                            ")\n"
                            "d['bpm'] = -120000000000\n"
                            "d['sections'][0]['chords'][0]['variant'] = -1\n"
                            "plistlib.dump(d, open('" +
                            theirs.string() + "', 'wb'), fmt=plistlib." + format + ")"),
                  0);
        const auto read = FrtQulDocument::read(theirs);
        ASSERT_TRUE(read) << format << ": " << read.error().message;
        EXPECT_EQ(read->bpm, -120000000000);
        EXPECT_EQ(read->sections.at(0).chords.at(0).variant, -1);
        EXPECT_EQ(read->sections.at(1).title, "Chorus — ♯");
    }
}

} // namespace
} // namespace fq::songmaker
