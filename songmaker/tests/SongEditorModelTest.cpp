// The song editor: its steps, what it hands the sequencer, and saving to a file.
#include "SongTestSupport.h"

#include <fq/personal/PreferenceKeys.h>
#include <fq/personal/SharedStore.h>
#include <fq/songmaker/SongEditorModel.h>

#include <gtest/gtest.h>

#include <thread>

namespace fq::songmaker {
namespace {

using namespace testing;
namespace fs = std::filesystem;
using core::Chord;
using core::Note;

/// Records what the editor hands over; it can be told it is running.
struct RecordingSequencer : JamSequencer {
    bool running = false;
    int stops = 0;
    int tempoChanges = 0;
    int updates = 0;
    std::int64_t bpm = 120;
    std::vector<int> seeks;
    bool isRunning() const override { return running; }
    void stop() override {
        running = false;
        ++stops;
    }
    std::int64_t tempo() const override { return bpm; }
    void setTempo(std::int64_t value) override {
        bpm = value;
        ++tempoChanges;
    }
    void update(const std::vector<SongSection>&, const core::ArpeggioSequence&,
                const core::BassPattern&, const core::DrumPattern&) override {
        ++updates;
    }
    void seek(int index) override { seeks.push_back(index); }
};

class SongEditorModelTest : public SongFolderTest {
protected:
    SongEditorModel::Services services() {
        return {&sequencer_, store_, location(), &observer_, executor()};
    }
    std::vector<std::string> titles(const SongEditorModel& editor) {
        std::vector<std::string> result;
        for (const auto& section : editor.sections())
            result.push_back(section.title);
        return result;
    }

