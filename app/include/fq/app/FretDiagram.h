#pragma once

#include <fq/core/ChordDataManager.h>

#include <string>

namespace fq::app {

/// A chord box for the terminal: strings left to right from the lowest, frets
/// downwards, "×" over a muted string and "○" over an open one; a shape high up
/// the neck is labelled with its first fret.
std::string renderFretDiagram(const core::FretList& frets);

/// "x32010", or "x,13,12,10,11,10" when a fret needs two digits.
std::string compactFrets(const core::FretList& frets);

} // namespace fq::app
