#pragma once

// Frets as a person types them, and the theory core's readers of typed text under the
// names the commands use.

#include <fq/core/Error.h>
#include <fq/core/TypedInput.h>

#include <tl/expected.hpp>

#include <optional>
#include <string_view>
#include <vector>

namespace fq::cli {

using core::chordFromParts;
using core::chordFromSymbol;
using core::tuningFromText;

inline std::optional<core::Note> noteFromUserText(std::string_view text) {
    return core::noteFromText(text);
}

/// Highest fret a person may type as a number; a link's code reaches further.
inline constexpr int highestTypedFret = 24;

/// Six frets, lowest string first: "x,3,2,0,1,0" (x or -1 mutes a string, frets up to 24)
/// or the six characters of a link's code, read as a link is ("x32010", "x0bbb8" where b is
/// fret 11, up to z for 35).
tl::expected<std::vector<int>, Error> fretsFromText(std::string_view text);

} // namespace fq::cli
