#include "CliRun.h"
#include "PulseTestServer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sndfile.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <tuple>

namespace fq::cli {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

std::vector<Json> jsonLines(const std::string& text) {
    std::vector<Json> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(Json::parse(line));
    return lines;
}

class TunerCommandsTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "fq-tune-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
        setenv("FRETQUILL_HOME", (folder_ / "home").c_str(), 1);
    }
    void TearDown() override { fs::remove_all(folder_); }
    std::string file(const char* name) const { return (folder_ / name).string(); }
    fs::path folder_;
};

TEST_F(TunerCommandsTest, ARenderedReferenceToneIsReadBackInTune) {
    const auto wav = file("a2.wav");
    const auto tone = run({"tone", "standard", "5", "--render", wav.c_str(), "--json"});
    ASSERT_EQ(tone.status, 0) << tone.err;
    EXPECT_EQ(Json::parse(tone.out).dump(),
              R"({"tuning":"standard","title":"Standard Tuning","buttonTitle":"A2",)"
              R"("noteNumber":45,"rendered":")" +
                  wav + R"("})");

    const auto tuned = run({"tune", "--input", wav.c_str(), "--fast", "--json"});
    ASSERT_EQ(tuned.status, 0) << tuned.err;
    const auto lines = jsonLines(tuned.out);
    ASSERT_FALSE(lines.empty());
    for (const auto& line : lines) {
        std::vector<std::string> keys;
        for (const auto& [key, value] : line.items())
            keys.push_back(key);
        EXPECT_EQ(keys, (std::vector<std::string>{"frequency", "noteNumber", "note", "cents",
                                                  "instruction"}));
    }
    const auto& last = lines.back();
    EXPECT_EQ(last["note"], "A₂");
    EXPECT_EQ(last["noteNumber"], 45);
    EXPECT_EQ(last["instruction"], "In Tune");
    EXPECT_NEAR(last["frequency"].get<double>(), 110.0, 110.0 * 0.006); // 10 cents
    // the numbers change at most five times a second: 2.5 s of sound, a dozen lines at most
    EXPECT_LE(lines.size(), 13u);

    // the same file as text: one line per change, the note and its instruction on each
    const auto text = run({"tune", "--input", wav.c_str(), "--fast"});
    ASSERT_EQ(text.status, 0) << text.err;
    EXPECT_NE(text.out.find("A₂"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("In Tune"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("110."), std::string::npos) << text.out;
}

TEST_F(TunerCommandsTest, TonesAreFoundByStringNumberOrNote) {
    const auto wav = file("t.wav");
    const std::vector<std::tuple<const char*, const char*, const char*>> cases{
        {"standard", "6", "E2"},
        {"dropCs", "c#2", "C♯2"},
        {"openGMinor", "Bb3", "B♭3"},
        {"nashville", "2", "B3"}, // not rising: the second string lies below the third
    };
    for (const auto& [tuning, string, title] : cases) {
        const auto result = run({"tone", tuning, string, "--render", wav.c_str(), "--json"});
        ASSERT_EQ(result.status, 0) << tuning << " " << result.err;
        EXPECT_EQ(Json::parse(result.out)["buttonTitle"], title) << tuning;
    }
}

TEST_F(TunerCommandsTest, AWholeTuningSoundsStringByStringInCatalogueOrder) {
    // nashville's strings do not rise: the tuner must hear them in the catalogue's order
    const auto wav = file("nashville.wav");
    const auto tone = run({"tone", "nashville", "--render", wav.c_str()});
    ASSERT_EQ(tone.status, 0) << tone.err;
    EXPECT_EQ(tone.out, "Rendered E3 A3 D4 G4 B3 E4 of Nashville Tuning to " + wav + "\n");
    const auto tuned = run({"tune", "--input", wav.c_str(), "--fast", "--json"});
    ASSERT_EQ(tuned.status, 0) << tuned.err;
    std::vector<std::string> heard;
    for (const auto& line : jsonLines(tuned.out))
        if (heard.empty() || heard.back() != line["note"].get<std::string>())
            heard.push_back(line["note"].get<std::string>());
    EXPECT_EQ(heard, (std::vector<std::string>{"E₃", "A₃", "D₄", "G₄", "B₃", "E₄"}));

    // without a tuning: the rows of reference tones of the enabled tunings
    const auto rows = run({"tone", "--json"});
    ASSERT_EQ(rows.status, 0) << rows.err;
    const auto json = Json::parse(rows.out);
    ASSERT_FALSE(json.empty());
    EXPECT_EQ(json[0]["id"], "standard");
    EXPECT_EQ(json[0]["strings"].size(), 6u);
    EXPECT_EQ(json[0]["strings"][5].dump(), R"({"buttonTitle":"E4","noteNumber":64})");
}

TEST_F(TunerCommandsTest, SilenceShowsNothing) {
    const auto wav = file("quiet.wav");
    SF_INFO info{};
    info.samplerate = 44100;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* out = sf_open(wav.c_str(), SFM_WRITE, &info);
    ASSERT_NE(out, nullptr);
    const std::vector<float> silence(44100, 0.0f);
    sf_writef_float(out, silence.data(), static_cast<sf_count_t>(silence.size()));
    sf_close(out);

    const auto json = run({"tune", "--input", wav.c_str(), "--fast", "--json"});
    ASSERT_EQ(json.status, 0) << json.err;
    EXPECT_EQ(json.out, "");
    const auto text = run({"tune", "--input", wav.c_str(), "--fast"});
    EXPECT_EQ(text.out, "No pitch heard.\n");
}

TEST_F(TunerCommandsTest, BadInputIsOneLineOnStandardErrorWithStatusOne) {
    const auto notAudio = file("notes.txt");
    std::ofstream(notAudio) << "not a sound\n";
    const auto wav = file("never.wav");
    const std::vector<std::pair<std::vector<const char*>, std::string>> cases{
        {{"tune", "--input", "/no/such/file.wav", "--fast"}, ""},
        {{"tune", "--input", notAudio.c_str(), "--fast", "--json"}, ""},
        {{"tune", "--fast"}, "--fast needs --input FILE.wav\n"},
        {{"tone", "dropQ", "1", "--render", wav.c_str()}, "Unknown tuning: dropQ\n"},
        {{"tone", "standard", "7", "--render", wav.c_str()},
         "No string 7 in Standard Tuning: give 1 to 6 or one of E2, A2, D3, G3, B3, E4\n"},
        {{"tone", "standard", "F#2", "--render", wav.c_str()}, ""},
        {{"tone", "standard", "1", "--render", "/nonexistent-folder/e.wav"}, ""},
    };
    for (const auto& [arguments, message] : cases) {
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 1) << arguments[2];
        EXPECT_EQ(result.out, "") << arguments[2];
        if (!message.empty()) {
            EXPECT_EQ(result.err, message);
        }
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
    EXPECT_FALSE(fs::exists(wav));
}

TEST_F(TunerCommandsTest, ListensLiveToWhatTheDeviceHears) {
    auto* server = audio::testing::PulseTestServer::shared();
    if (!server->usable()) GTEST_SKIP() << server->whyUnusable();
    const auto wav = file("d3.wav");
    ASSERT_EQ(run({"tone", "standard", "4", "--render", wav.c_str()}).status, 0);
    // played to the server's sink, whose monitor is the default input
    std::thread player([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(800));
        server->runClient({"paplay", wav});
    });
    const auto result = run({"tune", "--duration", "4", "--json"});
    player.join();
    ASSERT_EQ(result.status, 0) << result.err;
    const auto lines = jsonLines(result.out);
    ASSERT_FALSE(lines.empty()) << result.err;
    EXPECT_EQ(lines.back()["note"], "D₃");
    EXPECT_EQ(lines.back()["instruction"], "In Tune");
}

} // namespace
} // namespace fq::cli
