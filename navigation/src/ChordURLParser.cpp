// Web links to chords, read and written.

#include "fq/navigation/ChordURLParser.h"

#include "Unicode.h"

#include <fq/core/ChordDataManager.h>

#include <uriparser/Uri.h>

#include <algorithm>
#include <charconv>
#include <memory>

namespace fq::navigation::ChordURLParser {
namespace {

using core::Note;

// Searched front to back by prefix when a chord segment is split, so every
// accidental comes before the plain letters: "b-flat" must not read as "b".
constexpr std::array<std::pair<std::string_view, Note>, 17> slugTable{{
    {"c-sharp", Note::Cs},
    {"d-sharp", Note::Ds},
    {"f-sharp", Note::Fs},
    {"g-sharp", Note::Gs},
    {"a-sharp", Note::As},
    {"d-flat", Note::Df},
    {"e-flat", Note::Ef},
    {"g-flat", Note::Gf},
    {"a-flat", Note::Af},
    {"b-flat", Note::Bf},
    {"c", Note::C},
    {"d", Note::D},
    {"e", Note::E},
    {"f", Note::F},
    {"g", Note::G},
    {"a", Note::A},
    {"b", Note::B},
}};

constexpr std::array<std::pair<std::string_view, Note>, 4> enharmonicSlugs{
    {{"b-sharp", Note::C}, {"c-flat", Note::B}, {"e-sharp", Note::F}, {"f-flat", Note::E}}};

constexpr std::array<Note, 12> pitchClassNotes{Note::C,  Note::Cs, Note::D,  Note::Ds,
                                               Note::E,  Note::F,  Note::Fs, Note::G,
                                               Note::Gs, Note::A,  Note::As, Note::B};

std::string replaceAll(std::string text, std::string_view from, std::string_view to) {
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

std::string joined(const std::vector<std::string>& pieces, std::string_view separator) {
    std::string text;
    for (const auto& piece : pieces) {
        if (!text.empty()) text += separator;
        text += piece;
    }
    return text;
}

bool isAsciiLetters(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 'a' && c <= 'z'; });
}

bool isDigits(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// "de", "pt-br", "zh-hant-tw", "es-419".
bool isLanguageTag(std::string_view piece) {
    std::vector<std::string_view> parts;
    for (std::size_t start = 0;;) {
        const auto end = piece.find('-', start);
        parts.push_back(piece.substr(start, end == piece.npos ? piece.npos : end - start));
        if (end == piece.npos) break;
        start = end + 1;
    }
    if (parts.size() > 3) return false;
    if ((parts[0].size() != 2 && parts[0].size() != 3) || !isAsciiLetters(parts[0])) return false;
    return std::all_of(parts.begin() + 1, parts.end(), [](std::string_view part) {
        return ((part.size() == 2 || part.size() == 4) && isAsciiLetters(part)) ||
               (part.size() == 3 && isDigits(part));
    });
}

/// Percent-decoded, trimmed and lower case; the text as it stands when decoding
/// would not give valid UTF-8.
std::string normalisedPiece(std::string_view piece) {
    std::string decoded(piece);
    decoded.resize(static_cast<std::size_t>(uriUnescapeInPlaceA(decoded.data()) - decoded.data()));
    if (!unicode::isValidUtf8(decoded)) decoded = piece;
    return unicode::lowerCased(unicode::trimmed(decoded));
}

std::string_view range(const UriTextRangeA& text) {
    if (!text.first || !text.afterLast) return {};
    return {text.first, static_cast<std::size_t>(text.afterLast - text.first)};
}

/// A parsed URI and the text its ranges point into.
struct ParsedUri {
    std::string text;
    UriUriA uri{};
    bool ok = false;
    explicit ParsedUri(std::string_view url) : text(url) {
        const char* error = nullptr;
        ok = uriParseSingleUriA(&uri, text.c_str(), &error) == URI_SUCCESS;
    }
    ~ParsedUri() {
        if (ok) uriFreeUriMembersA(&uri);
    }
    ParsedUri(const ParsedUri&) = delete;
    ParsedUri& operator=(const ParsedUri&) = delete;
};

/// The value of the first query item named `name` (compared in lower case).
std::optional<std::string> queryValue(const UriUriA& uri, std::string_view name) {
    const auto query = range(uri.query);
    if (query.empty()) return std::nullopt;
    UriQueryListA* items = nullptr;
    int count = 0;
    // "+" stays a plus sign: a query item is not a form field
    if (uriDissectQueryMallocExA(&items, &count, query.data(), query.data() + query.size(),
                                 URI_FALSE, URI_BR_DONT_TOUCH) != URI_SUCCESS)
        return std::nullopt;
    const std::unique_ptr<UriQueryListA, void (*)(UriQueryListA*)> owner(items, uriFreeQueryListA);
    for (auto* item = items; item; item = item->next) {
        if (item->key && unicode::lowerCased(item->key) == name)
            return item->value ? std::optional<std::string>(item->value) : std::nullopt;
    }
    return std::nullopt;
}

int integerOrZero(const std::optional<std::string>& text) {
    if (!text) return 0;
    std::string_view digits = *text;
    if (digits.starts_with('+')) digits.remove_prefix(1);
    int value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return error == std::errc{} && end == digits.data() + digits.size() && !digits.empty() ? value
                                                                                           : 0;
}

std::string percentEncodedPath(std::string_view path) {
    std::string escaped(path.size() * 6 + 1, '\0');
    const auto* end =
        uriEscapeExA(path.data(), path.data() + path.size(), escaped.data(), URI_FALSE, URI_FALSE);
    escaped.resize(static_cast<std::size_t>(end - escaped.data()));
    return replaceAll(escaped, "%2F", "/"); // the separators stay separators
}

} // namespace

std::optional<std::string> noteSlug(std::string_view note) {
    auto text = replaceAll(unicode::lowerCased(unicode::trimmed(note)), " ", "");
    text = replaceAll(replaceAll(text, "𝄪", "♯♯"), "𝄫", "♭♭");
    if (text.empty() || text[0] < 'a' || text[0] > 'g') return std::nullopt;
    const std::string letter = text.substr(0, 1);
    const std::string_view rest = std::string_view(text).substr(1);
    if (rest.empty()) return letter;
    if (rest == "♯" || rest == "#") return letter + "-sharp";
    if (rest == "♭" || rest == "b") return letter + "-flat";
    if (rest == "♯♯" || rest == "##") return letter + "-double-sharp";
    if (rest == "♭♭" || rest == "bb") return letter + "-flat-flat";
    return std::nullopt;
}

std::optional<Note> noteFromSlug(std::string_view slug) {
    for (const auto& [text, note] : slugTable)
        if (slug == text) return note;
    for (const auto& [text, note] : enharmonicSlugs)
        if (slug == text) return note;
    const auto dash = slug.find('-');
    const auto letter = slug.substr(0, dash);
    constexpr std::string_view letters = "cdefgab";
    constexpr std::array<int, 7> semitones{0, 2, 4, 5, 7, 9, 11};
    if (letter.size() != 1 || letters.find(letter[0]) == std::string_view::npos)
        return std::nullopt;
    int pitch = semitones[letters.find(letter[0])];
    const auto rest = dash == std::string_view::npos ? std::string_view{} : slug.substr(dash + 1);
    if (rest == "sharp")
        pitch += 1;
    else if (rest == "flat")
        pitch -= 1;
    else if (rest == "double-sharp")
        pitch += 2;
    else if (rest == "flat-flat")
        pitch -= 2;
    else if (!rest.empty())
        return std::nullopt;
    return pitchClassNotes[static_cast<std::size_t>((pitch + 12) % 12)];
}

std::string chordTypeSlug(std::string_view chordType) {
    return joined(unicode::words(unicode::replacingNonAlphanumerics(unicode::lowerCased(chordType),
                                                                    ' ', true)),
                  "-");
}

std::string chordTypeMatchKey(std::string_view text) {
    return unicode::lowerCased(
        joined(unicode::words(replaceAll(std::string(text), "-", " ")), " "));
}

std::string identifierSlug(std::string_view text) {
    std::string spelled(text);
    for (const auto& [from, to] :
         std::initializer_list<std::pair<std::string_view, std::string_view>>{
             {"♯", " sharp "},
             {"♭", " flat "},
             {"𝄪", " double sharp "},
             {"#", " sharp "},
             {"Δ", " major "}})
        spelled = replaceAll(spelled, from, to);
    const auto dashed = unicode::replacingNonAlphanumerics(unicode::folded(spelled), '-', false);
    std::vector<std::string> pieces;
    for (std::size_t start = 0; start <= dashed.size();) {
        const auto end = std::min(dashed.find('-', start), dashed.size());
        if (end > start) pieces.push_back(dashed.substr(start, end - start));
        start = end + 1;
    }
    return joined(pieces, "-");
}

std::optional<std::string> encodeFingering(std::span<const int> frets) {
    if (frets.size() != 6) return std::nullopt;
    std::string text;
    for (int fret : frets) {
        if (fret == -1)
            text += 'x';
        else if (fret >= 0 && fret <= 9)
            text += static_cast<char>('0' + fret);
        else if (fret >= 10 && fret <= 32)
            text += static_cast<char>('a' + fret - 10);
        else if (fret == 34 || fret == 35)
            text += static_cast<char>('y' + fret - 34);
        else
            return std::nullopt; // 33 would read back as "x"
    }
    return text;
}

std::optional<std::vector<int>> decodeFingering(std::string_view text) {
    const auto lower = unicode::lowerCased(text);
    if (lower.size() != 6) return std::nullopt;
    std::vector<int> frets;
    for (char c : lower) {
        if (c == 'x')
            frets.push_back(-1);
        else if (c >= '0' && c <= '9')
            frets.push_back(c - '0');
        else if (c >= 'a' && c <= 'w')
            frets.push_back(c - 'a' + 10);
        else if (c == 'y' || c == 'z')
            frets.push_back(c - 'y' + 34);
        else
            return std::nullopt;
    }
    if (std::all_of(frets.begin(), frets.end(), [](int f) { return f == -1; })) return std::nullopt;
    return frets;
}

std::optional<ParsedChordRoute> parseChordURL(std::string_view url) {
    const ParsedUri parsed{url};
    if (!parsed.ok) return std::nullopt;
    const auto host = unicode::lowerCased(range(parsed.uri.hostText));
    if (host.empty() || !host.ends_with(config::webHost)) return std::nullopt;

    std::vector<std::string> pieces;
    for (auto* segment = parsed.uri.pathHead; segment; segment = segment->next)
        if (const auto text = range(segment->text); !text.empty())
            pieces.push_back(unicode::lowerCased(text));
    if (pieces.size() >= 2 && isLanguageTag(pieces[0]) && pieces[1] == "chords")
        pieces.erase(pieces.begin());
    if (pieces.size() < 2 || pieces.size() > 4 || pieces[0] != "chords") return std::nullopt;

    ParsedChordRoute route;
    route.chordSlug = normalisedPiece(pieces[1]);
    const auto root = std::find_if(slugTable.begin(), slugTable.end(), [&](const auto& entry) {
        return route.chordSlug.starts_with(entry.first);
    });
    if (root == slugTable.end()) return std::nullopt;
    std::string_view remainder = std::string_view(route.chordSlug).substr(root->first.size());
    if (!remainder.empty() && remainder.front() != '-') return std::nullopt;
    if (!remainder.empty()) remainder.remove_prefix(1);

    const auto& manager = core::ChordDataManager::shared();
    const auto wanted = chordTypeMatchKey(remainder);
    const auto type = std::find_if(
        manager.catalogue().begin(), manager.catalogue().end(),
        [&](const core::ChordData& data) { return chordTypeMatchKey(data.title) == wanted; });
    if (type == manager.catalogue().end()) return std::nullopt;
    route.chord = core::Chord{root->second, type->title, 0};
    const auto tones = manager.notes(root->second, type->title);

    std::vector<std::string> further;
    for (std::size_t i = 2; i < pieces.size(); ++i)
        further.push_back(normalisedPiece(pieces[i]));
    if (further.empty()) {
        const int variant = integerOrZero(queryValue(parsed.uri, "variant"));
        if (variant >= 1 && variant < static_cast<int>(tones.size())) {
            route.chord.variant = variant;
            route.bassNote = core::noteFromRawValue(tones[static_cast<std::size_t>(variant)]);
        }
        return route;
    }

    const auto bass = std::find_if(tones.begin(), tones.end(), [&](const std::string& tone) {
        const auto slug = noteSlug(tone);
        return slug && *slug == further[0];
    });
    if (bass != tones.end()) {
        route.chord.variant = static_cast<int>(bass - tones.begin());
        route.bassNote = core::noteFromRawValue(*bass);
        route.bassSlug = further[0];
        if (further.size() == 2) {
            route.selectedPosition = decodeFingering(further[1]);
            if (!route.selectedPosition) return std::nullopt;
        }
        return route;
    }
    if (further.size() != 1) return std::nullopt;
    route.selectedPosition = decodeFingering(further[0]);
    if (!route.selectedPosition) return std::nullopt;
    return route;
}

std::string chordWebURL(const core::Chord& chord, std::optional<std::span<const int>> fingering) {
    const std::string fallback = "https://" + std::string(config::webHost) + "/chords";
    const auto rootSlug = noteSlug(core::rawValue(chord.rootNote));
    if (!rootSlug) return fallback;
    std::string path = "/chords/" + *rootSlug;
    if (const auto typeSlug = chordTypeSlug(chord.chordType); !typeSlug.empty())
        path += "-" + typeSlug;

    const auto tones = core::ChordDataManager::shared().notes(chord.rootNote, chord.chordType);
    const int variant = chord.variant;
    const int toneCount = static_cast<int>(tones.size());
    if (variant >= 1 && variant < toneCount)
        if (const auto bassSlug = noteSlug(tones[static_cast<std::size_t>(variant)]))
            path += "/" + *bassSlug;
    if (fingering)
        if (const auto code = encodeFingering(*fingering)) path += "/" + *code;

    auto url = "https://" + std::string(config::webHost) + percentEncodedPath(path);
    if (variant >= 1 && variant >= toneCount) url += "?variant=" + std::to_string(variant);
    return url;
}

} // namespace fq::navigation::ChordURLParser
