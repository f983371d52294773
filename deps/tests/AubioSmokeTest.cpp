#include <aubio/aubio.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <numbers>

namespace {

struct FvecDeleter {
    void operator()(fvec_t* v) const { del_fvec(v); }
};
struct CvecDeleter {
    void operator()(cvec_t* v) const { del_cvec(v); }
};
struct FftDeleter {
    void operator()(aubio_fft_t* f) const { del_aubio_fft(f); }
};
struct PitchDeleter {
    void operator()(aubio_pitch_t* p) const { del_aubio_pitch(p); }
};
using Fvec = std::unique_ptr<fvec_t, FvecDeleter>;
using Cvec = std::unique_ptr<cvec_t, CvecDeleter>;
using Fft = std::unique_ptr<aubio_fft_t, FftDeleter>;
using Pitch = std::unique_ptr<aubio_pitch_t, PitchDeleter>;

constexpr uint_t kSampleRate = 44100;

// Fills v with a sine continuing from sample `start`.
void fillSine(fvec_t* v, double frequency, std::size_t start = 0) {
    for (uint_t i = 0; i < v->length; ++i) {
        const double t = static_cast<double>(start + i) / kSampleRate;
        v->data[i] = static_cast<smpl_t>(0.5 * std::sin(2.0 * std::numbers::pi * frequency * t));
    }
}

TEST(AubioSmoke, FftPutsABinCentredSineInItsBinOnly) {
    constexpr uint_t kSize = 1024;
    constexpr uint_t kBin = 37;
    Fft fft(new_aubio_fft(kSize));
    ASSERT_NE(fft, nullptr);
    Fvec in(new_fvec(kSize));
    Cvec spectrum(new_cvec(kSize));

    // An exact number of periods fits the frame, so nothing leaks into neighbouring bins.
    fillSine(in.get(), kBin * static_cast<double>(kSampleRate) / kSize);
    aubio_fft_do(fft.get(), in.get(), spectrum.get());

    ASSERT_EQ(spectrum->length, kSize / 2 + 1);
    const smpl_t* norm = spectrum->norm;
    const auto peak = static_cast<uint_t>(std::max_element(norm, norm + spectrum->length) - norm);
    EXPECT_EQ(peak, kBin);
    // Amplitude 0.5 over 1024 samples: |X[k]| = 0.5 * 1024 / 2.
    EXPECT_NEAR(norm[kBin], 256.0f, 0.5f);
    for (uint_t i = 0; i < spectrum->length; ++i) {
        if (i != kBin) {
            EXPECT_LT(norm[i], 1e-3f * norm[kBin]) << "leak into bin " << i;
        }
    }
}

// Plain YIN: on a pure tone yinfft is off by more than a semitone at the low E (its spectral
// weighting starves low sines) and reports zero confidence, so it is no use as a reference here.
TEST(AubioSmoke, YinTracksPureTonesWithinOneCent) {
    constexpr uint_t kWindow = 2048;
    constexpr uint_t kHop = 512;
    for (double expected : {440.0, 82.4069}) {
        SCOPED_TRACE(expected);
        Pitch pitch(new_aubio_pitch("yin", kWindow, kHop, kSampleRate));
        ASSERT_NE(pitch, nullptr);
        ASSERT_EQ(aubio_pitch_set_unit(pitch.get(), "Hz"), 0u);
        Fvec hop(new_fvec(kHop));
        Fvec estimate(new_fvec(1));

        // Half a second fills the window several times over.
        for (std::size_t start = 0; start < kSampleRate / 2; start += kHop) {
            fillSine(hop.get(), expected, start);
            aubio_pitch_do(pitch.get(), hop.get(), estimate.get());
        }
        const double found = static_cast<double>(estimate->data[0]);
        EXPECT_LT(std::abs(1200.0 * std::log2(found / expected)), 1.0) << "estimated " << found;
        EXPECT_GT(aubio_pitch_get_confidence(pitch.get()), 0.99f);
    }
}

} // namespace
