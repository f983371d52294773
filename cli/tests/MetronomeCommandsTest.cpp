// `fretquill metronome`: rendering to a file, presets, and bad input.

#include "CliRun.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sndfile.h>

#include <filesystem>
#include <sstream>

namespace fq::cli {
namespace {

TEST(MetronomeCommandsTest, RendersWhatItSays) {
    // where the clicks land is the library's test; here, what the command reports
    const auto file =
        (std::filesystem::temp_directory_path() / "fq-metronome-command.wav").string();
    const auto result =
        run({"metronome", "--bpm", "97", "--subdivisions", "3", "--beats", "4", "--sound", "square",
             "--key", "A", "--accent", "--render", file.c_str(), "--seconds", "1", "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, R"({"bpm":97,"beats":4,"subdivisions":3,"sound":"square","key":"A",)"
                          R"("accentFirstBeat":true,"rendered":")" +
                              file + R"(","frames":44100}
)");
    SF_INFO info{};
    SNDFILE* in = sf_open(file.c_str(), SFM_READ, &info);
    ASSERT_NE(in, nullptr);
    sf_close(in);
    std::filesystem::remove(file);
    EXPECT_EQ(info.frames, 44100);
}

TEST(MetronomeCommandsTest, PresetsAndBadInput) {
    ASSERT_EQ(run({"metronome", "presets", "clear", "--json"}).out, "[]\n");
    ASSERT_EQ(run({"metronome", "presets", "save", "Ballad"}).status, 0);
    const auto saved =
        nlohmann::json::parse(run({"metronome", "presets", "save", "Ballad", "--json"}).out);
    ASSERT_EQ(saved.size(), 2u);
    EXPECT_EQ(saved[0].size(), 5u);
    const auto id = saved[1]["id"].get<std::string>();
    EXPECT_EQ(run({"metronome", "presets", "rename", id.c_str(), "Waltz", "--json"}).status, 0);

    const std::vector<std::pair<std::vector<const char*>, std::string>> bad{
        {{"metronome", "presets", "delete", "Tango"}, "No preset named Tango\n"},
        {{"metronome", "presets", "rename", "Ballad", ""}, "A preset needs a name\n"},
        {{"metronome", "--key", "H", "--render", "x.wav", "--seconds", "1"},
         "Unknown key: H (one of E (Low), F, F#/Gb, G, G#/Ab, A, A#/Bb, B, C, C#/Db, D, D#/Eb, "
         "E, or 0 to 12)\n"},
        {{"metronome", "--bpm", "20", "--render", "x.wav", "--seconds", "1"},
         "The tempo must be 30 to 300 BPM, not 20\n"},
        {{"metronome", "--beats", "17", "--render", "x.wav", "--seconds", "1"},
         "Beats per bar must be 1 to 16, not 17\n"},
        {{"metronome", "--subdivisions", "0", "--render", "x.wav", "--seconds", "1"},
         "Clicks per beat must be 1 to 8, not 0\n"},
        {{"metronome", "--sound", "bell", "--render", "x.wav", "--seconds", "1"},
         "Unknown sound: bell (one of real, sine, triangle, square)\n"},
        {{"metronome", "--render", "x.wav"}, "Give --seconds with --render\n"},
    };
    for (const auto& [arguments, message] : bad) {
        const auto result = run(arguments);
        EXPECT_EQ(result.status, 1) << arguments[2];
        if (!message.empty()) {
            EXPECT_EQ(result.err, message);
        }
    }
    const auto list = nlohmann::json::parse(run({"metronome", "presets", "list", "--json"}).out);
    EXPECT_EQ(list[0]["name"], "Ballad");
    EXPECT_EQ(list[1]["name"], "Waltz");
    EXPECT_EQ(run({"metronome", "presets", "delete", "Waltz"}).out,
              "Ballad  " + std::string("BPM: ") + list[0]["bpm"].dump() +
                  ", Beats: " + list[0]["beats"].dump() +
                  ", Subdivisions: " + list[0]["subdivisions"].dump() + "\n");
}

} // namespace
} // namespace fq::cli
