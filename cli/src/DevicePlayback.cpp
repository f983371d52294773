// Playing on the device for the commands: one main executor, run until each step is done.

#include "DevicePlayback.h"

#include "CommandSupport.h"

#include <fq/audio/DeviceAudio.h>

#include <asio/io_context.hpp>

#include <chrono>
#include <optional>

namespace fq::cli {

void requireDevice(audio::AudioDirection direction, std::string_view advice) {
    const auto devices = valueOrThrow(audio::listAudioDevices());
    if (auto chosen = audio::chooseAudioDevice(devices, direction, audio::wantedAudioDevice());
        !chosen)
        throw CommandError(chosen.error().message + std::string(advice));
}

void playOnDevice(std::vector<audio::TimedNotes> parts) {
    std::chrono::milliseconds length{0};
    for (const auto& part : parts)
        length += part.length;
    asio::io_context main;
    audio::DeviceAudio device(main.get_executor());
    std::optional<tl::expected<void, Error>> started;
    device.startPlayback([&](tl::expected<void, Error> outcome) { started = std::move(outcome); });
    audio::runUntil(
        main, [&] { return started.has_value(); }, audio::config::activationTimeout * 2);
    bool released = false;
    const auto release = [&] {
        device.release([&] { released = true; });
        audio::runUntil(
            main, [&] { return released; }, audio::config::activationTimeout);
    };
    if (!started || !*started) {
        release();
        throw CommandError("The audio output did not start");
    }
    bool played = false;
    device.play(std::move(parts), [&] { played = true; });
    audio::runUntil(
        main, [&] { return played; }, length + audio::config::activationTimeout);
    release();
}

} // namespace fq::cli
