// `fretquill play` and `fretquill audio devices`: rendered strums checked by their onsets,
// the shapes chosen, bad input, and the device through a private sound server.

#include "AudioTestSupport.h"
#include "CliRun.h"
#include "PulseTestServer.h"
#include "fq/test/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sndfile.h>

#include <cstdlib>
#include <filesystem>

namespace fq::cli {
namespace {

namespace fs = std::filesystem;
using audio::testing::PulseTestServer;

struct Wav {
    int sampleRate = 0;
    int channels = 0;
    std::vector<float> left;
    std::vector<float> right;
};

Wav readWav(const fs::path& file) {
    SF_INFO info{};
    SNDFILE* in = sf_open(file.c_str(), SFM_READ, &info);
    if (in == nullptr) return {};
    std::vector<float> interleaved(static_cast<std::size_t>(info.frames * info.channels));
    sf_readf_float(in, interleaved.data(), info.frames);
    sf_close(in);
    Wav wav{info.samplerate, info.channels, {}, {}};
    for (std::size_t i = 0; i + 1 < interleaved.size(); i += 2) {
        wav.left.push_back(interleaved[i]);
        wav.right.push_back(interleaved[i + 1]);
    }
    return wav;
}

class AudioCommandsTest : public OwnHome {};

TEST_F(AudioCommandsTest, RenderWritesTheStrumToAWavFile) {
    const auto file = (folder_ / "c.wav").string();
    const auto result = run({"play", "C", "--render", file.c_str(), "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(
        nlohmann::ordered_json::parse(result.out).dump(),
        R"({"chord":{"rootNote":"C","chordType":"major","variant":0},"position":[-1,3,2,0,1,0],)"
        R"("notes":[48,52,55,60,64],"rendered":")" +
            file + R"("})");

