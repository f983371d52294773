#include "DepsTestSupport.h"

#include <gtest/gtest.h>
#include <z_libpd.h>

#include <cmath>
#include <fstream>
#include <numbers>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

// libpd's hooks are plain function pointers without a user argument, so what they see lands here.
std::optional<float> g_lastFrequency;
std::string g_pdLog;

void onFloat(const char* recv, float value) {
    if (std::string_view(recv) == "frequency") g_lastFrequency = value;
}

void onPrint(const char* text) {
    g_pdLog += text;
}

// The tuner's core in miniature: the microphone goes to sigmund~, its pitch (MIDI) to mtof.
constexpr const char* kTunerPatch = "#N canvas 0 0 400 300 12;\n"
                                    "#X obj 20 20 adc~;\n"
                                    "#X obj 20 60 sigmund~ -npts 2048 -hop 1024 pitch;\n"
                                    "#X obj 20 100 mtof;\n"
                                    "#X obj 20 140 s frequency;\n"
                                    "#X connect 0 0 1 0;\n"
                                    "#X connect 1 0 2 0;\n"
                                    "#X connect 2 0 3 0;\n";

constexpr int kSampleRate = 44100;

double centsBetween(double frequency, double reference) {
    return 1200.0 * std::log2(frequency / reference);
}

// Feeds one second of a pure tone, a few blocks per call as an audio callback would, and returns
// the last frequency the patch sent.
std::optional<float> trackTone(double frequency) {
    constexpr int kTicksPerCall = 16;
    const int block = libpd_blocksize();
    std::vector<float> in(static_cast<std::size_t>(block * kTicksPerCall));
    std::vector<float> out(in.size());
    g_lastFrequency.reset();
    for (long frame = 0; frame < kSampleRate;) {
        for (float& sample : in) {
            const double t = static_cast<double>(frame++) / kSampleRate;
            sample = static_cast<float>(0.5 * std::sin(2.0 * std::numbers::pi * frequency * t));
        }
        if (libpd_process_float(kTicksPerCall, in.data(), out.data()) != 0) return std::nullopt;
    }
    return g_lastFrequency;
}

// Pd keeps one global instance per process, so the whole round trip lives in this one test.
TEST(LibpdSmoke, SigmundTracksPureTonesWithinOneCent) {
    fq::deps_test::TempDir dir("fq-libpd-");
    {
        std::ofstream out(dir.path() / "tuner.pd");
        out << kTunerPatch;
    }

    libpd_set_printhook(onPrint);
    libpd_set_floathook(onFloat);
    ASSERT_EQ(libpd_init(), 0);
    void* receiver = libpd_bind("frequency");
    ASSERT_NE(receiver, nullptr);

    ASSERT_EQ(libpd_init_audio(1, 1, kSampleRate), 0);
    libpd_start_message(1);
    libpd_add_float(1.0f);
    ASSERT_EQ(libpd_finish_message("pd", "dsp"), 0);

    void* patch = libpd_openfile("tuner.pd", dir.path().c_str());
    ASSERT_NE(patch, nullptr) << g_pdLog;
    // A missing external still opens the patch, just with a dead box, so look at what Pd said.
    EXPECT_EQ(g_pdLog.find("couldn't create"), std::string::npos) << g_pdLog;

    // Concert A, then the low E string, which gives the analysis window the fewest periods.
    for (double expected : {440.0, 82.4069}) {
        SCOPED_TRACE(expected);
        const std::optional<float> reported = trackTone(expected);
        ASSERT_TRUE(reported.has_value()) << "no frequency reported; Pd said: " << g_pdLog;
        EXPECT_LT(std::abs(centsBetween(static_cast<double>(*reported), expected)), 1.0)
            << "reported " << *reported << " Hz";
    }

    libpd_closefile(patch);
    libpd_unbind(receiver);
}

} // namespace
