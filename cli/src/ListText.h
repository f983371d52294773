#pragma once

// Lists laid out for the terminal and for one-line errors, shared by the theory commands.

#include <fq/core/Chord.h>

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace fq::cli {

/// Items joined by ", ", broken into lines between items rather than inside one.
std::string wrappedItems(const std::vector<std::string>& items, std::size_t width,
                         std::string_view firstIndent, std::string_view indent);

/// "a, b or c", for the errors that name what would have been accepted.
std::string choices(const std::vector<std::string>& names);

nlohmann::ordered_json chordArray(const std::vector<core::Chord>& chords);

/// "C minor", "C major/E".
std::string chordName(const core::Chord& chord);

} // namespace fq::cli
