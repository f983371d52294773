// The level display's transform: aubio's FFT with a Hann window, in 24 linear bands.

#include "fq/metronome/TempoLevels.h"

#include <aubio/aubio.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace fq::metronome {

/// One transform size with its window and scratch vectors.
struct TempoLevels::Transform {
    explicit Transform(unsigned size)
        : fft(new_aubio_fft(size)), input(new_fvec(size)), window(new_fvec(size)),
          spectrum(new_cvec(size)), magnitudes(size / 2) {
        // The display was tuned on a window normalised to unit power, sqrt(8/3) times
        // the plain Hann window.
        const double scale = std::sqrt(8.0 / 3.0);
        for (unsigned i = 0; i < size; ++i)
            window->data[i] = static_cast<smpl_t>(
                scale * 0.5 * (1.0 - std::cos(2.0 * std::numbers::pi * i / size)));
    }
    ~Transform() {
        if (fft != nullptr) del_aubio_fft(fft);
        del_fvec(input);
        del_fvec(window);
        del_cvec(spectrum);
    }
    Transform(const Transform&) = delete;
    Transform& operator=(const Transform&) = delete;

    aubio_fft_t* fft;
    fvec_t* input;
    fvec_t* window;
    cvec_t* spectrum;
    std::vector<float> magnitudes;
};

TempoLevels::TempoLevels() {
    for (unsigned log2n = 1; log2n < transforms_.size(); ++log2n)
        transforms_[log2n] = std::make_unique<Transform>(1u << log2n);
}

TempoLevels::~TempoLevels() = default;

TempoLevelBands TempoLevels::compute(std::span<const float> samples) noexcept {
    TempoLevelBands levels;
    levels.fill(config::emptyBandLevel);
    if (samples.empty()) return levels;
    const auto n = std::min<std::size_t>(samples.size(), config::largestLevelTransform);
    const auto log2n = static_cast<unsigned>(std::log2(static_cast<double>(n)));
    const std::size_t size = std::size_t{1} << log2n;
    if (size < 2 || log2n >= transforms_.size()) return levels;
    Transform& transform = *transforms_[log2n];
    if (transform.fft == nullptr) return levels;

    for (std::size_t i = 0; i < size; ++i)
        transform.input->data[i] = samples[i] * transform.window->data[i];
    aubio_fft_do(transform.fft, transform.input, transform.spectrum);
    // The half-size packed real transform the display was designed on: bins 0…size/2-1,
    // each twice the plain transform's magnitude, with the Nyquist value packed
    // beside the constant one in bin 0.
    const std::size_t bins = size / 2;
    const smpl_t* norm = transform.spectrum->norm;
    transform.magnitudes[0] = 2.0f * std::sqrt(norm[0] * norm[0] + norm[bins] * norm[bins]);
    for (std::size_t k = 1; k < bins; ++k)
        transform.magnitudes[k] = 2.0f * norm[k];

    const std::size_t binsPerBand = std::max<std::size_t>(bins / config::levelCount, 1);
    for (std::size_t band = 0; band < levels.size(); ++band) {
        const std::size_t first = band * binsPerBand;
        if (first >= bins) continue;
        const std::size_t last = std::min(first + binsPerBand, bins);
        double sum = 0;
        for (std::size_t k = first; k < last; ++k)
            sum += transform.magnitudes[k];
        const double mean = sum / static_cast<double>(last - first);
        levels[band] = static_cast<float>(std::min(std::log10(mean * 28.0 + 1.0), 1.0));
    }
    return levels;
}

} // namespace fq::metronome
