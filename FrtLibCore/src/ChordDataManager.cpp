#include "fq/core/ChordDataManager.h"

#include "fq/core/Diagnostics.h"
#include "fq/core/Spelling.h"
#include "fq/core/Text.h"
#include "fq/resources/fq_FrtLibCore.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdio>
#include <optional>

namespace fq::core {
namespace {

constexpr std::array<std::string_view, 17> rootNotes{
    "C", "D", "E", "F", "G", "A", "B", "C♯", "D♯", "F♯", "G♯", "A♯", "D♭", "E♭", "G♭", "A♭", "B♭"};

struct PriorityRow {
    Note root;
    std::string_view chordType;
    std::vector<FretList> frets;
};

constexpr int x = -1;

std::vector<PriorityRow> priorityTable() {
    using N = Note;
    return {
        {N::C,
         "major",
         {{x, 3, 2, 0, 1, 0}, {x, 3, 2, 0, 1, 3}, {x, 3, 5, 5, 5, 3}, {8, 10, 10, 9, 8, 8}}},
        {N::C, "minor", {{x, 3, 5, 5, 4, 3}, {8, 10, 10, 8, 8, 8}}},
        {N::C, "9", {{x, 3, 2, 3, 3, 0}}},
        {N::D,
         "major",
         {{x, x, 0, 2, 3, 2}, {x, 5, 4, 2, 3, 2}, {x, 5, 7, 7, 7, 5}, {10, 12, 12, 11, 10, 10}}},
        {N::D, "minor", {{x, x, 0, 2, 3, 1}, {x, 5, 7, 7, 6, 5}}},
        {N::E, "major", {{0, 2, 2, 1, 0, 0}}},
        {N::E, "minor", {{0, 2, 2, 0, 0, 0}}},
        {N::F,
         "major",
         {{1, 3, 3, 2, 1, 1}, {x, x, 3, 2, 1, 1}, {x, 8, 7, 5, 6, 5}, {x, 8, 10, 10, 10, 8}}},
        {N::F, "major 7th", {{x, x, 3, 2, 1, 0}, {1, 3, 2, 2, 1, 1}, {x, x, 3, 5, 5, 5}}},
        {N::F, "minor major 7th", {{1, 3, 2, 1, 1, 1}}},
        {N::G,
         "major",
         {{3, 2, 0, 0, 0, 3}, {3, 2, 0, 0, 3, 3}, {3, 5, 5, 4, 3, 3}, {x, 10, 12, 12, 12, 10}}},
        {N::G, "minor", {{x, x, 5, 3, 3, 3}}},
        {N::G, "dominant 7th", {{3, 2, 0, 0, 0, 1}}},
        {N::A, "major", {{x, 0, 2, 2, 2, 0}, {5, 7, 7, 6, 5, 5}}},
        {N::B, "minor", {{x, 2, 4, 4, 3, 2}, {7, 9, 9, 7, 7, 7}}},
        {N::Ds,
         "major",
         {{x, x, 1, 3, 4, 3}, {x, 6, 5, 0, 4, 6}, {x, 6, 8, 8, 8, 6}, {11, 13, 13, 12, 11, 11}}},
        {N::As, "major", {{x, 1, 3, 3, 3, 1}, {6, 8, 8, 7, 6, 6}, {x, 13, 12, 10, 11, 10}}},
        {N::As, "dominant 7th", {{x, 1, 3, 1, 3, 1}}},
        {N::As, "major 7th", {{x, 1, 3, 2, 3, 1}, {6, 8, 7, 7, 6, 6}}},
        {N::C, "5", {{x, 3, 5, 5, x, x}}},
        {N::Cs, "5", {{x, 4, 6, 6, x, x}}},
        {N::D, "5", {{x, 5, 7, 7, x, x}}},
        {N::Ds, "5", {{x, 6, 8, 8, x, x}}},
        {N::E, "5", {{0, 2, 2, 4, 0, 0}, {0, 2, 2, x, x, x}}},
        {N::F, "5", {{1, 3, 3, x, x, x}}},
        {N::Fs, "5", {{2, 4, 4, x, x, x}}},
        {N::G, "5", {{3, 5, 5, x, x, x}}},
        {N::Gs, "5", {{4, 6, 6, x, x, x}}},
        {N::A, "5", {{x, 0, 2, 2, x, x}}},
        {N::As, "5", {{x, 1, 3, 3, x, x}}},
        {N::B, "5", {{x, 2, 4, 4, x, x}}},
    };
}

/// The degrees of a formula for the dictionary: signs deleted, pieces that are
/// no number dropped.
std::vector<int> dictionaryDegrees(std::string_view formula) {
    const auto plain = text::replaceAll(text::replaceAll(formula, "♯", ""), "♭", "");
    std::vector<int> degrees;
    for (auto piece : text::split(plain, '-')) {
        if (!piece.empty() && piece.front() == '+') piece.remove_prefix(1);
        int value = 0;
        const auto [end, error] = std::from_chars(piece.data(), piece.data() + piece.size(), value);
        if (error == std::errc{} && end == piece.data() + piece.size() && !piece.empty())
            degrees.push_back(value);
    }
    return degrees;
}

/// Spells an inversion's bass for the dictionary. Unlike `spelledNote` it never
/// gives up: an unknown root counts as C, and a missing letter falls back to the
/// plain row.
std::string dictionaryBass(int semitones, int degree, std::string_view root) {
    int rootPosition = 0;
    bool found = false;
    for (auto row : {SpellingRow::regular, SpellingRow::flat, SpellingRow::sharp}) {
        for (int position = 0; position < 12 && !found; ++position) {
            if (spellingRow(row)[static_cast<std::size_t>(position)] == root) {
                rootPosition = position;
                found = true;
            }
        }
    }
    const int position = rootPosition + semitones;
    if (position < 0 || position >= static_cast<int>(spellingRowLength)) return {};
    const auto plain = spellingRow(SpellingRow::regular)[static_cast<std::size_t>(position)];
    const auto& letters = naturalLetters();
    const auto letter = text::withoutSigns(root);
    const auto letterAt = std::find(letters.begin(), letters.end(), letter);
    const auto target = (letterAt - letters.begin()) + degree - 1;
    if (letterAt == letters.end() || target < 0 || target >= std::ssize(letters))
        return std::string(plain);
    for (auto row : spellingRowOrder) {
        const auto entry = spellingRow(row)[static_cast<std::size_t>(position)];
        if (entry.starts_with(letters[static_cast<std::size_t>(target)])) return std::string(entry);
    }
    return std::string(plain);
}

std::string withSign(std::string_view text, std::string_view sign, std::string_view ascii) {
    return text::replaceAll(text, sign, ascii);
}

int commonTypeRank(std::string_view type) {
    constexpr std::array<std::string_view, 5> common{"major", "minor", "dominant 7th", "major 7th",
                                                     "minor 7th"};
    const auto found = std::find(common.begin(), common.end(), type);
    return static_cast<int>(found - common.begin());
}

} // namespace

tl::expected<std::vector<ChordData>, Error> parseChordCatalogue(std::string_view json) {
    const auto document = nlohmann::ordered_json::parse(json, nullptr, false);
    if (document.is_discarded()) return tl::unexpected(Error{"the document is not valid JSON"});
    const auto chords = document.find("chords");
    if (!document.is_object() || chords == document.end() || !chords->is_object())
        return tl::unexpected(Error{"keyNotFound: chords"});
    std::vector<ChordData> catalogue;
    for (const auto& entry : chords->items()) {
        const auto& key = entry.key();
        const auto& definition = entry.value();
        const auto field = [&](const char* name) -> const nlohmann::ordered_json* {
            const auto found = definition.find(name);
            return found == definition.end() ? nullptr : &*found;
        };
        const auto* shortTitle = field("short");
        const auto* otherNames = field("other_names");
        const auto* notes = field("notes");
        const auto* formula = field("formula");
        const auto* prefixSpace = field("prefix_space");
        if (!shortTitle || !shortTitle->is_string() || !otherNames || !otherNames->is_string() ||
            !notes || !notes->is_array() || !formula || !formula->is_string() || !prefixSpace ||
            !prefixSpace->is_number_integer())
            return tl::unexpected(Error{"typeMismatch or keyNotFound in chords." + key});
        ChordData data;
        data.title = key;
        data.shortTitle = shortTitle->get<std::string>();
        data.includesSpace = prefixSpace->get<std::int64_t>() == 1;
        data.formula = formula->get<std::string>();
        for (const auto& note : *notes) {
            if (!note.is_number_integer())
                return tl::unexpected(Error{"typeMismatch in chords." + key + ".notes"});
            data.notes.push_back(note.get<int>());
        }
        const auto& others = otherNames->get_ref<const std::string&>();
        if (!others.empty())
            for (auto piece : text::split(others, ','))
                data.otherNames.emplace_back(piece);
        catalogue.push_back(std::move(data));
    }
    return catalogue;
}

const ChordDataManager& ChordDataManager::shared() {
    static const ChordDataManager instance;
    return instance;
}

ChordDataManager::ChordDataManager() {
    if (auto parsed = parseChordCatalogue(resources::chords_json())) {
        catalogue_ = std::move(*parsed);
    } else {
        diagnostic("Failed to parse JSON: " + parsed.error().message);
    }
    indexByType_.reserve(catalogue_.size());
    for (std::size_t i = 0; i < catalogue_.size(); ++i)
        indexByType_.emplace(catalogue_[i].title, static_cast<std::uint32_t>(i));
    buildDictionary();
    buildPriorityList();
}

const ChordData* ChordDataManager::chordData(std::string_view chordType) const {
    const auto found = indexByType_.find(chordType);
    return found == indexByType_.end() ? nullptr : &catalogue_[found->second];
}

const Chord* ChordDataManager::chord(std::string_view alias) const {
    const auto found = aliasIndex_.find(alias);
    return found == aliasIndex_.end() ? nullptr : &registered_[found->second];
}

std::span<const std::string_view> ChordDataManager::allRootNotes() {
    return rootNotes;
}

void ChordDataManager::buildDictionary() {
    aliasIndex_.reserve(32768);
    std::vector<PitchClasses> pitches;
    for (const auto root : rootNotes) {
        const auto note = noteFromRawValue(root);
        const auto rootPosition = semitoneIndex(root).value_or(0);
        for (const auto& data : catalogue_) {
            if (data.notes.empty() || !note) continue;
            std::uint16_t set = 0;
            for (int interval : data.notes)
                set |= static_cast<std::uint16_t>(1u << ((rootPosition + interval) % 12));
            const auto degrees = dictionaryDegrees(data.formula);
            for (std::size_t variant = 0; variant < data.notes.size(); ++variant) {
                if (variant > 0 && variant >= degrees.size()) break;
                const auto index = static_cast<std::uint32_t>(registered_.size());
                registered_.push_back(Chord{*note, data.title, static_cast<int>(variant)});
                aliasesPerChord_.push_back(0);
                pitches.push_back({set, (rootPosition + data.notes[variant]) % 12});
                const auto bass = variant == 0
                                      ? std::string()
                                      : dictionaryBass(data.notes[variant], degrees[variant], root);
                registerAliases(root, data, index, bass);
            }
        }
    }
    for (std::size_t i = 0; i < registered_.size(); ++i) {
        if (aliasesPerChord_[i] == 0) continue;
        dictionaryChords_.push_back(registered_[i]);
        dictionaryPitches_.push_back(pitches[i]);
    }
}

void ChordDataManager::registerAliases(std::string_view root, const ChordData& data,
                                       std::uint32_t chordIndex, std::string_view bass) {
    std::string slash;
    if (!bass.empty()) slash.append("/").append(bass);
    const auto store = [&](std::string key) {
        auto [entry, inserted] = aliasIndex_.try_emplace(std::move(key), chordIndex);
        if (!inserted) {
            --aliasesPerChord_[entry->second];
            entry->second = chordIndex;
        }
        ++aliasesPerChord_[chordIndex];
    };
    const auto join = [](std::string_view a, std::string_view b, std::string_view c) {
        std::string key;
        key.reserve(a.size() + b.size() + c.size());
        return key.append(a).append(b).append(c);
    };
    store(join(root, data.title, slash));
    store(join(root, data.shortTitle, slash));
    for (const auto& other : data.otherNames)
        store(join(root, other, slash));

    // People type "Bb7" and "C#m": the short forms get ASCII twins.
    for (const auto& [sign, ascii] :
         {std::pair<std::string_view, std::string_view>{"♭", "b"}, {"♯", "#"}}) {
        if (!root.ends_with(sign)) continue;
        const auto asciiRoot = withSign(root, sign, ascii);
        const auto asciiSlash = withSign(slash, sign, ascii);
        store(join(asciiRoot, data.shortTitle, asciiSlash));
        for (const auto& other : data.otherNames)
            store(join(asciiRoot, other, asciiSlash));
    }
}

void ChordDataManager::buildPriorityList() {
    for (auto& row : priorityTable()) {
        priorityList_[Chord{row.root, std::string(row.chordType), 0}] = row.frets;
        for (const auto equal : equalSpellings(row.root))
            priorityList_[Chord{equal, std::string(row.chordType), 0}] = row.frets;
    }
}

std::vector<FretList> ChordDataManager::priorityPositions(const Chord& chord) const {
    const auto found = priorityList_.find(chord);
    return found == priorityList_.end() ? std::vector<FretList>{} : found->second;
}

std::vector<std::string> ChordDataManager::notes(Note root, std::string_view chordType) const {
    const auto* data = chordData(chordType);
    if (!data) return {};
    const auto tokens = text::split(data->formula, '-');
    std::vector<std::string> spelled;
    spelled.reserve(data->notes.size());
    for (std::size_t i = 0; i < data->notes.size(); ++i) {
        const int degree = i < tokens.size() ? formulaDegree(tokens[i]) : 0;
        spelled.push_back(spelledNote(data->notes[i], degree, rawValue(root)));
    }
    return spelled;
}

std::vector<std::string> ChordDataManager::intervalNames(std::string_view chordType,
                                                         int variant) const {
    const auto* data = chordData(chordType);
    if (!data) return {};
    std::vector<std::string> names;
    for (const auto token : text::split(data->formula, '-'))
        names.emplace_back(intervalName(token));
    const auto count = static_cast<int>(names.size());
    const auto shift = ((variant % count) + count) % count;
    std::rotate(names.begin(), names.begin() + shift, names.end());
    return names;
}

std::vector<std::string> ChordDataManager::rootedIntervalNames(std::string_view chordType,
                                                               int variant) const {
    auto names = intervalNames(chordType, variant);
    for (auto& name : names)
        name = text::replaceAll(name, "Unison", "Root");
    return names;
}

std::string ChordDataManager::bass(Note root, const ChordData& data, int variant) const {
    if (variant <= 0 || variant >= std::ssize(data.notes)) return {};
    return notes(root, data.title)[static_cast<std::size_t>(variant)];
}

std::string ChordDataManager::name(Note root, std::string_view chordType, int variant,
                                   std::size_t maxLength) const {
    const auto* data = chordData(chordType);
    if (!data) return {};
    std::string result(rawValue(root));
    if (data->includesSpace) result += ' ';
    result += text::characterCount(data->title) <= maxLength ? data->title : data->shortTitle;
    if (const auto b = bass(root, *data, variant); !b.empty()) result += "/" + b;
    return result;
}

std::string ChordDataManager::shortestName(Note root, std::string_view chordType,
                                           int variant) const {
    const auto* data = chordData(chordType);
    if (!data) return {};
    const std::string rootText(rawValue(root));
    std::vector<std::string> candidates{rootText + (data->includesSpace ? " " : "") + data->title,
                                        rootText + data->title, rootText + data->shortTitle};
    for (const auto& other : data->otherNames)
        candidates.push_back(rootText + other);
    const auto shortest = std::min_element(
        candidates.begin(), candidates.end(), [](const std::string& a, const std::string& b) {
            return text::characterCount(a) < text::characterCount(b);
        });
    std::string result = *shortest;
    if (const auto b = bass(root, *data, variant); !b.empty()) result += "/" + b;
    return result;
}

std::vector<std::string> ChordDataManager::aliases(Note root, std::string_view chordType,
                                                   int variant) const {
    const auto* data = chordData(chordType);
    if (!data) return {};
    const std::string rootText(rawValue(root));
    std::vector<std::string> rootForms{rootText};
    if (rootText.ends_with("♭")) rootForms.push_back(withSign(rootText, "♭", "b"));
    if (rootText.ends_with("♯")) rootForms.push_back(withSign(rootText, "♯", "#"));

    std::vector<std::string> suffixes;
    const auto addSuffix = [&](const std::string& suffix) {
        if (!suffix.empty() &&
            std::find(suffixes.begin(), suffixes.end(), suffix) == suffixes.end())
            suffixes.push_back(suffix);
    };
    addSuffix(data->title);
    addSuffix(data->shortTitle);
    addSuffix((data->includesSpace ? " " : "") + data->title);
    for (const auto& other : data->otherNames)
        addSuffix(other);

    const auto bassNote = bass(root, *data, variant);
    std::vector<std::string> result;
    for (const auto& rootForm : rootForms) {
        std::string slash = bassNote.empty() ? std::string() : "/" + bassNote;
        if (rootForm.ends_with('b')) slash = withSign(slash, "♭", "b");
        if (rootForm.ends_with('#')) slash = withSign(slash, "♯", "#");
        for (const auto& suffix : suffixes) {
            auto alias = rootForm + suffix + slash;
            if (std::find(result.begin(), result.end(), alias) == result.end())
                result.push_back(std::move(alias));
        }
    }
    return result;
}

std::vector<Chord> ChordDataManager::chordsMatching(std::string_view notesText) const {
    const auto tokens = text::split(notesText, ',');
    const auto bass = pitchOfTypedNote(tokens.front());
    if (!bass) return {};
    std::uint16_t wanted = 0;
    for (const auto token : tokens)
        if (const auto pitch = pitchOfTypedNote(token))
            wanted |= static_cast<std::uint16_t>(1u << *pitch);
    if (static_cast<std::size_t>(std::popcount(wanted)) < tokens.size()) return {};

    std::vector<Chord> result;
    for (std::size_t i = 0; i < dictionaryChords_.size(); ++i)
        if (dictionaryPitches_[i].set == wanted && dictionaryPitches_[i].bass == *bass)
            result.push_back(dictionaryChords_[i]);
    return result;
}

std::vector<Chord> ChordDataManager::similarChords(std::string_view notesText) const {
    std::uint16_t wanted = 0;
    for (const auto token : text::split(notesText, ','))
        if (const auto pitch = pitchOfTypedNote(token))
            wanted |= static_cast<std::uint16_t>(1u << *pitch);
    const int wantedCount = std::popcount(wanted);
    if (wantedCount < 2) return {};

    struct Ranked {
        int score;
        int typeRank;
        const Chord* chord;
    };
    std::vector<Ranked> ranked;
    for (std::size_t i = 0; i < dictionaryChords_.size(); ++i) {
        const auto& chord = dictionaryChords_[i];
        if (chord.variant != 0) continue;
        const auto set = dictionaryPitches_[i].set;
        const int difference = std::abs(std::popcount(set) - wantedCount);
        std::optional<int> score;
        if ((set & wanted) == wanted)
            score = difference; // superset, or equal at 0
        else if ((set & wanted) == set)
            score = 100 + difference;
        if (score) ranked.push_back({*score, commonTypeRank(chord.chordType), &chord});
    }
    std::stable_sort(ranked.begin(), ranked.end(), [](const Ranked& a, const Ranked& b) {
        if (a.score != b.score) return a.score < b.score;
        if (a.typeRank != b.typeRank) return a.typeRank < b.typeRank;
        return a.chord->chordType < b.chord->chordType;
    });
    std::vector<Chord> result;
    result.reserve(ranked.size());
    for (const auto& entry : ranked)
        result.push_back(*entry.chord);
    return result;
}

} // namespace fq::core
