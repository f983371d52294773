#pragma once

#include <fq/core/ChordDataManager.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fq::cli {

/// A chord box for the terminal, one line per entry: strings left to right from
/// the lowest, frets downwards, "×" over a muted string and "○" over an open one,
/// the finger number (or "●" without fingers) on each fretted string, and the
/// first fret beside a shape that starts up the neck. `strings` names the open
/// notes under the box when given.
std::vector<std::string> renderFretDiagram(std::span<const int> frets,
                                           std::span<const int> fingers = {},
                                           std::span<const std::string_view> strings = {});

/// Diagrams side by side, each under its title, `perRow` to a row.
std::string renderDiagramRows(const std::vector<std::vector<std::string>>& diagrams,
                              const std::vector<std::string>& titles, std::size_t perRow);

/// "x32010", or "x,13,12,10,11,10" when a fret needs two digits.
std::string compactFrets(std::span<const int> frets);

} // namespace fq::cli
