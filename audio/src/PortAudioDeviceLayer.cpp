#include "fq/audio/PortAudioDeviceLayer.h"

#include "PortAudioHost.h"

#include <algorithm>
#include <set>

namespace fq::audio {
namespace {

std::set<std::string> namesOf(const std::vector<AudioDeviceInfo>& devices) {
    std::set<std::string> names;
    for (const auto& device : devices)
        names.insert(device.name);
    return names;
}

std::optional<std::string> defaultName(const std::vector<AudioDeviceInfo>& devices,
                                       AudioDirection direction) {
    for (const auto& device : devices)
        if (direction == AudioDirection::output ? device.isDefaultOutput : device.isDefaultInput)
            return device.name;
    return std::nullopt;
}

/// The device's port: the input the program listens on by default counts as the
/// built-in microphone.
AudioPort portFor(const AudioDeviceInfo& device, AudioDirection direction,
                  const std::vector<AudioDeviceInfo>& devices) {
    if (direction == AudioDirection::output) return {device.name, std::string(portType::lineOut)};
    const auto listening = chooseAudioDevice(devices, AudioDirection::input, wantedAudioDevice());
    const bool builtIn = listening && listening->name == device.name;
    return {device.name, std::string(builtIn ? portType::builtInMicrophone : portType::lineIn)};
}

} // namespace

PortAudioDeviceLayer::PortAudioDeviceLayer(SharedAudioEngine& engine, Options options)
    : engine_(engine), options_(options), monitor_([this] { monitor(); }) {}

PortAudioDeviceLayer::~PortAudioDeviceLayer() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    monitor_.join();
}

SessionCategory PortAudioDeviceLayer::category() const {
    const std::lock_guard lock(mutex_);
    return category_;
}

unsigned PortAudioDeviceLayer::categoryOptions() const {
    const std::lock_guard lock(mutex_);
    return categoryOptions_;
}

SessionMode PortAudioDeviceLayer::mode() const {
    const std::lock_guard lock(mutex_);
    return mode_;
}

tl::expected<void, Error> PortAudioDeviceLayer::setCategory(SessionCategory category,
                                                            unsigned options) {
    // PortAudio always mixes with others and plays and records on demand: kept for the record
    const std::lock_guard lock(mutex_);
    category_ = category;
    categoryOptions_ = options;
    return {};
}

tl::expected<void, Error> PortAudioDeviceLayer::setMode(SessionMode mode) {
    const std::lock_guard lock(mutex_);
    mode_ = mode;
    return {};
}

tl::expected<void, Error> PortAudioDeviceLayer::setPreferredSampleRate(double sampleRate) {
    const std::lock_guard lock(mutex_);
    preferredSampleRate_ = sampleRate;
    engine_.setPreferredFormat(preferredSampleRate_, preferredIOBufferDuration_);
    return {};
}

tl::expected<void, Error> PortAudioDeviceLayer::setPreferredIOBufferDuration(double duration) {
    const std::lock_guard lock(mutex_);
    preferredIOBufferDuration_ = duration;
    engine_.setPreferredFormat(preferredSampleRate_, preferredIOBufferDuration_);
    return {};
}

std::optional<std::int64_t>
PortAudioDeviceLayer::routeChangeSince(const std::vector<AudioDeviceInfo>& devices) const {
    if (!knownDevices_) return std::nullopt;
    const auto before = namesOf(*knownDevices_);
    const auto now = namesOf(devices);
    if (std::any_of(now.begin(), now.end(), [&](const auto& name) { return !before.count(name); }))
        return routeChangeReason::newDeviceAvailable;
    if (before != now) return routeChangeReason::oldDeviceUnavailable;
    for (const auto direction : {AudioDirection::output, AudioDirection::input})
        if (defaultName(*knownDevices_, direction) != defaultName(devices, direction))
            return routeChangeReason::routeConfigurationChange;
    return std::nullopt;
}

tl::expected<void, Error> PortAudioDeviceLayer::setActive(bool active, unsigned /*options*/) {
    std::optional<std::int64_t> changed;
    tl::expected<void, Error> outcome;
    Observer observer;
    {
        const std::lock_guard lock(mutex_);
        if (!active) {
            engine_.stop();
            active_ = false;
            return {};
        }
        // the list is read afresh on activation, when no stream is open: a change
        // since the last activation is a route change
        if (!engine_.isRunning()) {
            if (auto devices = listAudioDevices()) {
                changed = routeChangeSince(*devices);
                knownDevices_ = std::move(*devices);
            }
        }
        engine_.setPreferredFormat(preferredSampleRate_, preferredIOBufferDuration_);
        outcome = engine_.start();
        if (outcome) {
            active_ = true;
            interrupted_ = false;
        }
        observer = routeChangeObserver_;
    }
    if (changed && observer) observer({{notificationKey::routeChangeReason, *changed}});
    return outcome;
}

