#include "PortAudioHost.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace fq::audio::detail {

PortAudioHost& PortAudioHost::instance() {
    static PortAudioHost host;
    return host;
}

tl::expected<void, Error> PortAudioHost::ensureInitialised() {
    if (initialised_) return {};
    // JACK would otherwise try to start a server of its own
    setenv("JACK_NO_START_SERVER", "1", 0);
    PaError error = paNoError;
    {
        const QuietStandardError quiet;
        error = Pa_Initialize();
    }
    if (error != paNoError)
        return tl::unexpected(Error{"Cannot start PortAudio: " + errorText(error)});
    initialised_ = true;
    return {};
}

tl::expected<void, Error> PortAudioHost::rescan() {
    if (initialised_ && openStreams_ > 0) return {};
    if (initialised_) {
        const QuietStandardError quiet;
        Pa_Terminate();
        initialised_ = false;
    }
    return ensureInitialised();
}

std::vector<AudioDeviceInfo> PortAudioHost::devices() const {
    std::vector<AudioDeviceInfo> result;
    const PaDeviceIndex defaultInput = Pa_GetDefaultInputDevice();
    const PaDeviceIndex defaultOutput = Pa_GetDefaultOutputDevice();
    const int count = Pa_GetDeviceCount();
    for (int index = 0; index < count; ++index) {
        const PaDeviceInfo* device = Pa_GetDeviceInfo(index);
        if (device == nullptr) continue;
        const PaHostApiInfo* api = Pa_GetHostApiInfo(device->hostApi);
        result.push_back(AudioDeviceInfo{
            .index = index,
            .name = device->name != nullptr ? device->name : "",
            .hostApi = api != nullptr && api->name != nullptr ? api->name : "",
            .maxInputChannels = device->maxInputChannels,
            .maxOutputChannels = device->maxOutputChannels,
            .defaultSampleRate = device->defaultSampleRate,
            .isDefaultInput = index == defaultInput,
            .isDefaultOutput = index == defaultOutput,
        });
    }
    return result;
}

bool canOpen(const AudioDeviceInfo& device, AudioDirection direction) {
    const PaDeviceInfo* info = Pa_GetDeviceInfo(device.index);
    if (info == nullptr || info->name == nullptr || device.name != info->name) return false;
    PaStreamParameters parameters{};
    parameters.device = device.index;
    parameters.channelCount = 1;
    parameters.sampleFormat = paFloat32;
    const bool output = direction == AudioDirection::output;
    parameters.suggestedLatency =
        output ? info->defaultLowOutputLatency : info->defaultLowInputLatency;
    PaStream* stream = nullptr;
    const PaError error = Pa_OpenStream(&stream, output ? nullptr : &parameters,
                                        output ? &parameters : nullptr, info->defaultSampleRate,
                                        paFramesPerBufferUnspecified, paNoFlag, nullptr, nullptr);
    if (error != paNoError) return false;
    Pa_CloseStream(stream);
    return true;
}

std::string errorText(PaError error) {
    if (error == paUnanticipatedHostError) {
        if (const PaHostErrorInfo* info = Pa_GetLastHostErrorInfo();
            info && info->errorText && *info->errorText)
            return info->errorText;
    }
    return Pa_GetErrorText(error);
}

QuietStandardError::QuietStandardError() {
    std::fflush(stderr);
    saved_ = dup(STDERR_FILENO);
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null >= 0) {
        dup2(null, STDERR_FILENO);
        close(null);
    }
}

QuietStandardError::~QuietStandardError() {
    std::fflush(stderr);
    if (saved_ >= 0) {
        dup2(saved_, STDERR_FILENO);
        close(saved_);
    }
}

} // namespace fq::audio::detail
