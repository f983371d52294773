// `fretquill tune` and `fretquill tone`: reference tones rendered and read back by the tuner,
// the terminal screen on a real terminal, bad input, and the live tuner on a device.

#include "CliRun.h"
#include "PulseTestServer.h"
#include "fq/test/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <pty.h>
#include <sndfile.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <thread>

namespace fq::cli {
namespace {

using Json = nlohmann::ordered_json;

std::vector<Json> jsonLines(const std::string& text) {
    std::vector<Json> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(Json::parse(line));
    return lines;
}

/// Everything the real program writes to a terminal `columns` wide.
std::string onTerminal(const std::vector<std::string>& arguments, unsigned short columns) {
    winsize size{};
    size.ws_col = columns;
    size.ws_row = 24;
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
    if (child == 0) {
        std::vector<char*> argv{const_cast<char*>(FQ_FRETQUILL)};
        for (const auto& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        ::execv(FQ_FRETQUILL, argv.data());
        ::_exit(127);
    }
    std::string text;
    char buffer[4096];
    for (ssize_t got; (got = ::read(terminal, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<std::size_t>(got));
    ::close(terminal);
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << text;
    return text;
}

std::size_t characters(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

class TunerCommandsTest : public OwnHome {
protected:
    std::string file(const char* name) const { return (folder_ / name).string(); }
};

TEST_F(TunerCommandsTest, ARenderedReferenceToneIsReadBackInTune) {
    const auto wav = file("a2.wav");
    // "A" alone names the one A string of the tuning
    const auto tone = run({"tone", "standard", "A", "--render", wav.c_str(), "--json"});
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
}

TEST_F(TunerCommandsTest, OnATerminalTheLineFitsAndDiagnosticsStayInTheLog) {
    const auto wav = file("e2.wav");
    ASSERT_EQ(run({"tone", "standard", "6", "--render", wav.c_str()}).status, 0);
    const auto screen = onTerminal({"tune", "--input", wav, "--fast"}, 80);
    // every redraw stays within the line, so that none scrolls
    std::size_t draws = 0;
    for (std::size_t at = screen.find("\r\x1b[2K"); at != std::string::npos; ++draws) {
        const auto next = screen.find_first_of("\r\n", at + 1);
        const auto drawn =
            screen.substr(at + 5, next == std::string::npos ? std::string::npos : next - at - 5);
        EXPECT_LT(characters(drawn), 80u) << drawn;
        at = screen.find("\r\x1b[2K", at + 1);
    }
    EXPECT_GT(draws, 1u);
    EXPECT_NE(screen.find("E₂"), std::string::npos) << screen;
    EXPECT_EQ(screen.find("Patch opened successfully"), std::string::npos) << screen;
    EXPECT_NE(bytesOf(folder_ / "home" / "state" / "live.log").find("Patch opened successfully"),
              std::string::npos);
    // --verbose shows them on standard error too
    const auto verbose = onTerminal({"tune", "--input", wav, "--fast", "--verbose"}, 80);
    EXPECT_NE(verbose.find("Patch opened successfully"), std::string::npos) << verbose;
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
    EXPECT_EQ(json[0]["strings"][5].dump(), R"({"buttonTitle":"E4","noteNumber":64})");
}

TEST_F(TunerCommandsTest, SilenceShowsNothing) {
    const auto wav = file("quiet.wav");
    SF_INFO info{};
    info.samplerate = 96000;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* out = sf_open(wav.c_str(), SFM_WRITE, &info);
    ASSERT_NE(out, nullptr);
    const std::vector<float> silence(96000, 0.0f);
    sf_writef_float(out, silence.data(), static_cast<sf_count_t>(silence.size()));
    sf_close(out);

    const auto json = run({"tune", "--input", wav.c_str(), "--fast", "--json"});
    ASSERT_EQ(json.status, 0) << json.err;
    EXPECT_EQ(json.out, "");
    EXPECT_EQ(run({"tune", "--input", wav.c_str(), "--fast"}).out, "No pitch heard.\n");
}

TEST_F(TunerCommandsTest, BadInputIsOneLineOnStandardErrorWithStatusOne) {
    const auto notAudio = file("notes.txt");
    test::writeBytes(notAudio, "not a sound\n");
    const auto wav = file("never.wav");
    const std::vector<std::pair<std::vector<const char*>, std::string>> cases{
        {{"tune", "--input", "/no/such/file.wav", "--fast"}, ""},
        {{"tune", "--input", notAudio.c_str(), "--fast", "--json"}, ""},
        {{"tune", "--fast"}, "--fast needs --input FILE.wav\n"},
        {{"tone", "dropQ", "1", "--render", wav.c_str()}, "Unknown tuning: dropQ\n"},
        {{"tone", "standard", "7", "--render", wav.c_str()},
         "No string 7 in Standard Tuning: give 1 to 6 or one of E2, A2, D3, G3, B3, E4\n"},
        {{"tone", "standard", "E", "--render", wav.c_str()},
         "Standard Tuning has 2 E strings: give one of E2, E4\n"},
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
    EXPECT_FALSE(std::filesystem::exists(wav));
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
