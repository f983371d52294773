// End to end on a real clocked device: a private sound server's null sink, recorded
// from its monitor. The rendered file, read back; and the settings' ranges.

#include "PulseTestServer.h"
#include "fq/metronome/MetronomeAudioUnitManager.h"
#include "fq/metronome/MetronomeRender.h"

#include <fq/audio/Timeline.h>
#include <fq/personal/SharedStore.h>
#include <fq/personal/UserPreferences.h>

#include <asio/io_context.hpp>
#include <gtest/gtest.h>
#include <sndfile.h>

#include <cmath>
#include <filesystem>
#include <thread>

namespace fq::metronome {
namespace {

using audio::testing::PulseTestServer;
using namespace std::chrono_literals;

/// Frames where the sound rises out of at least `gap` frames of near silence.
std::vector<std::int64_t> onsets(const std::vector<float>& samples, float threshold,
                                 std::int64_t gap) {
    std::vector<std::int64_t> found;
    std::int64_t lastLoud = -gap - 1;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        if (std::abs(samples[i]) < threshold) continue;
        const auto frame = static_cast<std::int64_t>(i);
        if (frame - lastLoud > gap) found.push_back(frame);
        lastLoud = frame;
    }
    return found;
}

TEST(MetronomeDeviceTest, ClicksKeepTheirSpacingOnADevice) {
    auto* server = PulseTestServer::shared();
    if (!server->usable()) GTEST_SKIP() << server->whyUnusable();
    const auto folder = server->directory();

    audio::ThreadPoolTimeline timeline(1);
    audio::SharedAudioEngine engine(timeline);
    asio::io_context main;
    {
        MetronomeAudioUnitManager manager(engine, main.get_executor());
        manager.setUp();
        main.run();
        ASSERT_NE(manager.audioUnit(), nullptr);
        ASSERT_TRUE(engine.isRunning());
        applySettings(*manager.audioUnit(), {97, 4, 3, MetronomeSound::real, 1, true});

        PulseTestServer::Recording recording(*server, folder / "metronome.raw");
        ASSERT_TRUE(recording.waitUntilRecording());
        manager.start();
        std::this_thread::sleep_for(2500ms);
        manager.stop();
        std::this_thread::sleep_for(300ms);
        const auto recorded = recording.stop();
        engine.stop();

        // 97 BPM in threes: 9092.78 frames from click to click
        const double interval = 44100.0 * 60 / 97 / 3;
        const auto found = onsets(recorded, 0.05f, 3000);
        ASSERT_GE(found.size(), 10u); // about twelve in 2.5 s
        int exact = 0;
        for (std::size_t i = 1; i < found.size(); ++i) {
            const double spacing = static_cast<double>(found[i] - found[i - 1]);
            // a dropout on a busy machine can only delay a click, never hurry it
            EXPECT_GE(spacing, interval - 1.5) << "click " << i;
            if (std::abs(spacing - interval) <= 1.0) ++exact;
        }
        EXPECT_GE(exact, static_cast<int>(found.size() - 1) * 8 / 10);
    }
}

TEST(MetronomeRenderTest, RenderedFilesHaveClicksOnTheExactFrames) {
    const auto file = std::filesystem::temp_directory_path() /
                      ("fq-metronome-" + std::to_string(::getpid()) + ".wav");
    // square clicks: the fade starts from zero, so each click is heard from its second frame
    const auto frames = renderMetronome({120, 4, 1, MetronomeSound::square, 1, true}, file, 2.1);
    ASSERT_TRUE(frames) << frames.error().message;
    EXPECT_EQ(*frames, 92610);

    SF_INFO info{};
    SNDFILE* in = sf_open(file.c_str(), SFM_READ, &info);
    ASSERT_NE(in, nullptr);
    std::vector<float> interleaved(static_cast<std::size_t>(info.frames * info.channels));
    sf_readf_float(in, interleaved.data(), info.frames);
    sf_close(in);
    std::filesystem::remove(file);
    EXPECT_EQ(info.samplerate, 44100);
    EXPECT_EQ(info.channels, 2);
    std::vector<float> left;
    for (std::size_t i = 0; i < interleaved.size(); i += 2)
        left.push_back(interleaved[i]);
    EXPECT_EQ(onsets(left, 1e-6f, 2000),
              (std::vector<std::int64_t>{1, 22051, 44101, 66151, 88201}));
}

TEST(MetronomeRenderTest, ALongRenderOutgrowsWavIntoRf64) {
    // 16-bit stereo: four bytes a frame, and a RIFF size field of 32 bits
    const std::int64_t fourGigabytes = std::int64_t{1} << 32;
    EXPECT_EQ(containerFor(44100), WavContainer::wav);
    EXPECT_EQ(containerFor(fourGigabytes / 4 - 2048), WavContainer::wav);
    EXPECT_EQ(containerFor(fourGigabytes / 4), WavContainer::rf64);
    EXPECT_EQ(containerFor(25000LL * 44100), WavContainer::rf64);
}

TEST(MetronomeSettingsTest, PeopleAreRefusedAndStoredValuesClamped) {
    EXPECT_EQ(checkedTempo(300), 300);
    EXPECT_EQ(checkedTempo(29).error(),
              (Error{"The tempo must be 30 to 300 BPM, not 29", ErrorKind::refused}));
    EXPECT_FALSE(checkedBeats(0));
    EXPECT_EQ(checkedBeats(16), 16);
    EXPECT_FALSE(checkedSubdivisions(9));
    EXPECT_EQ(checkedSound("Square"), MetronomeSound::square);
    EXPECT_FALSE(checkedSound("bell"));

    const auto folder = std::filesystem::temp_directory_path() /
                        ("fq-settings-" + std::to_string(::getpid()) + ".sqlite");
    auto store = *personal::SharedStore::open(folder);
    for (const auto& [key, value] :
         std::vector<std::pair<const char*, std::int64_t>>{{"tempo", 1000},
                                                           {"beats", -3},
                                                           {"subdivisions", 40},
                                                           {"metronomeSound", 9},
                                                           {"metronomeKeyIndex", 13}})
        ASSERT_TRUE(store->set(key, value));
    const personal::UserPreferences preferences(store);
    EXPECT_EQ(storedSettings(*store, preferences),
              (MetronomeSettings{300, 1, 8, MetronomeSound::real, 12, true}));
    MetronomeSettingsRequest request;
    request.bpm = 90;
    request.key = "A";
    request.accentFirstBeat = false;
    EXPECT_EQ(withRequest(storedSettings(*store, preferences), request),
              (MetronomeSettings{90, 1, 8, MetronomeSound::real, 5, false}));
    request.beats = 17;
    EXPECT_FALSE(withRequest({}, request));
    store.reset();
    std::filesystem::remove(folder);
}

TEST(MetronomeSettingsTest, KeysAsAPersonWritesThem) {
    const std::vector<std::pair<std::string, std::optional<int>>> cases{
        {"E (Low)", 0}, {"low E", 0}, {"F", 1},  {"F#", 2}, {"Gb", 2},
        {"G♭", 2},      {"F♯/G♭", 2}, {"a", 5},  {"E", 12}, {"7", 7},
        {"12", 12},     {"13", {}},   {"H", {}}, {"", {}},  {"-1", {}},
    };
    for (const auto& [text, index] : cases)
        EXPECT_EQ(keyIndexFromText(text), index) << text;
}

} // namespace
} // namespace fq::metronome
