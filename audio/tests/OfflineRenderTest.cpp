#include "fq/audio/OfflineRender.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cstdlib>
#include <filesystem>

namespace fq::audio {
namespace {

TEST(OfflineRenderTest, WavFilesHoldBothChannelsAt16BitsAndClipBeyondFullScale) {
    const auto file = std::filesystem::temp_directory_path() / "fq-offline-render.wav";
    StereoBuffer audio;
    audio.left = {0.0f, 0.5f, -0.5f, 1.5f, -2.0f};
    audio.right = {0.25f, -0.25f, 1.0f, 0.0f, 0.0f};
    ASSERT_TRUE(writeWav(file, audio, 48000));

    SF_INFO info{};
    SNDFILE* in = sf_open(file.c_str(), SFM_READ, &info);
    ASSERT_NE(in, nullptr);
    EXPECT_EQ(info.samplerate, 48000);
    EXPECT_EQ(info.channels, 2);
    EXPECT_EQ(info.frames, 5);
    EXPECT_EQ(info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    std::vector<short> samples(10);
    EXPECT_EQ(sf_readf_short(in, samples.data(), 5), 5);
    sf_close(in);
    // interleaved; half scale is 16384 (or 16383 from below), beyond full scale clips
    EXPECT_EQ(samples,
              (std::vector<short>{0, 8192, 16384, -8192, -16384, 32767, 32767, 0, -32768, 0}));
    std::filesystem::remove(file);
}

TEST(OfflineRenderTest, AFileThatCannotBeWrittenIsAnError) {
    const auto result = writeWav("/nonexistent-folder/x.wav", StereoBuffer{{0.0f}, {0.0f}}, 44100);
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().message.rfind("Cannot write /nonexistent-folder/x.wav: ", 0), 0u)
        << result.error().message;
}

} // namespace
} // namespace fq::audio
