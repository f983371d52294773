// The song file form: what it holds, what it refuses, and another reader's view of it.
#include "SongTestSupport.h"

#include <fq/documents/PropertyList.h>
#include <fq/songmaker/SongDocument.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace fq::songmaker {
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

TEST(SongDocumentTest, NewDocumentsAreInDMajorWithAPatternFromTheWholeList) {
    EXPECT_EQ(FrtQulDocument{}.key, (core::Chord{core::Note::D, "major", 0}));
    std::set<std::string> names;
    for (const auto& sequence : core::arpeggioSequences())
        names.insert(sequence.name);
    std::set<std::string> drawn;
    for (int draw = 0; draw < 200; ++draw)
        drawn.insert(FrtQulDocument{}.sequence.name);
    EXPECT_TRUE(std::includes(names.begin(), names.end(), drawn.begin(), drawn.end()));
    EXPECT_GT(drawn.size(), 4u) << "drawn from the whole list, not the first four";
}

TEST(SongDocumentTest, EveryKeyIsRequiredAndTypesAreStrict) {
    using Ordered = nlohmann::ordered_json;
    const Ordered erase = Ordered::value_t::discarded;
    struct Case {
        std::string pointer;
        Ordered value; ///< the new value there, or `erase`
        bool reads;
    };
    const std::vector<Case> cases{
        {"/extra", 1, true},
        {"/sections/0/colour", "red", true},
        {"/sections/0/id", "e621e1f8-c36c-495a-93fc-0c247a3e6e5f", true},
        {"/title", erase, false},
        {"/sections", erase, false},
        {"/key", erase, false},
        {"/bpm", erase, false},
        {"/sequence", erase, false},
        {"/sections/0/id", erase, false},
        {"/sections/1/shouldAddFillAtEnd", erase, false},
        {"/sections/0/chords", erase, false},
        {"/sections/0/chords/0/variant", erase, false},
        {"/key/variant", erase, false},
        {"/sections/0/sectionType", "solo", false},
        {"/sections/0/id", "section-1", false},
        {"/sections/0/isBassEnabled", 1, false},
        {"/bpm", 120.5, false},
        {"/bpm", "120", false},
        {"/title", Ordered::binary({1, 2}), false},
        {"/sections", Ordered::object(), false},
        {"/key/rootNote", "H", false},
        {"/sequence/sequence/0", 5, false},
        {"", Ordered::array(), false},
    };
    const auto valid = toJson(sampleSong());
    for (const auto& [pointer, value, reads] : cases) {
        auto document = valid;
        const Ordered::json_pointer at(pointer);
        if (value.is_discarded())
            document[at.parent_pointer()].erase(at.back());
        else
            document[at] = value;
        EXPECT_EQ(decodeSong(*documents::encodeBinaryPropertyList(document)).has_value(), reads)
            << pointer << " = " << value.dump();
    }
}

// Truncated files and inputs that once crashed or hung the reader: any answer but a crash,
// and what reads must write and read back.
TEST(SongDocumentTest, BadBytesAreRefusedWithoutCrashing) {
    const auto bytes = *encodeSong(sampleSong());
    for (std::size_t length = 0; length < bytes.size(); length += 7)
        EXPECT_EQ(decodeSong(bytes.substr(0, length)).error().kind, ErrorKind::corrupt) << length;
    for (const auto& entry : std::filesystem::directory_iterator(FQ_SONGMAKER_TEST_DATA)) {
        if (const auto result = decodeSong(readBytes(entry.path()))) {
            EXPECT_TRUE(decodeSong(*encodeSong(*result))) << entry.path();
        }
    }

    TemporaryFolder folder;
    std::filesystem::create_directory(folder / "Folder.frtqul");
    EXPECT_EQ(
        FrtQulDocument::read(folder / "Folder.frtqul").error().message,
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
