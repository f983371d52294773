// Clicks rendered offline through the shared engine and streamed into a WAV file.

#include "fq/metronome/MetronomeRender.h"

#include "fq/metronome/MetronomeAudioUnitManager.h"
#include "fq/metronome/MetronomeController.h"

#include <fq/audio/SharedAudioEngine.h>
#include <fq/audio/Timeline.h>
#include <fq/core/Diagnostics.h>

#include <asio/io_context.hpp>
#include <fmt/format.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>

namespace fq::metronome {
namespace {

struct SndfileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
};

} // namespace

WavContainer containerFor(std::int64_t frames) {
    // the RIFF size counts the data and the header chunks after its own field
    constexpr std::int64_t largestRiffSize = 0xFFFFFFFFLL;
    constexpr std::int64_t headerBytes = 1024;
    const std::int64_t dataBytes = frames * 2 * 2;
    return dataBytes > largestRiffSize - headerBytes ? WavContainer::rf64 : WavContainer::wav;
}

tl::expected<std::int64_t, Error> renderMetronome(const MetronomeSettings& settings,
                                                  const std::filesystem::path& file,
                                                  double seconds) {
    audio::ManualTimeline timeline;
    audio::SharedAudioEngine engine{timeline};
    engine.enableManualRenderingMode();
    asio::io_context main;
    MetronomeAudioUnitManager manager(engine, main.get_executor());
    manager.setUp();
    main.poll();
    auto* unit = manager.audioUnit();
    if (unit == nullptr) return tl::unexpected(Error{"The metronome could not be set up"});
    applySettings(*unit, settings);
    manager.start();

    SF_INFO info{};
    info.samplerate = static_cast<int>(engine.sampleRate());
    info.channels = 2;
    const auto total = static_cast<std::int64_t>(std::llround(seconds * engine.sampleRate()));
    info.format = (containerFor(total) == WavContainer::rf64 ? SF_FORMAT_RF64 : SF_FORMAT_WAV) |
                  SF_FORMAT_PCM_16;
    const std::unique_ptr<SNDFILE, SndfileCloser> out(sf_open(file.c_str(), SFM_WRITE, &info));
    if (!out)
        return tl::unexpected(
            Error{fmt::format("Cannot write {}: {}", file.string(), sf_strerror(nullptr))});
    sf_command(out.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);

    constexpr std::size_t piece = 44100;
    std::vector<float> left(piece), right(piece), interleaved(2 * piece);
    for (std::int64_t done = 0; done < total;) {
        const auto count = static_cast<std::size_t>(std::min<std::int64_t>(piece, total - done));
        engine.renderOffline(std::span(left).first(count), std::span(right).first(count),
                             timeline.now());
        for (std::size_t i = 0; i < count; ++i) {
            interleaved[2 * i] = left[i];
            interleaved[2 * i + 1] = right[i];
        }
        const auto frames = static_cast<sf_count_t>(count);
        if (sf_writef_float(out.get(), interleaved.data(), frames) != frames)
            return tl::unexpected(
                Error{fmt::format("Cannot write {}: {}", file.string(), sf_strerror(out.get()))});
        done += static_cast<std::int64_t>(count);
    }
    return total;
}

} // namespace fq::metronome
