#pragma once

#include "fq/songmaker/SongDocument.h"

#include <fq/core/AccompanimentPatterns.h>

#include <cstdint>
#include <vector>

namespace fq::songmaker {

/// What the song editor needs of the jam sequencer, which plays the flat chord list as
/// guitar, bass and drum tracks. Main context only.
class JamSequencer {
public:
    virtual ~JamSequencer() = default;

    virtual bool isRunning() const = 0;
    virtual void stop() = 0;
    virtual std::int64_t tempo() const = 0;
    virtual void setTempo(std::int64_t bpm) = 0;
    /// The sections to play and the accompaniment, after every change to either.
    virtual void update(const std::vector<SongSection>& sections,
                        const core::ArpeggioSequence& guitar, const core::BassPattern& bass,
                        const core::DrumPattern& drums) = 0;
    /// Moves the playhead to a flat chord index.
    virtual void seek(int flatIndex) = 0;
};

/// A sequencer that never sounds: it keeps the tempo and the last update, for the
/// command line (which has no playback) and until playback exists.
class SilentSequencer final : public JamSequencer {
public:
    bool isRunning() const override { return false; }
    void stop() override {}
    std::int64_t tempo() const override { return tempo_; }
    void setTempo(std::int64_t bpm) override { tempo_ = bpm; }
    void update(const std::vector<SongSection>& sections, const core::ArpeggioSequence&,
                const core::BassPattern&, const core::DrumPattern&) override {
        sections_ = sections;
    }
    void seek(int) override {}

    const std::vector<SongSection>& sections() const { return sections_; }

private:
    std::int64_t tempo_ = 120;
    std::vector<SongSection> sections_;
};

} // namespace fq::songmaker
