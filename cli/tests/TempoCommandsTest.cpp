// `fretquill detect-tempo` and `metronome --listen`, from files and on a private sound server.

#include "Cli.h"
#include "PulseTestServer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sndfile.h>

#include <cmath>
#include <filesystem>
#include <numbers>
#include <random>
#include <sstream>
#include <string>
#include <thread>

namespace fq::cli {
namespace {

namespace fs = std::filesystem;
using audio::testing::PulseTestServer;

struct Run {
    int status;
    std::vector<nlohmann::json> lines;
    std::string err;
};

Run run(std::vector<const char*> arguments) {
    std::ostringstream out, err;
    const int status = runCli(arguments, out, err);
    Run result{status, {}, err.str()};
    std::istringstream lines(out.str());
    for (std::string line; std::getline(lines, line);)
        result.lines.push_back(nlohmann::json::parse(line));
    return result;
}

fs::path writeAudio(const std::vector<float>& audio, int rate) {
    const auto file = fs::temp_directory_path() / ("fq-tempo-" + std::to_string(getpid()) + ".wav");
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* out = sf_open(file.c_str(), SFM_WRITE, &info);
    sf_writef_float(out, audio.data(), static_cast<sf_count_t>(audio.size()));
    sf_close(out);
    return file;
}

/// A kick-like thump (a falling low sine with a click on top) on every beat.
fs::path writeBeats(double bpm, double seconds, int rate = 44100) {
    std::vector<float> audio(static_cast<std::size_t>(seconds * rate), 0.0f);
    for (double t = 0.25; t < seconds; t += 60.0 / bpm) {
        const auto start = static_cast<std::size_t>(t * rate);
        for (std::size_t i = 0; i < 6000 && start + i < audio.size(); ++i) {
            const double time = static_cast<double>(i) / rate;
            audio[start + i] = static_cast<float>(0.7 * std::exp(-time * 25) *
                                                  std::sin(2 * std::numbers::pi * 70 * time));
        }
    }
    return writeAudio(audio, rate);
}

/// No line is the same as the one before it.
void expectEachChangeOnce(const Run& run) {
    for (std::size_t i = 1; i < run.lines.size(); ++i)
        EXPECT_NE(run.lines[i], run.lines[i - 1]) << "line " << i;
}

std::vector<nlohmann::json> states(const Run& run) {
    std::vector<nlohmann::json> found;
    for (const auto& line : run.lines)
        if (line.contains("state")) found.push_back(line);
    return found;
}

TEST(DetectTempoCommand, AFileFedFastGivesStatesLevelsAndTheTempo) {
    const auto file = writeBeats(100, 13);
    const auto result = run({"detect-tempo", "--input", file.c_str(), "--fast", "--json"});
    fs::remove(file);
    ASSERT_EQ(result.status, 0) << result.err;
    const auto found = states(result);
    ASSERT_GE(found.size(), 4u);
    EXPECT_EQ(found.front(),
              (nlohmann::json{
                  {"state", "listening"}, {"message", "Listening for tempo"}, {"tempo", nullptr}}));
    EXPECT_EQ(found[1]["message"], "Listening for a steady beat");
    EXPECT_EQ(found.back(),
              (nlohmann::json{{"state", "idle"}, {"message", ""}, {"tempo", nullptr}}));
    const auto detected = std::find_if(found.begin(), found.end(),
                                       [](const auto& s) { return s["state"] == "detected"; });
    ASSERT_NE(detected, found.end());
    EXPECT_EQ((*detected)["tempo"], 100);
    EXPECT_EQ((*detected)["message"], "Detected 100");
    // levels first at rest, then one set per tapped buffer of 4096 frames
    ASSERT_TRUE(result.lines.front().contains("levels"));
    EXPECT_EQ(result.lines.front()["levels"], nlohmann::json(std::vector<double>(24, 0.08)));
    const auto levelLines = std::count_if(result.lines.begin(), result.lines.end(),
                                          [](const auto& line) { return line.contains("levels"); });
    EXPECT_LE(levelLines, 1 + 13 * 44100 / 4096);
    expectEachChangeOnce(result);
}

TEST(DetectTempoCommand, SilenceNoiseAndHumGiveNoTempoAtAnyRate) {
    std::mt19937 random(5);
    std::normal_distribution<float> noise(0.0f, 1.0f);
    for (const int rate : {44100, 22050, 48000}) {
        for (const std::string kind : {"silence", "white noise", "hum"}) {
            SCOPED_TRACE(kind + " at " + std::to_string(rate));
            std::vector<float> audio(static_cast<std::size_t>(13 * rate), 0.0f);
            for (std::size_t i = 0; i < audio.size(); ++i) {
                const double t = static_cast<double>(i) / rate;
                if (kind == "white noise") audio[i] = 0.3f * noise(random);
                if (kind == "hum") // with a 16-bit recording's dither
                    audio[i] = static_cast<float>(0.4 * std::sin(2 * std::numbers::pi * 60 * t)) +
                               3e-5f * noise(random);
            }
            const auto file = writeAudio(audio, rate);
            const auto result = run({"detect-tempo", "--input", file.c_str(), "--fast", "--json"});
            fs::remove(file);
            ASSERT_EQ(result.status, 0) << result.err;
            const auto found = states(result);
            for (const auto& state : found)
                EXPECT_NE(state["state"], "detected") << state;
            ASSERT_GE(found.size(), 3u);
            EXPECT_EQ(found[found.size() - 2]["message"], "Listening for a clearer beat");
            expectEachChangeOnce(result);
        }
    }
    // a beat at another rate is heard as well as at 44.1 kHz
    const auto file = writeBeats(100, 13, 22050);
    const auto result = run({"detect-tempo", "--input", file.c_str(), "--fast", "--json"});
    fs::remove(file);
    const auto found = states(result);
    EXPECT_TRUE(
        std::any_of(found.begin(), found.end(), [](const auto& s) { return s["tempo"] == 100; }));
}

TEST(DetectTempoCommand, BadInputIsOneLineAndStatusOne) {
    for (const auto& arguments : std::vector<std::vector<const char*>>{
             {"detect-tempo", "--input", "/no/such/file.wav", "--fast"},
             {"detect-tempo", "--fast"},
         }) {
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
}

TEST(DetectTempoCommand, HearsTheTempoOnALiveInput) {
    auto* server = PulseTestServer::shared();
    if (!server->usable()) GTEST_SKIP() << server->whyUnusable();
    const auto file = writeBeats(120, 13);
    // played to the server's sink, whose monitor is the default input
    std::thread player([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        server->runClient({"paplay", file.string()});
    });
    const auto result = run({"detect-tempo", "--duration", "13.5", "--json"});
    player.join();
    fs::remove(file);
    ASSERT_EQ(result.status, 0) << result.err;
    const auto found = states(result);
    const auto detected = std::find_if(found.begin(), found.end(),
                                       [](const auto& s) { return s["state"] == "detected"; });
    ASSERT_NE(detected, found.end()) << result.err;
    EXPECT_NEAR((*detected)["tempo"].get<int>(), 120, 2);
    EXPECT_EQ(found.back()["state"], "idle");
}

TEST(MetronomeListenCommand, TakesTheTempoItHearsAndStaysSilentMeanwhile) {
    auto* server = PulseTestServer::shared();
    if (!server->usable()) GTEST_SKIP() << server->whyUnusable();
    const auto file = writeBeats(132, 13);
    std::thread player([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        server->runClient({"paplay", file.string()});
    });
    const auto result =
        run({"metronome", "--listen", "--bpm", "60", "--seconds", "13.5", "--json"});
    player.join();
    fs::remove(file);
    ASSERT_EQ(result.status, 0) << result.err;
    std::vector<nlohmann::json> heard;
    for (const auto& line : result.lines) {
        // listening and clicking exclude each other
        EXPECT_FALSE(line.contains("beat")) << line;
        if (line.contains("listening")) heard.push_back(line);
    }
    ASSERT_FALSE(heard.empty());
    EXPECT_EQ(heard.front(), (nlohmann::json{{"listening", true},
                                             {"message", "Listening for tempo"},
                                             {"tempo", nullptr},
                                             {"bpm", 60}}));
    const auto detected = std::find_if(heard.begin(), heard.end(),
                                       [](const auto& line) { return !line["tempo"].is_null(); });
    ASSERT_NE(detected, heard.end()) << result.err;
    EXPECT_NEAR((*detected)["tempo"].get<int>(), 132, 2);
    EXPECT_EQ((*detected)["message"], "Detected " + (*detected)["tempo"].dump());
    // the metronome follows each tempo heard; the end of the run ends listening
    const auto lastHeard = std::find_if(heard.rbegin(), heard.rend(),
                                        [](const auto& line) { return !line["tempo"].is_null(); });
    EXPECT_EQ((*lastHeard)["bpm"], (*lastHeard)["tempo"]);
    EXPECT_EQ(heard.back()["listening"], false);
    EXPECT_EQ(heard.back()["bpm"], (*lastHeard)["tempo"]);
}

} // namespace
} // namespace fq::cli
