// Reading typed notes, chord symbols, keys, tunings and progressions.
#include "fq/core/TypedInput.h"

#include "fq/core/ChordDataManager.h"
#include "fq/core/ChordProgressions.h"
#include "fq/core/GuitarTuning.h"
#include "fq/core/Spelling.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace fq::core {
namespace {

bool isLetter(char c, bool anyCase) {
    return (c >= 'A' && c <= 'G') || (anyCase && c >= 'a' && c <= 'g');
}

/// Bytes of the note name at the start of the text: a letter and its signs; 0 when none.
std::size_t rootLength(std::string_view text, bool anyCase) {
    if (text.empty() || !isLetter(text[0], anyCase)) return 0;
    std::size_t length = 1;
    for (;;) {
        const auto rest = text.substr(length);
        if (rest.starts_with("♯") || rest.starts_with("♭"))
            length += 3;
        else if (rest.starts_with("𝄪"))
            length += 4;
        else if (rest.starts_with("#") || rest.starts_with("b"))
            length += 1;
        else
            return length;
    }
}

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

std::string lowered(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return result;
}

/// Pieces of the text between any of the separators, empty pieces kept.
std::vector<std::string_view> piecesOf(std::string_view text, std::string_view separators) {
    std::vector<std::string_view> pieces;
    for (std::size_t start = 0;;) {
        const auto end = text.find_first_of(separators, start);
        pieces.push_back(text.substr(start, end == text.npos ? text.npos : end - start));
        if (end == text.npos) return pieces;
        start = end + 1;
    }
}

/// The type part of a symbol with ASCII signs made true: "7b9" is "7♭9", "7#9" is "7♯9".
/// A "b" counts as a flat only before a digit, where no type has a letter.
std::string withTrueTypeSigns(std::string_view type) {
    std::string result;
    for (std::size_t i = 0; i < type.size(); ++i) {
        if (type[i] == '#')
            result += "♯";
        else if (type[i] == 'b' && i + 1 < type.size() && type[i + 1] >= '0' && type[i + 1] <= '9')
            result += "♭";
        else
            result += type[i];
    }
    return result;
}

/// The catalogue type a suffix names after a root ("m7" is "minor 7th"), root position only.
const Chord* typeOfSuffix(std::string_view suffix) {
    const auto* chord = ChordDataManager::shared().chord(std::string("C").append(suffix));
    return chord && chord->variant == 0 ? chord : nullptr;
}

tl::expected<Chord, Error> unknownChord(std::string_view text) {
    return tl::unexpected(Error{fmt::format("Unknown chord: {}", text), ErrorKind::notFound});
}

/// A root the dictionary does not list, or a type in ASCII: the type is read after "C",
/// and a slash bass must be one of this chord's own tones.
tl::expected<Chord, Error> chordFromAnyRoot(std::string_view text) {
    const auto rootText = text.substr(0, rootLength(text, false));
    const auto root = noteFromText(rootText);
    if (!root) return unknownChord(text);
    auto rest = text.substr(rootText.size());
    if (rest.starts_with(' ')) rest.remove_prefix(1);
    const auto suffix = withTrueTypeSigns(rest);
    if (const auto* chord = typeOfSuffix(suffix)) return Chord{*root, chord->chordType, 0};
    const auto slash = suffix.rfind('/');
    if (slash == std::string::npos) return unknownChord(text);
    const auto* chord = typeOfSuffix(std::string_view(suffix).substr(0, slash));
    const auto bass = noteFromText(std::string_view(suffix).substr(slash + 1));
    if (!chord || !bass) return unknownChord(text);
    const auto tones = ChordDataManager::shared().notes(*root, chord->chordType);
    for (std::size_t i = 0; i < tones.size(); ++i)
        if (tones[i] == rawValue(*bass)) return Chord{*root, chord->chordType, static_cast<int>(i)};
    return unknownChord(text);
}

tl::expected<std::string, Error> modeOfKeySuffix(std::string_view suffix, std::string_view text) {
    if (suffix == "M") return std::string("major");
    const auto lower = lowered(trimmed(suffix));
    if (lower == "m" || lower == "min" || lower == "minor") return std::string("minor");
    if (lower == "maj" || lower == "major") return std::string("major");
    return tl::unexpected(
        Error{fmt::format("Unknown key: {} (a note, then m for minor, e.g. A, Am, f#m, B♭)", text),
              ErrorKind::refused});
}

/// A tuning name reduced to what a person reliably types: letters and digits, lower case,
/// with "#" spelled as in the catalogue.
std::string nameKey(std::string_view name) {
    std::string key;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const auto c = name[i];
        if (c == '#')
            key += "♯";
        else if (static_cast<unsigned char>(c) >= 0x80)
            key += c;
        else if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'z'))
            key += c;
        else if (c >= 'A' && c <= 'Z')
            key += static_cast<char>(c - 'A' + 'a');
    }
    return key;
}

