#pragma once

// What the audio tests share: captured diagnostic lines, and an independent way to
// find where each note of a strum begins in rendered or recorded audio.

#include <fq/core/CapturedDiagnostics.h>

#include <cstdio>
#include <span>
#include <string>
#include <vector>

namespace fq::audio::testing {

using DiagnosticCapture = CapturedDiagnostics;

double rms(std::span<const float> samples);

/// One note alone, as the General MIDI steel-string guitar plays it at full
/// velocity, rendered straight from FluidSynth (not through the program's sampler).
std::vector<float> isolatedGuitarNote(int note, double sampleRate, double seconds);

/// Where each of `notes` begins in `audio` (one channel), in frames, searched in
/// order: the first where the sound rises out of silence, each later one within
/// `searchSpan` seconds, at least `minimumGap` frames after the previous; each where
/// its isolated sound matches best once the notes already found are taken away.
/// Works because the synthesizer's voices add up. Fewer onsets than notes when the
/// audio stays silent.
std::vector<double> noteOnsets(std::span<const float> audio, std::span<const int> notes,
                               double sampleRate, long minimumGap = 0, double searchSpan = 0.15);

/// The left and right channels mixed to one.
std::vector<float> mono(std::span<const float> left, std::span<const float> right);

} // namespace fq::audio::testing
