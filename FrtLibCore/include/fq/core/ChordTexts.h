#pragma once

#include "fq/core/Note.h"

#include <span>
#include <string>
#include <string_view>

namespace fq::core {

/// Comma-separated moods of a chord type, e.g. "happy, bright, stable, uplifting"; empty when
/// unknown.
std::string_view chordMood(std::string_view chordType);
/// Comma-separated genres of a chord type; empty when unknown.
std::string_view chordGenres(std::string_view chordType);

/// The description template of every chord type; notes stand as "(--1--)" … "(--6--)".
std::string_view descriptionTemplate(std::string_view chordType);
/// The template that speaks of the chord on the guitar; only some types have one.
std::string_view guitarDescriptionTemplate(std::string_view chordType);

/// Replaces "(--n--)" by the n-th note for n from 1 to 6; numbers past the end become empty.
std::string fillDescriptionTemplate(std::string_view text, std::span<const std::string> notes);

/// The filled descriptions of a chord in root position; empty when the type has none.
std::string chordDescription(Note root, std::string_view chordType);
std::string guitarDescription(Note root, std::string_view chordType);

} // namespace fq::core
