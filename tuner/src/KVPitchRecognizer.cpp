#include "fq/tuner/KVPitchRecognizer.h"

#include "fq/tuner/PitchPatch.h"

#include <fq/core/Diagnostics.h>
#include <fq/core/Uuid.h>

#include <asio/post.hpp>
#include <fmt/format.h>
#include <tl/expected.hpp>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <system_error>

namespace fq::tuner {
namespace {

/// A rate as the session's messages print it: "44100.0".
std::string number(double value) {
    auto text = fmt::format("{}", value);
    if (std::isfinite(value) && text.find_first_of(".e") == std::string::npos) text += ".0";
    return text;
}

/// Writes through a temporary file in the same folder and renames it into place, so
/// that the file appears whole or not at all.
tl::expected<void, std::string> writeAtomically(const std::filesystem::path& file,
                                                std::string_view text) {
    std::error_code error;
    if (!file.parent_path().empty()) std::filesystem::create_directories(file.parent_path(), error);
    if (error) return tl::unexpected(error.message());
    auto temporary = file;
    temporary += ".partial";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!out) return tl::unexpected(std::string(std::strerror(errno)));
        out.write(text.data(), static_cast<std::streamsize>(text.size()));
        out.flush();
        if (!out) {
            std::filesystem::remove(temporary, error);
            return tl::unexpected(std::string("cannot write ") + temporary.string());
        }
    }
    std::filesystem::rename(temporary, file, error);
    if (error) {
        std::error_code ignored;
        std::filesystem::remove(temporary, ignored);
        return tl::unexpected(error.message());
    }
    return {};
}

} // namespace

std::shared_ptr<KVPitchRecognizer> KVPitchRecognizer::create(asio::any_io_executor main,
                                                             PitchCaptureSession& session,
                                                             DrumEngineSuspension& drums,
                                                             std::filesystem::path cacheDirectory) {
    return std::make_shared<KVPitchRecognizer>(Private{}, std::move(main), session, drums,
                                               std::move(cacheDirectory));
}

KVPitchRecognizer::KVPitchRecognizer(Private, asio::any_io_executor main,
                                     PitchCaptureSession& session, DrumEngineSuspension& drums,
                                     std::filesystem::path cacheDirectory)
    : main_(std::move(main)), session_(session), drums_(drums),
      cacheDirectory_(std::move(cacheDirectory)) {}

KVPitchRecognizer::~KVPitchRecognizer() {
    if (_dispatcher) {
        if (PdBase::delegate() == _dispatcher.get()) PdBase::setDelegate(nullptr);
        _dispatcher->removeAllListeners();
    }
    _audioController.reset();
    PdBase::closeFile(_patch);
}

void KVPitchRecognizer::start() {
    if (_patch == nullptr) {
        asio::post(main_, [weak = weak_from_this()] {
            if (const auto self = weak.lock()) self->openPatch();
        });
        return;
    }
    const auto generation = ++_lifecycleGeneration;
    session_.beginCapture([weak = weak_from_this(), generation] {
        const auto self = weak.lock();
        if (self && self->_lifecycleGeneration == generation) self->attach();
    });
}

void KVPitchRecognizer::openPatch() {
    if (_patch != nullptr || _isInitializing) return;
    _isInitializing = true;
    const auto generation = ++_lifecycleGeneration;
    asio::post(main_, [weak = weak_from_this(), generation] {
        const auto self = weak.lock();
        if (!self) return;
        // the drums and the recognizer must not share the audio hardware
        self->drums_.suspendAndStop();
        self->session_.beginCapture([weak, generation] {
            if (const auto again = weak.lock()) again->openPatchWithCapture(generation);
        });
    });
}

void KVPitchRecognizer::openPatchWithCapture(std::uint64_t generation) {
    if (_lifecycleGeneration != generation) return;
    configureAudio();
    drums_.leaveSuspension();
    _dispatcher = std::make_unique<PdDispatcher>();

    // a fresh name each time: earlier files stay, and no name is used twice
    const auto name = core::Uuid::random().text();
    patchFile_ = cacheDirectory_ / name;
    if (auto written = writeAtomically(patchFile_, pitchRecognizerPatch); !written) {
        diagnostic("Error writing patch file: " + written.error());
    } else {
        _patch = PdBase::openFile(name, cacheDirectory_);
    }

    if (_patch != nullptr) {
        diagnostic("Patch opened successfully");
        _isInitializing = false;
        attach();
        notifyDelegate(true);
    } else {
        diagnostic("Failed to open patch!");
        _isInitializing = false;
        session_.endCapture();
        notifyDelegate(false);
    }
}

