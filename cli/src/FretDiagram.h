#pragma once

// Chord boxes for the terminal, alone or side by side, as a guitarist reads them.

#include <fq/core/ChordDataManager.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fq::cli {

/// How a player wants the box turned: strings from the highest on the left for a
/// left-handed player, and the nut at the bottom, as one looks down at the neck.
struct DiagramForm {
    bool leftHanded = false;
    bool upsideDown = false;
};

/// A chord box for the terminal, one line per entry: strings left to right from
/// the lowest, frets downwards, "×" over a muted string and "○" over an open one,
/// the finger number (or "●" without fingers) on each fretted string, "━" joining the
/// strings one finger holds down as a barre, and the first fret beside a shape that
/// starts up the neck. `strings` names the open notes under the box when given.
std::vector<std::string> renderFretDiagram(std::span<const int> frets,
                                           std::span<const int> fingers = {},
                                           std::span<const std::string_view> strings = {},
                                           DiagramForm form = {});

/// Diagrams side by side, each under its title, `perRow` to a row, with at least two
/// blank columns between a box (and its fret label) and the next.
std::string renderDiagramRows(const std::vector<std::vector<std::string>>& diagrams,
                              const std::vector<std::string>& titles, std::size_t perRow);

/// "x32010", or "x,13,12,10,11,10" when a fret needs two digits.
std::string compactFrets(std::span<const int> frets);

/// The form the person's preferences ask for ("left_handed", "invertFretboard"); the
/// plain form when the store cannot be read.
DiagramForm preferredDiagramForm();

} // namespace fq::cli
