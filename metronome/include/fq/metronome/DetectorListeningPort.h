#pragma once

// The metronome screen's listening, done by a tempo detector.

#include "fq/metronome/MetronomeController.h"
#include "fq/metronome/MetronomeTempoDetector.h"

namespace fq::metronome {

/// The metronome screen's listening, done by a tempo detector: the process's shared
/// one unless told otherwise, made only when listening first starts, since it brings
/// up the audio session and a queue of its own.
///
/// Threads: main.
class DetectorListeningPort final : public TempoListeningPort {
public:
    DetectorListeningPort() = default;
    /// The detector must outlive the port.
    explicit DetectorListeningPort(MetronomeTempoDetector& detector) : detector_(&detector) {}

    void start(ListeningCallbacks::StateCallback onStateChange,
               ListeningCallbacks::TempoCallback onTempoDetected,
               ListeningCallbacks::LevelsCallback onLevelsUpdated) override {
        if (detector_ == nullptr) detector_ = &MetronomeTempoDetector::shared();
        detector_->start(std::move(onStateChange), std::move(onTempoDetected),
                         std::move(onLevelsUpdated));
    }
    /// Nothing to stop before the first start.
    void stop() override {
        if (detector_ != nullptr) detector_->stop();
    }

private:
    MetronomeTempoDetector* detector_ = nullptr;
};

} // namespace fq::metronome