AudioRoute PortAudioDeviceLayer::currentRoute() const {
    std::vector<AudioDeviceInfo> devices;
    {
        const std::lock_guard lock(mutex_);
        if (knownDevices_) devices = *knownDevices_;
    }
    AudioRoute route;
    if (const auto input = engine_.inputDevice(); input && preferredInput_)
        route.inputs.push_back(portFor(*input, AudioDirection::input, devices));
    auto output = engine_.outputDevice();
    if (!output)
        if (auto chosen = chooseAudioDevice(devices, AudioDirection::output, wantedAudioDevice()))
            output = *chosen;
    if (output) route.outputs.push_back(portFor(*output, AudioDirection::output, devices));
    return route;
}

std::vector<AudioPort> PortAudioDeviceLayer::availableInputs() const {
    std::vector<AudioPort> ports;
    const auto devices = listAudioDevices();
    if (!devices) return ports;
    for (const auto& device : *devices)
        if (device.maxInputChannels > 0)
            ports.push_back(portFor(device, AudioDirection::input, *devices));
    return ports;
}

tl::expected<void, Error> PortAudioDeviceLayer::setPreferredInput(std::optional<AudioPort> port) {
    const std::lock_guard lock(mutex_);
    if (!port) {
        preferredInput_.reset();
        return engine_.setInputDevice(std::nullopt);
    }
    const auto devices = listAudioDevices();
    if (!devices) return tl::unexpected(devices.error());
    const auto device = std::find_if(devices->begin(), devices->end(), [&](const auto& found) {
        return found.name == port->name && found.maxInputChannels > 0;
    });
    if (device == devices->end())
        return tl::unexpected(Error{"No audio input named \"" + port->name + "\""});
    auto opened = engine_.setInputDevice(*device);
    if (opened) preferredInput_ = std::move(port);
    return opened;
}

double PortAudioDeviceLayer::sampleRate() const {
    return engine_.sampleRate();
}

double PortAudioDeviceLayer::ioBufferDuration() const {
    return engine_.framesPerBuffer() / engine_.sampleRate();
}

void PortAudioDeviceLayer::setObservers(Observer interruption, Observer routeChange) {
    const std::lock_guard lock(mutex_);
    interruptionObserver_ = std::move(interruption);
    routeChangeObserver_ = std::move(routeChange);
}

bool PortAudioDeviceLayer::isActive() const {
    const std::lock_guard lock(mutex_);
    return active_;
}

bool PortAudioDeviceLayer::isInterrupted() const {
    const std::lock_guard lock(mutex_);
    return interrupted_;
}

void PortAudioDeviceLayer::monitor() {
    auto lastTry = std::chrono::steady_clock::now();
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        wake_.wait_for(lock, options_.pollInterval, [this] { return stopping_; });
        if (stopping_) return;
        std::optional<NotificationInfo> notification;
        while (const auto event = engine_.nextEvent()) {
            if (*event != EngineEvent::outputStopped || !active_ || interrupted_) continue;
            interrupted_ = true;
            engine_.stop();
            notification =
                NotificationInfo{{notificationKey::interruptionType, interruptionType::began}};
            lastTry = std::chrono::steady_clock::now();
        }
        if (!notification && interrupted_ &&
            std::chrono::steady_clock::now() - lastTry >= options_.retryInterval) {
            lastTry = std::chrono::steady_clock::now();
            // the interruption ends when the device opens again
            auto& host = detail::PortAudioHost::instance();
            const auto hostLock = host.lock();
            if (host.rescan()) {
                const auto devices = host.devices();
                const auto chosen =
                    chooseAudioDevice(devices, AudioDirection::output, wantedAudioDevice());
                if (chosen && detail::canOpen(*chosen, AudioDirection::output)) {
                    interrupted_ = false;
                    notification = NotificationInfo{
                        {notificationKey::interruptionType, interruptionType::ended},
                        {notificationKey::interruptionOptions, interruptionShouldResume}};
                }
            }
        }
        if (notification && interruptionObserver_) {
            const auto observer = interruptionObserver_;
            lock.unlock();
            observer(*notification);
            lock.lock();
        }
    }
}

} // namespace fq::audio