    TemporaryFolder storeFolder_;
    std::shared_ptr<personal::SharedStore> store_ =
        *personal::SharedStore::open(storeFolder_ / "store.sqlite");
    RecordingSequencer sequencer_;
    CountingObserver observer_;
};

TEST_F(SongEditorModelTest, ANewSongStartsWithAnIntroAndAnEarlyPattern) {
    const SongEditorModel editor(std::nullopt, services());
    EXPECT_EQ(titles(editor), std::vector<std::string>{"Intro"});
    const auto all = core::arpeggioSequences();
    EXPECT_NE(std::find_if(all.begin(), all.begin() + 4,
                           [&](const auto& s) { return s.name == editor.currentSequence().name; }),
              all.begin() + 4)
        << "drawn from the first four patterns";
    EXPECT_EQ(editor.currentBassPattern().name, core::bassPatterns().front().name);
    EXPECT_EQ(editor.currentDrumPattern().name, core::drumPatterns().front().name);
}

TEST_F(SongEditorModelTest, SectionsAreAddedDuplicatedMovedAndDeleted) {
    DiagnosticCapture diagnostics;
    SongEditorModel editor(std::nullopt, services());
    editor.addSection(SectionType::verse);
    editor.addSection(SectionType::other, "Solo");
    EXPECT_EQ(diagnostics.lines()[0], "Selected Section Type: verse, Title: Verse");
    EXPECT_EQ(diagnostics.lines()[1], "Selected Section Type: other, Title: Solo");
    const auto verse = editor.sections()[1].id;
    editor.duplicateSection(verse);
    editor.duplicateSection(verse);
    EXPECT_EQ(titles(editor),
              (std::vector<std::string>{"Intro", "Verse", "Verse Copy 2", "Verse Copy", "Solo"}));
    editor.duplicateSection(core::Uuid::random());
    EXPECT_EQ(editor.sections().size(), 5u);

    const auto solo = editor.sections()[4].id;
    editor.moveSection(solo, verse);
    EXPECT_EQ(titles(editor),
              (std::vector<std::string>{"Intro", "Solo", "Verse", "Verse Copy 2", "Verse Copy"}));
    editor.moveSection(editor.sections()[0].id, editor.sections()[4].id);
    EXPECT_EQ(titles(editor),
              (std::vector<std::string>{"Solo", "Verse", "Verse Copy 2", "Verse Copy", "Intro"}));
    EXPECT_EQ(diagnostics.lines().back(), "Chords flattened: ");
    EXPECT_EQ(diagnostics.lines()[diagnostics.lines().size() - 2],
              "Sections order: Solo, Verse, Verse Copy 2, Verse Copy, Intro");
    editor.deleteSection(verse);
    EXPECT_EQ(editor.sections().size(), 4u);
    EXPECT_EQ(deleteSectionQuestion("Verse"), "Are you sure you really want to delete 'Verse'");
}

TEST_F(SongEditorModelTest, ChordsAndTheFlatList) {
    DiagnosticCapture diagnostics;
    SongEditorModel editor(std::nullopt, services());
    editor.addSection(SectionType::verse);
    editor.selectSection(editor.sections()[0].id);
    EXPECT_TRUE(editor.addChord({Note::D, "major", 0}));
    EXPECT_TRUE(editor.addChord({Note::A, "major", 0}));
    editor.selectSection(editor.sections()[1].id);
    EXPECT_TRUE(editor.addChord({Note::B, "minor", 0}));
    EXPECT_EQ(flatChordList(editor.sections()).size(), 3u);
    EXPECT_EQ(editor.flatIndex(1, 0), 2);
    EXPECT_EQ(editor.flatIndex(0, 1), 1);
    for (const auto& [section, chord] :
         std::vector<std::pair<int, int>>{{2, 0}, {1, 1}, {-1, 0}, {0, 2}})
        EXPECT_FALSE(editor.flatIndex(section, chord));
    EXPECT_EQ(diagnostics.lines().back(), "Invalid section or chord index");

    // the key changes what new chords are offered, never the chords in place
    editor.setKeySignature(Note::Ef, KeySignatureQuality::minor);
    EXPECT_EQ(editor.currentKeySignature(), (Chord{Note::Ef, "minor", 0}));
    EXPECT_EQ(editor.sections()[0].chords[0], (Chord{Note::D, "major", 0}));

    // a tap selects while stopped, except right after a long press
    editor.longPress();
    editor.tapChord(0, 1);
    EXPECT_FALSE(editor.selectedChordInfo());
    editor.tapChord(0, 1);
    ASSERT_TRUE(editor.selectedChordInfo());
    EXPECT_EQ(editor.selectedChordInfo()->chordIndex, 1);
    EXPECT_TRUE(editor.deleteChord());
    EXPECT_EQ(editor.sections()[0].chords, (std::vector<Chord>{{Note::D, "major", 0}}));
    EXPECT_FALSE(editor.deleteChord()) << "nothing is selected any more";

    // while playing, a tap seeks instead
    ASSERT_TRUE(personal::write(*store_, personal::keys::isSequencerOn, true));
    editor.tapChord(1, 0);
    EXPECT_EQ(sequencer_.seeks, std::vector<int>{1});
    EXPECT_EQ(editor.chordIndex(), 1);
}

TEST_F(SongEditorModelTest, AnEmptySongStopsTheSequencerAndTempoIsToldOnChange) {
    SongEditorModel editor(std::nullopt, services());
    editor.selectSection(editor.sections()[0].id);
    editor.addChord({Note::G, "major", 0});
    ASSERT_TRUE(personal::write(*store_, personal::keys::isSequencerOn, true));
    sequencer_.running = true;
    const int tempoChanges = sequencer_.tempoChanges;
    editor.setTempo(120);
    EXPECT_EQ(sequencer_.tempoChanges, tempoChanges) << "an unchanged tempo is not told";
    editor.setTempo(96);
    EXPECT_EQ(sequencer_.bpm, 96);

    const int updates = sequencer_.updates;
    editor.deleteSection(editor.sections()[0].id);
    EXPECT_EQ(sequencer_.updates, updates + 1);
    EXPECT_EQ(sequencer_.stops, 1);
    EXPECT_FALSE(personal::read(*store_, personal::keys::isSequencerOn));
    EXPECT_FALSE(editor.selectedSectionID());
}

TEST_F(SongEditorModelTest, SavingNamesANewFileOnceAndNeverRenames) {
    SongEditorModel editor(std::nullopt, services());
    editor.trackTitle = "Morning";
    editor.setTempo(88);
    ASSERT_TRUE(editor.save());
    const auto file = documents() / "Morning.frtqul";
    EXPECT_EQ(editor.documentURL(), file);
    runMain();
    EXPECT_EQ(observer_.changes, 1);

    SongEditorModel reopened(file, services());
    EXPECT_FALSE(reopened.loadError());
    EXPECT_EQ(comparable(reopened.data()), comparable(editor.data()));
    reopened.trackTitle = "Evening";
    ASSERT_TRUE(reopened.save());
    EXPECT_EQ(FrtQulDocument::read(file)->title, "Evening")
        << "the title changes inside the same file";
    EXPECT_EQ(files(), std::vector<std::string>{"Morning.frtqul"});

    writeBytes(documents() / "Bad.frtqul", "torn");
    SongEditorModel broken(documents() / "Bad.frtqul", services());
    EXPECT_EQ(broken.loadError()->message.rfind("Error loading document: ", 0), 0u);
    EXPECT_EQ(broken.trackTitle, "Untitled");
    EXPECT_EQ(SongEditorModel::edit(documents() / "Bad.frtqul", services(),
                                    [](auto&) { return tl::expected<void, Error>{}; })
                  .error(),
              *broken.loadError());
    EXPECT_EQ(readBytes(documents() / "Bad.frtqul"), "torn") << "a song that does not read stays";

    SongEditorModel nowhere(std::nullopt, services());
    nowhere.trackTitle = "no/such/folder";
    EXPECT_EQ(nowhere.save().error().message.rfind("Error saving document: ", 0), 0u);
    EXPECT_EQ(SongEditorModel::create(" Morning ", services()).error(),
              SongMakerDocumentStoreError::fileAlreadyExists("Morning"));
}

// Edits at once, as from processes started together, each see the one before: none is lost.
TEST_F(SongEditorModelTest, EditsAtOnceAreAllKept) {
    const auto file = *SongEditorModel::create("Crowded", services());
    std::vector<std::thread> editors;
    for (int editor = 0; editor < 12; ++editor)
        editors.emplace_back([&, editor] {
            SilentSequencer sequencer;
            SongEditorModel::Services own;
            own.sequencer = &sequencer;
            own.documents = location();
            const auto edited = SongEditorModel::edit(file, own, [&](SongEditorModel& song) {
                song.selectSection(song.sections().at(0).id);
                song.addChord({core::Note::C, "major", editor});
                return tl::expected<void, Error>{};
            });
            EXPECT_TRUE(edited) << edited.error().message;
        });
    for (auto& editor : editors)
        editor.join();
    EXPECT_EQ(FrtQulDocument::read(file)->sections.at(0).chords.size(), 12u);
}

} // namespace
} // namespace fq::songmaker
