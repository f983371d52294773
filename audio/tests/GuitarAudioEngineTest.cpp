// The guitar on an engine rendered offline: strum timing by onsets, suspension, silencing
// and the SoundFont missing.

#include "fq/audio/GuitarAudioEngine.h"

#include "AudioTestSupport.h"
#include "fq/audio/OfflineRender.h"

#include <gtest/gtest.h>

#include <fstream>

namespace fq::audio {
namespace {

using namespace std::chrono_literals;
using testing::DiagnosticCapture;

constexpr double rate = 44100.0;
constexpr double strumGap = 2205; // 50 ms
// FluidSynth starts a voice at the next of its 64-frame blocks
constexpr double synthBlock = 64;
// C major as the barre on the eighth fret: six strings, lowest first
const std::vector<int> cMajor{48, 55, 60, 64, 67, 72};

/// A guitar on an engine that renders offline, its timeline moved by hand.
class GuitarAudioEngineTest : public ::testing::Test {
protected:
    void SetUp() override {
        engine_.enableManualRenderingMode();
        guitar_ = GuitarAudioEngine::create(engine_);
    }
    void TearDown() override { guitar_.reset(); }

    std::vector<float> render(std::chrono::milliseconds length) {
        const auto audio = renderOffline(
            engine_, timeline_,
            static_cast<std::int64_t>(rate * static_cast<double>(length.count()) / 1000));
        return testing::mono(audio.left, audio.right);
    }

    std::vector<double> onsets(std::span<const float> audio, std::span<const int> notes) {
        return testing::noteOnsets(audio, notes, rate, 441);
    }

