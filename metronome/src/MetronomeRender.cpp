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
#include <cctype>
#include <charconv>
#include <memory>
#include <string>

namespace fq::metronome {
namespace {

struct SndfileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
};

/// Lower case, true signs as ASCII, no blanks.
std::string folded(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size();) {
        if (text.substr(i).starts_with("♯")) {
            result += '#';
            i += std::string_view("♯").size();
        } else if (text.substr(i).starts_with("♭")) {
            result += 'b';
            i += std::string_view("♭").size();
        } else {
            const auto c = static_cast<unsigned char>(text[i++]);
            if (!std::isspace(c)) result += static_cast<char>(std::tolower(c));
        }
    }
    return result;
}

} // namespace

std::optional<int> keyIndexFromText(std::string_view text) {
    const auto key = folded(text);
    int number = 0;
    const auto [end, error] = std::from_chars(key.data(), key.data() + key.size(), number);
    if (error == std::errc() && end == key.data() + key.size())
        return number >= 0 && number < static_cast<int>(keyNames.size()) ? std::optional(number)
                                                                         : std::nullopt;
    if (key == "lowe" || key == "e(low)" || key == "elow") return 0;
    for (std::size_t i = 0; i < keyNames.size(); ++i) {
        const auto name = folded(keyNames[i]);
        if (name == key) return static_cast<int>(i);
        // "F#/Gb": either spelling alone
        if (const auto slash = name.find('/'); slash != std::string::npos)
            if (name.substr(0, slash) == key || name.substr(slash + 1) == key)
                return static_cast<int>(i);
    }
    return std::nullopt;
}

void applySettings(MetronomeAudioUnit& unit, const MetronomeSettings& settings) {
    unit.bpmParameter.setValue(static_cast<float>(settings.bpm));
    unit.beatsParameter.setValue(static_cast<float>(settings.beats));
    unit.subdivisionParameter.setValue(static_cast<float>(settings.subdivisions));
    unit.muteParameter.setValue(0);
    unit.soundParameter.setValue(static_cast<float>(settings.sound));
    unit.noteParameter.setValue(static_cast<float>(settings.keyIndex));
    unit.fadeMsParameter.setValue(config::screenFadeMs);
    unit.accentParameter.setValue(settings.accentFirstBeat ? 1.0f : 0.0f);
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
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    const std::unique_ptr<SNDFILE, SndfileCloser> out(sf_open(file.c_str(), SFM_WRITE, &info));
    if (!out)
        return tl::unexpected(
            Error{fmt::format("Cannot write {}: {}", file.string(), sf_strerror(nullptr))});
    sf_command(out.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);

    const auto total = static_cast<std::int64_t>(std::llround(seconds * engine.sampleRate()));
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