std::optional<GuitarTuning> tuningNamed(std::string_view text) {
    const auto wanted = nameKey(text);
    if (wanted.empty()) return std::nullopt;
    for (const auto tuning : allGuitarTunings())
        if (nameKey(identifier(tuning)) == wanted || nameKey(tuningData(tuning).title) == wanted)
            return tuning;
    return std::nullopt;
}

/// Symbols that stand for a chord type after a numeral but not after a note name.
constexpr std::array<std::pair<std::string_view, std::string_view>, 6> numeralSuffixes{{
    {"ø7", "m7♭5"},
    {"ø", "m7♭5"},
    {"°7", "dim7"},
    {"°", "dim"},
    {"Δ7", "maj7"},
    {"Δ", "maj7"},
}};

/// The catalogue type of a numeral's suffix: a minor numeral first tries the minor form
/// ("ii7" is a minor 7th, "iimaj7" a minor major 7th), then the suffix as written.
std::optional<std::string> typeAfterNumeral(std::string_view suffix, bool major) {
    std::string text = withTrueTypeSigns(suffix);
    for (const auto& [symbol, written] : numeralSuffixes)
        if (text.starts_with(symbol)) {
            text = std::string(written) + text.substr(symbol.size());
            break;
        }
    if (!major) {
        auto minor = text.starts_with("maj") ? "M" + text.substr(3) : text;
        if (const auto* chord = typeOfSuffix("m" + minor)) return chord->chordType;
    }
    if (const auto* chord = typeOfSuffix(text)) return chord->chordType;
    return std::nullopt;
}

} // namespace

std::optional<Note> noteFromText(std::string_view text) {
    if (text.empty() || rootLength(text, true) != text.size()) return std::nullopt;
    std::string name(1, static_cast<char>(text[0] >= 'a' ? text[0] - 'a' + 'A' : text[0]));
    name.append(text.substr(1));
    return noteFromTypedName(name);
}

tl::expected<Chord, Error> chordFromSymbol(std::string_view text) {
    const auto& manager = ChordDataManager::shared();
    const auto root = text.substr(0, rootLength(text, false));
    auto rest = text.substr(root.size());
    if (rest.starts_with(' ')) rest.remove_prefix(1);
    std::string trueRoot(root.substr(0, 1));
    if (const auto note = noteFromText(root)) trueRoot = rawValue(*note);
    for (const auto& candidate :
         {std::string(text), std::string(root).append(rest), trueRoot.append(rest)})
        if (const auto* chord = manager.chord(candidate)) return *chord;
    return chordFromAnyRoot(text);
}

tl::expected<Chord, Error> chordFromParts(std::string_view root, std::string_view type,
                                          int variant) {
    const auto note = noteFromText(root);
    if (!note)
        return tl::unexpected(Error{fmt::format("Unknown note: {}", root), ErrorKind::notFound});
    const auto& manager = ChordDataManager::shared();
    const auto* data = manager.chordData(type);
    if (!data)
        return tl::unexpected(
            Error{fmt::format("Unknown chord type: {}", type), ErrorKind::notFound});
    const int last = static_cast<int>(data->notes.size()) - 1;
    if (variant < 0 || variant > last)
        return tl::unexpected(Error{fmt::format("Variant {} is out of range for {} (0 to {})",
                                                variant, manager.name(*note, type, 0), last),
                                    ErrorKind::refused});
    return Chord{*note, std::string(type), variant};
}

