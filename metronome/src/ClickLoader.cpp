// Reading the click recordings: libsndfile decodes the embedded bytes, libsamplerate
// converts them to the unit's rate, and a mono recording is spread to both channels.

#include "fq/metronome/MetronomeAudioUnit.h"

#include <fmt/format.h>
#include <samplerate.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

namespace fq::metronome {
namespace {

/// A read-only view of bytes in memory, as libsndfile's virtual I/O wants it.
struct MemoryFile {
    std::string_view bytes;
    sf_count_t position = 0;
};

sf_count_t memoryLength(void* user) {
    return static_cast<sf_count_t>(static_cast<MemoryFile*>(user)->bytes.size());
}

sf_count_t memorySeek(sf_count_t offset, int whence, void* user) {
    auto& file = *static_cast<MemoryFile*>(user);
    const auto length = static_cast<sf_count_t>(file.bytes.size());
    sf_count_t target = offset;
    if (whence == SEEK_CUR) target = file.position + offset;
    if (whence == SEEK_END) target = length + offset;
    if (target < 0 || target > length) return -1;
    file.position = target;
    return file.position;
}

sf_count_t memoryRead(void* to, sf_count_t count, void* user) {
    auto& file = *static_cast<MemoryFile*>(user);
    const auto length = static_cast<sf_count_t>(file.bytes.size());
    const auto taken =
        std::clamp<sf_count_t>(length - file.position, 0, std::max<sf_count_t>(count, 0));
    std::memcpy(to, file.bytes.data() + file.position, static_cast<std::size_t>(taken));
    file.position += taken;
    return taken;
}

sf_count_t memoryWrite(const void*, sf_count_t, void*) {
    return 0;
}

sf_count_t memoryTell(void* user) {
    return static_cast<MemoryFile*>(user)->position;
}

struct SndfileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
};

Error failure(std::string_view name, std::string_view why) {
    return Error{fmt::format("Cannot read {}.wav: {}", name, why), ErrorKind::corrupt};
}

} // namespace

tl::expected<PcmBuffer, Error> decodeClick(std::string_view name, std::string_view bytes) {
    SF_VIRTUAL_IO io{memoryLength, memorySeek, memoryRead, memoryWrite, memoryTell};
    MemoryFile memory{bytes};
    SF_INFO info{};
    const std::unique_ptr<SNDFILE, SndfileCloser> file(
        sf_open_virtual(&io, SFM_READ, &info, &memory));
    if (!file) return tl::unexpected(failure(name, sf_strerror(nullptr)));
    if (info.channels < 1 || info.samplerate < 1 || info.frames < 0)
        return tl::unexpected(failure(name, "no audio in it"));

    // the whole file in its own format
    std::vector<float> interleaved(static_cast<std::size_t>(info.frames) *
                                   static_cast<std::size_t>(info.channels));
    const sf_count_t framesRead = sf_readf_float(file.get(), interleaved.data(), info.frames);
    if (framesRead < 0) return tl::unexpected(failure(name, sf_strerror(file.get())));
    interleaved.resize(static_cast<std::size_t>(framesRead) *
                       static_cast<std::size_t>(info.channels));

    const double fileRate = info.samplerate;
    PcmBuffer result;
    result.sampleRate = config::clickSampleRate;
    // A file already at the target rate is copied as it is; any other is converted
    // into a buffer of frames × target rate ÷ file rate.
    std::vector<float> converted;
    long frames = static_cast<long>(framesRead);
    if (fileRate == config::clickSampleRate) {
        converted = std::move(interleaved);
    } else {
        const auto capacity = static_cast<std::uint32_t>(static_cast<double>(framesRead) *
                                                         config::clickSampleRate / fileRate);
        converted.assign(
            static_cast<std::size_t>(capacity) * static_cast<std::size_t>(info.channels), 0.0f);
        SRC_DATA data{};
        data.data_in = interleaved.data();
        data.input_frames = static_cast<long>(framesRead);
        data.data_out = converted.data();
        data.output_frames = static_cast<long>(capacity);
        data.src_ratio = config::clickSampleRate / fileRate;
        if (const int error = src_simple(&data, SRC_SINC_BEST_QUALITY, info.channels); error != 0)
            return tl::unexpected(failure(name, src_strerror(error)));
        frames = data.output_frames_gen;
    }

    // the first two channels; a mono recording sounds the same on both sides
    result.channels.assign(config::clickChannels,
                           std::vector<float>(static_cast<std::size_t>(std::max(frames, 0L))));
    for (long i = 0; i < frames; ++i) {
        const auto frame = static_cast<std::size_t>(i) * static_cast<std::size_t>(info.channels);
        result.channels[0][static_cast<std::size_t>(i)] = converted[frame];
        result.channels[1][static_cast<std::size_t>(i)] =
            converted[frame + (info.channels > 1 ? 1 : 0)];
    }
    return result;
}

tl::expected<PcmBuffer, Error> loadClick(std::string_view name, const ClickResources& resources) {
    const auto bytes = resources ? resources(name) : std::nullopt;
    if (!bytes)
        return tl::unexpected(Error{fmt::format("{}.wav not found", name), ErrorKind::notFound});
    return decodeClick(name, *bytes);
}

tl::expected<PcmBuffer, Error> resampledClick(const PcmBuffer& click, double sampleRate) {
    if (sampleRate == click.sampleRate || click.frameLength() == 0 || !(sampleRate > 0))
        return click;
    const auto channels = click.channelCount();
    const double ratio = sampleRate / click.sampleRate;
    std::vector<float> interleaved(click.frameLength() * static_cast<std::size_t>(channels));
    for (std::size_t i = 0; i < click.frameLength(); ++i)
        for (int c = 0; c < channels; ++c)
            interleaved[i * static_cast<std::size_t>(channels) + static_cast<std::size_t>(c)] =
                click.channels[static_cast<std::size_t>(c)][i];
    const auto capacity =
        static_cast<std::size_t>(std::ceil(static_cast<double>(click.frameLength()) * ratio)) + 1;
    std::vector<float> converted(capacity * static_cast<std::size_t>(channels));
    SRC_DATA data{};
    data.data_in = interleaved.data();
    data.input_frames = static_cast<long>(click.frameLength());
    data.data_out = converted.data();
    data.output_frames = static_cast<long>(capacity);
    data.src_ratio = ratio;
    if (const int error = src_simple(&data, SRC_SINC_BEST_QUALITY, channels); error != 0)
        return tl::unexpected(Error{
            fmt::format("Cannot convert the click to {} Hz: {}", sampleRate, src_strerror(error)),
            ErrorKind::device});
    PcmBuffer result;
    result.sampleRate = sampleRate;
    result.channels.assign(static_cast<std::size_t>(channels),
                           std::vector<float>(static_cast<std::size_t>(data.output_frames_gen)));
    for (long i = 0; i < data.output_frames_gen; ++i)
        for (int c = 0; c < channels; ++c)
            result.channels[static_cast<std::size_t>(c)][static_cast<std::size_t>(i)] =
                converted[static_cast<std::size_t>(i) * static_cast<std::size_t>(channels) +
                          static_cast<std::size_t>(c)];
    return result;
}

} // namespace fq::metronome