    const auto wav = readWav(file);
    EXPECT_EQ(wav.sampleRate, 44100);
    EXPECT_EQ(wav.channels, 2);
    EXPECT_EQ(wav.left.size(), 3u * 44100) << "the strum and its ring: three seconds";
    EXPECT_GT(audio::testing::rms(wav.left), 0.01);
    // five strings, each 50 ms after the last (to FluidSynth's 64 frames), from the start
    const std::vector<int> notes{48, 52, 55, 60, 64};
    const auto onsets =
        audio::testing::noteOnsets(audio::testing::mono(wav.left, wav.right), notes, 44100, 441);
    ASSERT_EQ(onsets.size(), 5u);
    for (std::size_t i = 0; i < onsets.size(); ++i)
        EXPECT_NEAR(onsets[i], 2205.0 * static_cast<double>(i), 64) << "string " << i;
}

TEST_F(AudioCommandsTest, TheShapeComesFromTheFretsOrTheTuningsFirstPosition) {
    const auto file = (folder_ / "x.wav").string();
    const std::vector<std::pair<std::vector<const char*>, std::string>> cases{
        {{"play", "C", "--frets", "x32010"}, "[48,52,55,60,64]"},
        {{"play", "C", "--frets", "8,10,10,9,8,8"}, "[48,55,60,64,67,72]"},
        {{"play", "D", "--tuning", "dropD", "--frets", "000232"}, "[38,45,50,57,62,66]"},
        // six notes naming a catalogue tuning sound in its octaves
        {{"play", "D", "--tuning", "D,A,D,G,B,E", "--frets", "000232"}, "[38,45,50,57,62,66]"},
        {{"play", "Am", "--frets", "x02210"}, "[45,52,57,60,64]"},
    };
    for (auto [arguments, notes] : cases) {
        arguments.insert(arguments.end(), {"--render", file.c_str(), "--json"});
        const auto result = run(arguments);
        ASSERT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(nlohmann::json::parse(result.out)["notes"].dump(), notes) << arguments[1];
    }
    // without frets: the first shape of the chord in that tuning
    const auto dropD = run({"play", "D", "--tuning", "dropD", "--render", file.c_str(), "--json"});
    ASSERT_EQ(dropD.status, 0) << dropD.err;
    const auto shapes =
        run({"chord", "shapes", "D", "--tuning", "dropD", "--limit", "1", "--json"});
    EXPECT_EQ(nlohmann::json::parse(dropD.out)["position"],
              nlohmann::json::parse(shapes.out)[0]["position"]);

    const auto text = run({"play", "G", "--frets", "320003", "--render", file.c_str()});
    EXPECT_EQ(text.out,
              "Rendered G major (320003): MIDI notes 43 47 50 55 59 67 to " + file + "\n");
}

TEST_F(AudioCommandsTest, BadInputIsOneLineOnStandardErrorWithStatusOne) {
    const auto file = (folder_ / "y.wav").string();
    const std::vector<std::pair<std::vector<const char*>, std::string>> cases{
        {{"play", "H7", "--render", file.c_str()}, "Unknown chord: H7\n"},
        {{"play", "C", "--frets", "xxxxxx", "--render", file.c_str()},
         "Nothing to play: every string is muted\n"},
        {{"play", "C", "--tuning", "dropQ", "--render", file.c_str()},
         "Unknown tuning: dropQ (name one such as dropD or dadgad, or give six notes like "
         "D,A,D,G,B,E)\n"},
        {{"play", "C", "--render", "/nonexistent-folder/c.wav"}, ""},
        {{"play", "C", "--frets", "x3201", "--render", file.c_str()}, ""},
        {{"play"}, "Name a chord, e.g. \"Am7\", or give --root and --type\n"},
    };
    for (const auto& [arguments, message] : cases) {
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 1) << arguments[1];
        EXPECT_TRUE(result.out.empty()) << result.out;
        if (!message.empty()) {
            EXPECT_EQ(result.err, message);
        }
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
    EXPECT_EQ(run({"play", "C", "--render", "/nonexistent-folder/c.wav"})
                  .err.rfind("Cannot write /nonexistent-folder/c.wav: ", 0),
              0u);
    EXPECT_FALSE(fs::exists(file));
}

class AudioDeviceCommandsTest : public AudioCommandsTest {
protected:
    void SetUp() override {
        AudioCommandsTest::SetUp();
        server_ = PulseTestServer::shared();
        if (!server_->usable())
            GTEST_SKIP() << "no sound server for a device test: " << server_->whyUnusable();
    }
    PulseTestServer* server_ = nullptr;
};

TEST_F(AudioDeviceCommandsTest, DevicesAreListedWithTheDefaultsMarked) {
    const auto json = run({"audio", "devices", "--json"});
    ASSERT_EQ(json.status, 0) << json.err;
    const auto devices = nlohmann::ordered_json::parse(json.out);
    ASSERT_TRUE(devices.is_array());
    ASSERT_FALSE(devices.empty());
    std::vector<std::string> keys;
    for (const auto& [key, value] : devices[0].items())
        keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string>{"index", "name", "hostApi", "maxInputChannels",
                                              "maxOutputChannels", "defaultSampleRate",
                                              "isDefaultInput", "isDefaultOutput"}));
    const auto defaults = std::count_if(devices.begin(), devices.end(), [](const auto& device) {
        return device["isDefaultOutput"].template get<bool>();
    });
    EXPECT_EQ(defaults, 1);

    const auto text = run({"audio", "devices"});
    ASSERT_EQ(text.status, 0) << text.err;
    EXPECT_NE(text.out.find("(default output"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("fretquill plays through: "), std::string::npos) << text.out;
    EXPECT_TRUE(text.err.empty()) << "the host back-ends' probing stays quiet: " << text.err;
}

TEST_F(AudioDeviceCommandsTest, PlayStrumsThroughTheDevice) {
    PulseTestServer::Recording recording(*server_, folder_ / "played.raw");
    ASSERT_TRUE(recording.waitUntilRecording());
    const auto result = run({"play", "C"});
    const auto recorded = recording.stop();
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "Played C major (x32010): MIDI notes 48 52 55 60 64\n");
    const std::vector<int> notes{48, 52, 55, 60, 64};
    const auto onsets = audio::testing::noteOnsets(recorded, notes, 44100, 441);
    ASSERT_EQ(onsets.size(), 5u);
    for (std::size_t i = 1; i < onsets.size(); ++i)
        EXPECT_NEAR(onsets[i] - onsets[i - 1], 2205, 220.5) << ::testing::PrintToString(onsets);
}

TEST_F(AudioDeviceCommandsTest, ADeviceThatIsNotThereIsNamedInTheError) {
    setenv("FRETQUILL_AUDIO_DEVICE", "Nonexistent Device", 1);
    const auto result = run({"play", "C"});
    unsetenv("FRETQUILL_AUDIO_DEVICE");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(
        result.err,
        "No audio device named \"Nonexistent Device\" (fretquill audio devices lists them); write "
        "the sound to a file with --render FILE.wav\n");
}

} // namespace
} // namespace fq::cli