tl::expected<TypedKey, Error> keyFromText(std::string_view text) {
    const auto typed = trimmed(text);
    const auto length = rootLength(typed, true);
    // "Bbm" and "bbm" are B♭ minor; "bm" is B minor, so the sign is read greedily.
    const auto tonic = noteFromText(typed.substr(0, length));
    if (!tonic)
        return tl::unexpected(Error{fmt::format("Unknown note: {}", text), ErrorKind::notFound});
    const auto suffix = typed.substr(length);
    if (trimmed(suffix).empty()) return TypedKey{*tonic, std::nullopt};
    auto mode = modeOfKeySuffix(suffix, text);
    if (!mode) return tl::unexpected(mode.error());
    return TypedKey{*tonic, std::move(*mode)};
}

tl::expected<std::vector<std::string>, Error> tuningFromText(std::string_view text) {
    if (const auto tuning = tuningNamed(text)) {
        const auto notes = openNotes(*tuning);
        return std::vector<std::string>(notes.begin(), notes.end());
    }
    std::vector<std::string_view> pieces;
    for (const auto piece : piecesOf(trimmed(text), ", \t"))
        if (!piece.empty()) pieces.push_back(piece);
    if (pieces.size() < 2 && text.find(',') == std::string_view::npos)
        return tl::unexpected(Error{fmt::format("Unknown tuning: {} (name one such as dropD or "
                                                "dadgad, or give six notes like D,A,D,G,B,E)",
                                                text),
                                    ErrorKind::notFound});
    std::vector<std::string> notes;
    for (auto piece : pieces) {
        // "E2" names the string with its octave, as the tunings list prints it
        const auto note = noteFromText(piece.substr(0, piece.find_last_not_of("0123456789") + 1));
        if (!note)
            return tl::unexpected(
                Error{fmt::format("Unknown note in tuning: {}", piece), ErrorKind::refused});
        notes.emplace_back(rawValue(*note));
    }
    if (notes.size() != 6)
        return tl::unexpected(
            Error{fmt::format("A tuning needs six notes, lowest string first, like D,A,D,G,B,E: {}",
                              text),
                  ErrorKind::refused});
    return notes;
}

tl::expected<TypedProgression, Error> progressionFromText(Note key, std::string_view mode,
                                                          std::string_view text) {
    // Blanks separate numerals, and so does one comma or hyphen: "I--V" lacks one.
    std::vector<std::string_view> tokens;
    for (const auto piece : piecesOf(text, ",-")) {
        if (trimmed(piece).empty())
            return tl::unexpected(
                Error{fmt::format("Missing a numeral in \"{}\"", text), ErrorKind::refused});
        for (const auto token : piecesOf(trimmed(piece), " \t\r\n"))
            if (!token.empty()) tokens.push_back(token);
    }
    TypedProgression result;
    for (const auto token : tokens) {
        const auto start = token.find_first_of("IVXivx");
        const auto prefix = token.substr(0, start == std::string_view::npos ? 0 : start);
        const bool signsOnly = std::all_of(prefix.begin(), prefix.end(),
                                           [](char c) { return c == 'b' || c == '#'; }) ||
                               prefix == "♭" || prefix == "♯";
        if (start == std::string_view::npos || !signsOnly)
            return tl::unexpected(
                Error{fmt::format("Not a Roman numeral: {}", token), ErrorKind::refused});
        const auto end = token.find_first_not_of("IVXivx", start);
        const auto numeral = token.substr(0, end);
        const auto suffix = end == std::string_view::npos ? std::string_view{} : token.substr(end);
        // A sign before a numeral reads against the major scale, as on a chart: "♭VII" in A
        // minor is G, not the G♭ a second flat on the minor scale's own seventh would give.
        const auto bare = ChordProgressions::chords(key, prefix.empty() ? mode : "major", numeral);
        if (!result.numerals.empty()) result.numerals += '-';
        result.numerals += token;
        if (bare.empty()) continue;
        if (suffix.empty()) {
            result.chords.push_back(bare.front());
            continue;
        }
        const auto type = typeAfterNumeral(suffix, bare.front().chordType == "major");
        if (!type)
            return tl::unexpected(Error{
                fmt::format("Unknown chord suffix: {} in {}", suffix, token), ErrorKind::refused});
        result.chords.push_back(Chord{bare.front().rootNote, *type, 0});
    }
    return result;
}

} // namespace fq::core
