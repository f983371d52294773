#include "fq/audio/OfflineRender.h"

#include <fmt/format.h>
#include <sndfile.h>

#include <algorithm>
#include <memory>

namespace fq::audio {
namespace {

struct SndfileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
};

TimelineTime timeOfFrames(std::int64_t frames, double sampleRate) {
    return std::chrono::duration_cast<TimelineTime>(
        std::chrono::duration<double>(static_cast<double>(frames) / sampleRate));
}

} // namespace

StereoBuffer renderOffline(SharedAudioEngine& engine, ManualTimeline& timeline, std::int64_t frames,
                           int blockFrames) {
    StereoBuffer audio;
    const auto count = static_cast<std::size_t>(std::max<std::int64_t>(frames, 0));
    audio.left.resize(count);
    audio.right.resize(count);
    const double rate = engine.sampleRate();
    const auto origin = timeline.now();
    const auto block = static_cast<std::size_t>(std::max(blockFrames, 1));
    for (std::size_t done = 0; done < count; done += block) {
        const auto length = std::min(block, count - done);
        timeline.advanceTo(origin + timeOfFrames(static_cast<std::int64_t>(done + length), rate));
        engine.renderOffline(std::span(audio.left).subspan(done, length),
                             std::span(audio.right).subspan(done, length),
                             origin + timeOfFrames(static_cast<std::int64_t>(done), rate));
    }
    return audio;
}

tl::expected<void, Error> writeWav(const std::filesystem::path& file, const StereoBuffer& audio,
                                   double sampleRate) {
    SF_INFO info{};
    info.samplerate = static_cast<int>(sampleRate);
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    std::unique_ptr<SNDFILE, SndfileCloser> out(sf_open(file.c_str(), SFM_WRITE, &info));
    if (!out)
        return tl::unexpected(
            Error{fmt::format("Cannot write {}: {}", file.string(), sf_strerror(nullptr))});
    sf_command(out.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    std::vector<float> interleaved(audio.frames() * 2);
    for (std::size_t i = 0; i < audio.frames(); ++i) {
        interleaved[2 * i] = audio.left[i];
        interleaved[2 * i + 1] = audio.right[i];
    }
    const auto frames = static_cast<sf_count_t>(audio.frames());
    if (sf_writef_float(out.get(), interleaved.data(), frames) != frames)
        return tl::unexpected(
            Error{fmt::format("Cannot write {}: {}", file.string(), sf_strerror(out.get()))});
    return {};
}

} // namespace fq::audio

namespace fq::audio {

RenderedAudio renderGuitar(std::span<const TimedNotes> parts) {
    ManualTimeline timeline;
    SharedAudioEngine engine{timeline};
    engine.enableManualRenderingMode();
    const auto guitar = GuitarAudioEngine::create(engine);
    RenderedAudio rendered{{}, engine.sampleRate()};
    for (const auto& part : parts) {
        guitar->playChord(part.notes);
        const auto frames = static_cast<std::int64_t>(
            engine.sampleRate() * std::chrono::duration<double>(part.length).count());
        auto piece = renderOffline(engine, timeline, frames);
        auto& all = rendered.audio;
        all.left.insert(all.left.end(), piece.left.begin(), piece.left.end());
        all.right.insert(all.right.end(), piece.right.begin(), piece.right.end());
    }
    return rendered;
}

} // namespace fq::audio