void KVPitchRecognizer::notifyDelegate(bool opened) {
    asio::post(main_, [delegate = _delegate, opened] {
        if (const auto target = delegate.lock()) target->pitchRecognizerDidOpenPatch(opened);
    });
}

void KVPitchRecognizer::configureAudio() {
    double sampleRate = session_.sampleRate();
    if (!(sampleRate > 0)) sampleRate = config::fallbackSampleRate;
    if (!_audioController) _audioController = std::make_unique<PdAudioController>(session_, main_);
    if (!_audioController) {
        diagnostic("Could not get PdAudioController");
        return;
    }
    _audioController->setActive(false);
    _audioController->setAllowBluetooth(false);
    _audioController->setAllowBluetoothA2DP(true);
    _audioController->setDefaultToSpeaker(true);
    // a rate that no integer holds is a fault of the platform, not a state to survive
    if (!std::isfinite(sampleRate) || sampleRate > std::numeric_limits<std::int32_t>::max() ||
        sampleRate < std::numeric_limits<std::int32_t>::min()) {
        std::fprintf(stderr, "Fatal: unusable sample rate %f\n", sampleRate);
        std::abort();
    }
    const auto status =
        _audioController->configurePlayback(static_cast<int>(sampleRate), 1, true, true);
    switch (status) {
    case PdAudioController::success:
        diagnostic("Audio configuration success. sampleRate=" + number(sampleRate));
        break;
    case PdAudioController::error:
        diagnostic("Audio configuration error. sampleRate=" + number(sampleRate));
        break;
    default:
        diagnostic("Audio configuration: property changed. sampleRate=" + number(sampleRate));
        break;
    }
}

void KVPitchRecognizer::attach() {
    if (_dispatcher) {
        _dispatcher->addListener(this, std::string(config::frequencySource));
        _dispatcher->addListener(this, std::string(config::envelopeSource));
        PdBase::setDelegate(_dispatcher.get());
    }
    if (_audioController) _audioController->setActive(true);
}

void KVPitchRecognizer::receiveFloat(float value, const char* source) {
    asio::post(main_,
               [weak = weak_from_this(), value,
                source = source == nullptr ? std::optional<std::string>() : std::string(source)] {
                   const auto self = weak.lock();
                   if (!self || !source) return;
                   self->accept(*source, value);
               });
}

void KVPitchRecognizer::accept(const std::string& source, float value) {
    if (source != config::frequencySource) return;
    // compared as libpd delivered it, before widening
    if (value < config::lowestFrequency || value > config::highestFrequency) return;
    const auto widened = static_cast<double>(value);
    if (widened == _frequency) return;
    _frequency = widened;
    if (observer_) observer_(_frequency);
}

void KVPitchRecognizer::stop() {
    ++_lifecycleGeneration;
    if (_isInitializing) _isInitializing = false;
    if (_dispatcher) _dispatcher->removeAllListeners();
    PdBase::setDelegate(nullptr);
    if (_audioController) _audioController->setActive(false);
    session_.endCapture();
}

void KVPitchRecognizer::resumeAudio() {
    configureAudio();
    attach();
}

void KVPitchRecognizer::tearDown(std::function<void()> done) {
    asio::post(main_, [weak = weak_from_this(), done = std::move(done)] {
        if (const auto self = weak.lock()) {
            if (self->_audioController) self->_audioController->setActive(false);
            self->_audioController.reset();
            PdBase::closeFile(self->_patch);
            self->_patch = nullptr;
            if (self->_dispatcher) {
                self->_dispatcher->removeListener(self.get(), std::string(config::frequencySource));
                self->_dispatcher->removeListener(self.get(), std::string(config::envelopeSource));
            }
            PdBase::setDelegate(nullptr);
            self->_dispatcher.reset();
            diagnostic("KVPitchRecognizer deinitialized");
            // so that the drums work without the recognizer again
            self->drums_.suspendAndStop();
            self->drums_.leaveSuspension();
        }
        if (done) done();
    });
}

} // namespace fq::tuner
