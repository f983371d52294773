#pragma once

#include <fq/core/Chord.h>
#include <fq/core/Error.h>
#include <fq/core/Note.h>

#include <tl/expected.hpp>

#include <optional>
#include <string_view>

namespace fq::app {

/// A note as a person types it: true signs ("C♯", "E♭", "B♯") or ASCII ("C#", "Eb").
std::optional<core::Note> noteFromUserText(std::string_view text);

/// A chord symbol the alias dictionary knows ("Cm7", "Bb7", "C/E"), looked up as
/// given, then with the blank after the root removed ("C♯ minor 7th"), then with
/// the root's ASCII signs made true ("Bb minor"). Fails with "Unknown chord: <text>".
tl::expected<core::Chord, Error> chordFromSymbol(std::string_view text);

/// A chord given as root, catalogue type and inversion, checked against the catalogue.
tl::expected<core::Chord, Error> chordFromParts(std::string_view root, std::string_view type,
                                                int variant);

} // namespace fq::app
