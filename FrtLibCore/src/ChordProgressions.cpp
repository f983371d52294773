#include "fq/core/ChordProgressions.h"

#include "fq/core/Diagnostics.h"
#include "fq/core/Spelling.h"
#include "fq/core/Text.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <utility>

namespace fq::core {
namespace {

using S = MusicStyles;

constexpr std::array<MusicStyles, musicStylesCount> styles{
    S::folk,       S::blues,     S::pop,         S::rock,     S::country,
    S::jazz,       S::classical, S::metal,       S::hiphop,   S::reggae,
    S::electronic, S::punk,      S::soul,        S::funk,     S::disco,
    S::rnb,        S::dramatic,  S::emotional,   S::ballad,   S::melancholic,
    S::modal,      S::medieval,  S::traditional, S::romantic, S::cinematic,
};

constexpr std::array<std::string_view, musicStylesCount> styleNames{
    "Folk",     "Blues",       "Pop",      "Rock",       "Country", "Jazz",        "Classical",
    "Metal",    "Hip Hop",     "Reggae",   "Electronic", "Punk",    "Soul",        "Funk",
    "Disco",    "R&B",         "Dramatic", "Emotional",  "Ballad",  "Melancholic", "Modal",
    "Medieval", "Traditional", "Romantic", "Cinematic",
};

constexpr std::array<std::string_view, 18> majorOrder{
    "I-V-vi-IV", "I-vi-IV-V",   "I-V-ii-IV",   "I-vi-V-IV",   "I-V-IV-V",     "I-IV-V-IV",
    "I-IV-I-V",  "I-V-IV-I",    "I-iii-IV-V",  "I-iii-vi-IV", "I-ii-V-I",     "I-vi-ii-V",
    "I-VI-ii-V", "I-♭VII-IV-I", "I-♭VII-IV-V", "I-IV-♭VII-I", "I-IV-♭VII-IV", "I-II-iii-V",
};

constexpr std::array<std::string_view, 14> minorOrder{
    "i-VI-III-VII", "i-VI-III-V", "i-iv-v-i",     "i-iv-V-i",    "i-v-VI-v",
    "i-VI-v-iv",    "i-v-iv-VI",  "i-iv-VI-III",  "i-III-VII-i", "i-III-VII-IV",
    "i-III-VI-VII", "i-VII-VI-V", "i-VII-VI-VII", "i-v-iv-i",
};

struct Row {
    std::string_view progression;
    std::vector<MusicStyles> styles;
    std::string_view description;
};

ChordProgressions::Catalogue buildCatalogue() {
    const std::vector<Row> rows{
        {"I-V-vi-IV",
         {S::pop, S::rock},
         "Known as the “four-chord progression,” this is incredibly popular in modern pop and rock "
         "music. It starts with the tonic (--I--), moves to the dominant (--V--), then to the "
         "relative minor (--vi--), and resolves to the subdominant (--IV--)."},
        {"I-vi-IV-V",
         {S::pop, S::rock},
         "The classic “doo-wop” progression behind countless ballads of the 1950s. The tonic "
         "(--I--) drops to the relative minor (--vi--) for a touch of longing, then the "
         "subdominant (--IV--) and the dominant (--V--) lead the ear back home."},
        {"I-V-ii-IV",
         {S::pop, S::rock},
         "A bright, open progression often heard in pop anthems. From the tonic (--I--) it rises "
         "to the dominant (--V--), softens on the minor supertonic (--ii--), and settles on the "
         "subdominant (--IV--), which leaves the loop ready to begin again."},
        {"I-vi-V-IV",
         {S::pop, S::ballad},
         "A gentle, descending relative of the four-chord progression, loved in ballads. The tonic "
         "(--I--) gives way to the relative minor (--vi--), and the line falls through the "
         "dominant (--V--) to the subdominant (--IV--) for a warm, unhurried return."},
        {"I-IV-V-IV",
         {S::rock, S::pop, S::traditional},
         "A rock and roll staple built on the three primary chords. The tonic (--I--) lifts to the "
         "subdominant (--IV--), pushes up to the dominant (--V--), and steps back to the "
         "subdominant (--IV--) before landing home, the shape of many a garage-band riff."},
        {"I-V-IV-V",
         {S::rock, S::pop},
         "A driving back-and-forth between the tonic (--I--), the dominant (--V--) and the "
         "subdominant (--IV--). Ending on the dominant (--V--) keeps the tension high, so the loop "
         "always wants to start over."},
        {"I-V-IV-I",
         {S::blues, S::rock},
         "A blues-rock turnaround in miniature. Starting on the tonic (--I--), the dominant "
         "(--V--) steps down to the subdominant (--IV--) instead of resolving at once, and the "
         "phrase comes to rest on the tonic (--I--), just like the last line of a twelve-bar "
         "blues."},
        {"I-IV-I-V",
         {S::folk, S::traditional},
         "The backbone of many folk songs and hymns. The tonic (--I--) visits the subdominant "
         "(--IV--) and returns home, then the dominant (--V--) sets up the next verse with a "
         "strong pull back to the tonic."},
        {"I-iii-IV-V",
         {S::pop, S::folk},
         "A rising progression that climbs through the scale. After the tonic (--I--), the minor "
         "mediant (--iii--) adds a wistful colour, and the subdominant (--IV--) and the dominant "
         "(--V--) build steady momentum toward the return."},
        {"I-iii-vi-IV",
         {S::pop, S::rock},
         "A soft, emotional progression that leans on minor colours. The tonic (--I--) moves to "
         "the mediant (--iii--), which shares two of its notes, then falls to the relative minor "
         "(--vi--) and opens up on the subdominant (--IV--)."},
        {"I-ii-V-I",
         {S::jazz, S::classical},
         "The most important cadence in jazz, the “two-five-one.” The minor supertonic (--ii--) "
         "prepares the dominant (--V--), whose tension resolves strongly to the tonic (--I--). "
         "Add a seventh to each chord for the classic jazz sound."},
        {"I-vi-ii-V",
         {S::jazz, S::romantic},
         "The turnaround behind countless jazz standards. From the tonic (--I--), the relative "
         "minor (--vi--) leads by falling fifths to the supertonic (--ii--) and the dominant "
         "(--V--), which pulls back to the top of the form."},
        {"I-VI-ii-V",
         {S::jazz, S::classical},
         "A jazzier turnaround. Starting on the tonic (--I--), the sixth degree becomes a major "
         "chord (--VI--): a secondary dominant that points firmly at the supertonic (--ii--). "
         "From there the dominant (--V--) leads home, completing a chain of falling fifths."},
        {"I-♭VII-IV-I",
         {S::rock, S::modal},
         "The Mixolydian rock cadence. From the tonic (--I--), the chord on the flattened seventh "
         "(--♭VII--), borrowed from the Mixolydian mode, steps down to the subdominant (--IV--) "
         "and resolves to the tonic (--I--) without ever touching the dominant."},
        {"I-♭VII-IV-V",
         {S::rock, S::pop},
         "A rock progression that mixes a borrowed chord with the classic dominant. The tonic "
         "(--I--) drops to the flattened seventh (--♭VII--) and falls to the subdominant "
         "(--IV--), and then the dominant (--V--) lifts everything back toward the start."},
        {"I-IV-♭VII-I",
         {S::rock, S::modal},
         "A modal rock cadence built from a chain of fourths. From the tonic (--I--) up to the "
         "subdominant (--IV--), then up another fourth to the flattened seventh (--♭VII--), which "
         "climbs a whole step straight back to the tonic (--I--)."},
        {"I-IV-♭VII-IV",
         {S::rock, S::modal},
         "A swaying Mixolydian vamp heard in many rock songs. The tonic (--I--), the subdominant "
         "(--IV--) and the flattened seventh (--♭VII--) lie a fourth apart, and falling back to "
         "the subdominant (--IV--) keeps the groove circling instead of resolving."},
        {"I-II-iii-V",
         {S::pop, S::modal},
         "A dreamy, uplifting progression with a Lydian flavour. From the tonic (--I--), the major "
         "chord on the second degree (--II--) brings in the raised fourth of the scale, the minor "
         "mediant (--iii--) adds a soft shade, and the dominant (--V--) leads back home."},
        {"i-iv-v-i",
         {S::classical, S::folk},
         "A plain, modal-sounding minor cadence drawn from the natural minor scale. The tonic "
         "(--i--) moves to the minor subdominant (--iv--) and the minor dominant (--v--), whose "
         "missing leading note gives an old, folk-like resolution back to the tonic (--i--)."},
        {"i-iv-V-i",
         {S::classical, S::dramatic},
         "The classic harmonic minor cadence. The tonic (--i--) and the minor subdominant (--iv--) "
         "set a dark mood, and the major dominant (--V--), with its raised seventh, resolves "
         "firmly "
         "and dramatically back to the tonic (--i--)."},
        {"i-v-VI-v",
         {S::folk, S::ballad},
         "A gentle, rocking minor progression. The tonic (--i--) moves to the minor dominant "
         "(--v--), rises to the submediant (--VI--) for a moment of warmth, and sinks back to the "
         "minor dominant (--v--), leaving the music suspended and thoughtful."},
        {"i-VI-v-iv",
         {S::rock, S::ballad},
         "A brooding progression for rock ballads. From the tonic (--i--), the submediant (--VI--) "
         "brings a brief lift, and the line then descends through the minor dominant (--v--) to "
         "the minor subdominant (--iv--), a falling motion full of longing."},
        {"i-v-iv-VI",
         {S::emotional, S::cinematic},
         "A sweeping, emotional progression often heard in film scores. The tonic (--i--) falls to "
         "the minor dominant (--v--) and the minor subdominant (--iv--), then opens onto the "
         "submediant (--VI--), a major chord that feels like light breaking through."},
        {"i-iv-VI-III",
         {S::melancholic, S::folk},
         "A melancholic progression with a folk soul. The tonic (--i--) and the minor subdominant "
         "(--iv--) set a sombre colour, and the submediant (--VI--) and the relative major "
         "(--III--) offer a bittersweet glimpse of brighter harmony."},
        {"i-III-VII-i",
         {S::modal, S::medieval},
         "An ancient-sounding progression that recalls modal and medieval music. From the tonic "
         "(--i--) it climbs to the relative major (--III--), moves to the subtonic (--VII--) a "
         "whole step below the tonic, and rises back to the tonic (--i--) without a leading note."},
        {"i-VI-III-V",
         {S::cinematic, S::emotional},
         "A cinematic minor progression with a strong pull home. After the tonic (--i--), the "
         "submediant (--VI--) and the relative major (--III--) broaden the sound, and the major "
         "dominant (--V--), with its raised leading note, sets up a dramatic return."},
        {"i-VI-III-VII",
         {S::rock, S::pop},
         "The minor counterpart of the four-chord progression, heard across rock and pop. The "
         "tonic (--i--) gives way to the submediant (--VI--), the relative major (--III--) and the "
         "subtonic (--VII--): three major chords that lift the mood before the loop falls back to "
         "minor."},
        {"i-VII-VI-V",
         {S::cinematic, S::dramatic},
         "The famous Andalusian cadence. The bass descends step-by-step creating dramatic tension "
         "before resolving."},
        {"i-VII-VI-VII",
         {S::rock, S::modal},
         "A rocking minor vamp. The tonic (--i--) drops a whole step to the subtonic (--VII--) and "
         "again to the submediant (--VI--), then climbs back through the subtonic (--VII--), a "
         "stepwise motion found in countless rock riffs."},
        {"i-III-VII-IV",
         {S::rock, S::emotional},
         "A bold minor progression with a Dorian twist. The tonic (--i--), the relative major "
         "(--III--) and the subtonic (--VII--) give a rock feel, and the major subdominant "
         "(--IV--), with its raised sixth, adds an unexpected brightness."},
        {"i-III-VI-VII",
         {S::rock, S::modal},
         "A powerful modal rock progression. The tonic (--i--) rises to the relative major "
         "(--III--), and the submediant (--VI--) and the subtonic (--VII--) climb step by step "
         "toward a triumphant return to the tonic."},
        {"i-v-iv-i",
         {S::folk, S::dramatic},
         "A dark, folk-flavoured cadence made of minor chords alone. The tonic (--i--) moves to "
         "the minor dominant (--v--) and steps down to the minor subdominant (--iv--), a plagal "
         "close that settles softly but gravely back on the tonic (--i--)."},
    };
    ChordProgressions::Catalogue catalogue;
    for (const auto& row : rows)
        catalogue.emplace(std::string(row.progression),
                          ChordProgression{std::string(row.progression),
                                           std::string(row.description), row.styles});
    assert(catalogue.size() == 32);
    return catalogue;
}

/// The numeral inside a token: the first run of the letters I, V and X in either case.
/// What comes before (accidentals) and after (a suffix) is not part of it.
std::string_view numeralIn(std::string_view token) {
    constexpr std::string_view letters = "IVXivx";
    const auto start = token.find_first_of(letters);
    if (start == std::string_view::npos) return {};
    const auto end = token.find_first_not_of(letters, start);
    return token.substr(start,
                        end == std::string_view::npos ? std::string_view::npos : end - start);
}

/// The chord of one numeral token in a key, with the numeral read from it as given.
std::optional<Chord> chordOf(std::string_view token, std::string_view numeral, Note key,
                             std::string_view mode) {
    const int degree = ChordProgressions::romanValue(numeral);
    // A token without a numeral names no degree; spelling it would step below the
    // key's own letter.
    if (degree < 1) return std::nullopt;
    const auto offset = ChordProgressions::scaleOffset(token, mode);
    const auto spelled = spelledNote(offset, degree, rawValue(key));
    if (spelled.empty()) return std::nullopt;
    const auto root = noteFromRawValue(spelled);
    assert(root && "every spelling row entry is a note");
    if (!root) return std::nullopt;
    return Chord{*root, ChordProgressions::isMajorNumeral(numeral) ? "major" : "minor", 0};
}

} // namespace

std::span<const MusicStyles, musicStylesCount> allMusicStyles() {
    return styles;
}

std::string_view rawValue(MusicStyles style) {
    return styleNames[static_cast<std::size_t>(style)];
}

std::optional<MusicStyles> musicStylesFromRawValue(std::string_view raw) {
    const auto found = std::find(styleNames.begin(), styleNames.end(), raw);
    if (found == styleNames.end()) return std::nullopt;
    return styles[static_cast<std::size_t>(found - styleNames.begin())];
}

nlohmann::ordered_json toJson(const ChordProgression& progression) {
    auto styleArray = nlohmann::ordered_json::array();
    for (const auto style : progression.styles)
        styleArray.push_back(rawValue(style));
    return {{"progression", progression.progression},
            {"description", progression.description},
            {"styles", std::move(styleArray)}};
}

tl::expected<ChordProgression, Error> chordProgressionFromJson(const nlohmann::json& json) {
    if (!json.is_object())
        return tl::unexpected(Error{"A chord progression must be a JSON object"});
    ChordProgression result;
    for (const auto& [key, into] : {std::pair{"progression", &result.progression},
                                    std::pair{"description", &result.description}}) {
        const auto found = json.find(key);
        if (found == json.end() || !found->is_string())
            return tl::unexpected(Error{std::string("Missing text value for key: ") + key});
        *into = found->get<std::string>();
    }
    const auto list = json.find("styles");
    if (list == json.end() || !list->is_array())
        return tl::unexpected(Error{"Missing array value for key: styles"});
    for (const auto& item : *list) {
        const auto style =
            item.is_string() ? musicStylesFromRawValue(item.get<std::string>()) : std::nullopt;
        if (!style) return tl::unexpected(Error{"Unknown music style: " + item.dump()});
        result.styles.push_back(*style);
    }
    return result;
}

namespace ChordProgressions {

const Catalogue& catalogue() {
    static const auto built = buildCatalogue();
    return built;
}

std::span<const std::string_view> displayOrder(std::string_view mode) {
    if (mode == "major") return majorOrder;
    if (mode == "minor") return minorOrder;
    return {};
}

std::vector<ChordProgression> all(std::string_view mode) {
    std::vector<ChordProgression> records;
    for (const auto numerals : displayOrder(mode)) {
        const auto* found = progression(numerals);
        assert(found && "every listed progression is in the catalogue");
        if (found) records.push_back(*found);
    }
    return records;
}

const ChordProgression* progression(std::string_view numerals) {
    const auto found = catalogue().find(numerals);
    return found == catalogue().end() ? nullptr : &found->second;
}

int romanValue(std::string_view numeral) {
    const auto upper = text::asciiUpper(numeral);
    int total = 0;
    int previous = 0;
    // From the last letter to the first: a letter smaller than the one after it subtracts.
    for (std::size_t end = upper.size(); end > 0;) {
        std::size_t start = end - 1;
        while (start > 0 && (static_cast<unsigned char>(upper[start]) & 0xC0) == 0x80)
            --start;
        const std::string_view letter(upper.data() + start, end - start);
        end = start;
        int value = 0;
        switch (letter.size() == 1 ? letter[0] : '\0') {
        case 'I':
            value = 1;
            break;
        case 'V':
            value = 5;
            break;
        case 'X':
            value = 10;
            break;
        case 'L':
            value = 50;
            break;
        case 'C':
            value = 100;
            break;
        case 'D':
            value = 500;
            break;
        case 'M':
            value = 1000;
            break;
        default:
            diagnostic(std::string("Invalid Roman numeral character: ").append(letter));
            return 0;
        }
        total += value < previous ? -value : value;
        previous = value;
    }
    return total;
}

bool isMajorNumeral(std::string_view numeral) {
    constexpr std::string_view upperLetters = "IVXLCDM";
    return std::all_of(numeral.begin(), numeral.end(),
                       [&](char c) { return upperLetters.find(c) != std::string_view::npos; });
}

int scaleOffset(std::string_view token, std::string_view mode) {
    constexpr std::array<int, 8> majorScale{0, 2, 4, 5, 7, 9, 11, 12};
    constexpr std::array<int, 8> minorScale{0, 2, 3, 5, 7, 8, 10, 12};
    constexpr std::array<std::string_view, 8> degrees{"I", "II", "III", "IV",
                                                      "V", "VI", "VII", "VIII"};
    const bool minor =
        std::equal(mode.begin(), mode.end(), std::string_view("minor").begin(),
                   std::string_view("minor").end(), [](char a, char b) {
                       return (a >= 'A' && a <= 'Z' ? static_cast<char>(a - 'A' + 'a') : a) == b;
                   });
    const auto& scale = minor ? minorScale : majorScale;

    auto rest = text::replaceAll(text::replaceAll(text::trimmed(token), "♭", "b"), "♯", "#");
    int accidentals = 0;
    std::size_t signs = 0;
    for (; signs < rest.size() && (rest[signs] == 'b' || rest[signs] == '#'); ++signs)
        accidentals += rest[signs] == '#' ? 1 : -1;
    const auto degree =
        std::find(degrees.begin(), degrees.end(), text::asciiUpper(rest.substr(signs)));
    if (degree == degrees.end()) return 0;
    return scale[static_cast<std::size_t>(degree - degrees.begin())] + accidentals;
}

std::vector<Chord> chords(Note key, std::string_view mode, std::string_view progression) {
    std::vector<Chord> result;
    for (const auto token : text::split(progression, '-'))
        if (auto chord = chordOf(token, numeralIn(token), key, mode))
            result.push_back(std::move(*chord));
    return result;
}

std::vector<std::string> chordNames(Note key, std::string_view mode, std::string_view progression) {
    std::vector<std::string> names;
    for (const auto& chord : chords(key, mode, progression))
        names.push_back(std::string(rawValue(chord.rootNote)) + " " + chord.chordType);
    return names;
}

std::string filledDescription(std::string_view progression, Note key, std::string_view mode) {
    const auto* entry = ChordProgressions::progression(progression);
    if (!entry) return {};
    const std::string_view description = entry->description;

    // The placeholders "--numeral--" in first-seen order, each once. Like a lazy
    // "--(.*?)--", a placeholder does not run across a line break.
    std::vector<std::string> numerals;
    for (std::size_t open = description.find("--"); open != std::string_view::npos;) {
        const auto close = description.find("--", open + 2);
        if (close == std::string_view::npos) break;
        const auto inner = description.substr(open + 2, close - open - 2);
        if (inner.find('\n') != std::string_view::npos) {
            open = description.find("--", open + 1);
            continue;
        }
        if (std::find(numerals.begin(), numerals.end(), inner) == numerals.end())
            numerals.emplace_back(inner);
        open = description.find("--", close + 2);
    }
    std::string joined;
    for (const auto& numeral : numerals)
        joined += (joined.empty() ? "" : "-") + numeral;
    const auto found = chords(key, mode, joined);

    std::string filled(description);
    for (std::size_t i = 0; i < std::min(numerals.size(), found.size()); ++i)
        filled =
            text::replaceAll(filled, "--" + numerals[i] + "--",
                             std::string(rawValue(found[i].rootNote)) + " " + found[i].chordType);
    return filled;
}

std::vector<Chord> diatonicChords(Note key, std::string_view mode) {
    const std::string_view numerals = mode == "minor" ? "i-III-iv-V-VI" : "I-IV-V-vi-ii-iii";
    std::vector<Chord> result;
    for (const auto token : text::split(numerals, '-'))
        if (auto chord = chordOf(token, token, key, mode)) result.push_back(std::move(*chord));
    return result;
}

} // namespace ChordProgressions

} // namespace fq::core