    ManualTimeline timeline_;
    SharedAudioEngine engine_{timeline_};
    std::shared_ptr<GuitarAudioEngine> guitar_;
};

TEST_F(GuitarAudioEngineTest, AStrumSoundsEachNoteFiftyMillisecondsAfterTheLast) {
    ASSERT_TRUE(guitar_->hasInstrument());
    guitar_->strum(cMajor);
    EXPECT_TRUE(engine_.isRunning()) << "a strum starts the engine";
    const auto found = onsets(render(1000ms), cMajor);
    ASSERT_EQ(found.size(), 6u);
    for (std::size_t i = 0; i < found.size(); ++i)
        EXPECT_NEAR(found[i], static_cast<double>(i) * strumGap, synthBlock) << "note " << i;
}

TEST_F(GuitarAudioEngineTest, NotesSoundInTheOrderGiven) {
    const std::vector<int> downward{64, 59, 55, 50, 45, 40};
    guitar_->strum(downward);
    const auto found = onsets(render(800ms), downward);
    ASSERT_EQ(found.size(), 6u);
    EXPECT_TRUE(std::is_sorted(found.begin(), found.end()));
    EXPECT_NEAR(found[5], 5 * strumGap, synthBlock);
}

TEST_F(GuitarAudioEngineTest, GoingToTheBackgroundMidStrumLeavesTheRestUnplayed) {
    guitar_->strum(cMajor);
    const auto before = render(75ms); // notes at 0 and 50 ms have started
    guitar_->suspendForBackground();
    EXPECT_TRUE(guitar_->isSuspended());
    EXPECT_FALSE(engine_.isRunning()) << "the engine pauses";
    const auto paused = render(400ms);
    EXPECT_EQ(testing::rms(paused), 0.0) << "a paused engine renders nothing";

    guitar_->resumeAfterActivation(false);
    EXPECT_FALSE(guitar_->isSuspended());
    EXPECT_TRUE(engine_.isRunning());
    const auto after = render(500ms);
    // a note sounds at 0.03 and more: what is left is the room's echo of the first two
    EXPECT_LT(testing::rms(after), 1e-3) << "no stale note sounds after the resumption";

    const auto found = onsets(before, std::vector<int>{48, 55, 60});
    ASSERT_GE(found.size(), 2u);
    EXPECT_NEAR(found[1], strumGap, synthBlock);
    if (found.size() > 2) {
        EXPECT_GT(found[2], 0.8 * 2 * strumGap) << "no third note began before the suspension";
    }
}

TEST_F(GuitarAudioEngineTest, ANewChordDoesNotCancelTheNotesStillPendingFromTheLast) {
    const auto generation = guitar_->strumGeneration();
    guitar_->strum(std::vector<int>{40, 45, 50, 55, 59, 64});
    guitar_->playChord(std::vector<int>{76});
    EXPECT_EQ(guitar_->strumGeneration(), generation);
    // both sound in full: the new chord's silencing comes before the first strum's
    // notes, which keep their beats of 50 ms
    const std::vector<int> inOrder{40, 76, 45, 50, 55, 59, 64};
    const std::vector<double> beat{0, 0, 1, 2, 3, 4, 5};
    const auto found = testing::noteOnsets(render(800ms), inOrder, rate);
    ASSERT_EQ(found.size(), inOrder.size());
    for (std::size_t i = 0; i < found.size(); ++i)
        EXPECT_NEAR(found[i], beat[i] * strumGap, synthBlock) << "note " << inOrder[i];
}

TEST_F(GuitarAudioEngineTest, SilencingCutsOffWhatSounds) {
    guitar_->strum(std::vector<int>{40});
    const auto ringing = render(300ms);
    guitar_->stopAllNotes();
    render(150ms); // a quick fade, as a hand on the strings
    const auto after = render(200ms);
    EXPECT_GT(testing::rms(std::span(ringing).subspan(8820)), 50 * testing::rms(after));
}

TEST_F(GuitarAudioEngineTest, ANewChordReplacesTheOneThatSounds) {
    guitar_->strum(std::vector<int>{40});
    render(300ms);
    guitar_->playChord(std::vector<int>{45});
    const auto after = render(600ms);
    const auto found = testing::noteOnsets(after, std::vector<int>{45}, rate);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_NEAR(found[0], 0, synthBlock);
    // once the old note has faded, what sounds is the new chord alone
    const auto alone = testing::isolatedGuitarNote(45, rate, 1.0);
    const auto from = static_cast<std::size_t>(found[0]) + 6615;
    std::vector<float> difference(13230);
    for (std::size_t i = 0; i < difference.size(); ++i)
        difference[i] = after[from + i] - alone[6615 + i];
    EXPECT_LT(testing::rms(difference), 0.05 * testing::rms(std::span(alone).subspan(6615, 13230)));
}

TEST_F(GuitarAudioEngineTest, AStrumWhileSuspendedPlaysNothingAndDoesNotStartTheEngine) {
    guitar_->suspendForBackground();
    engine_.pause();
    guitar_->strum(cMajor);
    EXPECT_FALSE(engine_.isRunning());
    EXPECT_FALSE(guitar_->ensureRunning());
    EXPECT_EQ(timeline_.pendingCount(), 0u);
    ASSERT_TRUE(engine_.start());
    EXPECT_LT(testing::rms(render(500ms)), 1e-6)
        << "nothing but the reverb's guard against denormals";
}

TEST_F(GuitarAudioEngineTest, ResumingInvalidatesNotesInFlightAndARebuildStillPlays) {
    DiagnosticCapture diagnostics;
    guitar_->strum(cMajor);
    render(30ms);
    const auto generation = guitar_->strumGeneration();
    guitar_->resumeAfterActivation(true);
    EXPECT_EQ(guitar_->strumGeneration(), generation + 2)
        << "once before the rebuild and once after";
    EXPECT_TRUE(diagnostics.contains(
        "GuitarAudioEngine rebuilding sampler graph after audio interruption"));
    EXPECT_FALSE(guitar_->isSuspended());
    render(600ms);
    EXPECT_LT(testing::rms(render(100ms)), 1e-4) << "the strum before the rebuild stays cut off";

    guitar_->playChord(cMajor);
    const auto found = onsets(render(600ms), cMajor);
    ASSERT_EQ(found.size(), 6u);
    EXPECT_NEAR(found[5] - found[0], 5 * strumGap, synthBlock);
}

TEST(GuitarAudioEngineInstrumentTest, AMissingOrBrokenSoundFontLeavesASilentGuitarAndOneLine) {
    const auto broken = std::filesystem::temp_directory_path() / "fq-broken.sf2";
    std::ofstream(broken) << "RIFF, but not a SoundFont";
    for (const auto& [font, line] : {std::pair<std::filesystem::path, std::string>{
                                         "/nonexistent/FluidR3_GM.sf2", "could not load aupreset"},
                                     {broken, "error loading preset: "}}) {
        DiagnosticCapture diagnostics;
        ManualTimeline timeline;
        SharedAudioEngine engine{timeline};
        engine.enableManualRenderingMode();
        auto guitar = GuitarAudioEngine::create(engine, {.soundFonts = {font}});
        const auto lines = diagnostics.lines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].rfind(line, 0), 0u) << lines[0];
        EXPECT_FALSE(guitar->hasInstrument());
        guitar->playChord(cMajor);
        EXPECT_EQ(testing::rms(renderOffline(engine, timeline, 44100).left), 0.0);
        EXPECT_TRUE(engine.isRunning()) << "no error for the caller";
    }
    std::filesystem::remove(broken);
}

} // namespace
} // namespace fq::audio
