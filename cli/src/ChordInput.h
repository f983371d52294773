#pragma once

#include <fq/core/Chord.h>
#include <fq/core/Error.h>
#include <fq/core/Note.h>

#include <tl/expected.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fq::cli {

/// A note as a person types it: true signs ("C♯", "E♭", "B♯") or ASCII ("C#", "Eb").
std::optional<core::Note> noteFromUserText(std::string_view text);

/// A chord symbol the alias dictionary knows ("Cm7", "Bb7", "C/E"), looked up as
/// given, then with the blank after the root removed ("C♯ minor 7th"), then with
/// the root's ASCII signs made true ("Bb minor"). Fails with "Unknown chord: <text>".
tl::expected<core::Chord, Error> chordFromSymbol(std::string_view text);

/// A chord given as root, catalogue type and inversion, checked against the catalogue.
tl::expected<core::Chord, Error> chordFromParts(std::string_view root, std::string_view type,
                                                int variant);

/// Six frets, lowest string first: "x,3,2,0,1,0" (x or -1 mutes a string) or the
/// link form "x32010".
tl::expected<std::vector<int>, Error> fretsFromText(std::string_view text);

/// A tuning by its name in the catalogue ("dropD", "dadgad") or as six open notes,
/// lowest string first ("D,A,D,G,B,E", "Eb,Ab,Db,Gb,Bb,Eb"); given back as the six
/// note names with the true signs.
tl::expected<std::vector<std::string>, Error> tuningFromText(std::string_view text);

} // namespace fq::cli
