#include "ChordEngineOracle.h"

#include "fq/core/ChordEngine.h"
#include "fq/core/Spelling.h"

#include <algorithm>
#include <set>
#include <string>

namespace fq::core::oracle {
namespace {

using Row = std::vector<std::string>;

Row twoRounds(SpellingRow row) {
    const auto& entries = spellingRow(row);
    return Row(entries.begin(), entries.begin() + 24);
}

int indexIn(const Row& row, std::string_view name) {
    const auto found = std::find(row.begin(), row.end(), name);
    return found == row.end() ? -1 : static_cast<int>(found - row.begin());
}

bool contains(const std::vector<std::string>& list, const std::string& text) {
    return std::find(list.begin(), list.end(), text) != list.end();
}

struct Voicing {
    std::vector<std::string> notes; // index 0 is the highest string
    std::vector<int> frets;
};

std::set<std::string> soundingNotes(const Voicing& v) {
    std::set<std::string> notes;
    for (std::size_t s = 0; s < 6; ++s)
        if (v.frets[s] != -1) notes.insert(v.notes[s]);
    return notes;
}

int lowestSoundingString(const Voicing& v) {
    for (int s = 5; s >= 0; --s)
        if (v.frets[static_cast<std::size_t>(s)] != -1) return s;
    return -1;
}

void mute(Voicing& v, std::size_t s) {
    v.frets[s] = -1;
    v.notes[s] = "-1";
}

std::string dedupeKey(const Voicing& v) {
    std::string key;
    for (std::size_t s = 0; s < 6; ++s)
        key += (s ? "," : "") + v.notes[s];
    key += "|";
    for (std::size_t s = 0; s < 6; ++s)
        key += (s ? "," : "") + std::to_string(v.frets[s]);
    return key;
}

std::vector<ChordPosition> lowestStringFirst(const std::vector<std::vector<int>>& frets,
                                             const std::vector<std::vector<int>>& fingers) {
    std::vector<ChordPosition> result;
    for (std::size_t i = 0; i < frets.size(); ++i)
        result.push_back({std::vector<int>(frets[i].rbegin(), frets[i].rend()), fingers[i]});
    return result;
}

} // namespace

std::vector<ChordPosition> chordPositions(std::string_view root, std::span<const int> intervals,
                                          int limit, std::span<const std::string_view> tuning) {
    const Row regular = twoRounds(SpellingRow::regular);
    const Row sharp = twoRounds(SpellingRow::sharp);
    const Row flat = twoRounds(SpellingRow::flat);
    const Row doubleSharp = twoRounds(SpellingRow::doubleSharp);
    const Row doubleFlat = twoRounds(SpellingRow::doubleFlat);

    // 2. the root's position: Regular, Flat, Sharp, Double sharp, Double flat
    int r = -1;
    for (const Row* row : {&regular, &flat, &sharp, &doubleSharp, &doubleFlat})
        if (r < 0) r = indexIn(*row, root);
    if (r < 0) return {};

    // 3. chord notes from the Regular row
    std::vector<std::string> chordNotes;
    std::vector<std::string> fifths;
    for (int interval : intervals) {
        const int offset = interval <= 12 ? interval : interval % 12;
        const int index = r + offset;
        if (index >= 24 || index < 0) continue; // "Out of Bounds"
        chordNotes.push_back(regular[static_cast<std::size_t>(index)]);
        if (((interval % 12) + 12) % 12 == 7) fifths.push_back(chordNotes.back());
    }
    const std::string bassNote = chordNotes.empty() ? std::string() : chordNotes.front();

    // 4. required notes
    std::vector<std::string> required = chordNotes;
    if (intervals.size() >= 4 && !fifths.empty())
        std::erase_if(required, [&](const std::string& note) { return contains(fifths, note); });

    // 5. string 0 is the highest
    std::vector<std::string> strings(tuning.rbegin(), tuning.rend());

    std::vector<std::vector<int>> firstFrets, secondFrets, firstFingers, secondFingers;
    for (int span : {2, 3, 4}) {
        const int last = span == 2 ? 0 : 12;
        for (int start = 0; start <= last; ++start) {
            // 7, 8. candidates per string, the muted one first
            std::vector<std::vector<int>> candidateFrets(6);
            std::vector<std::vector<std::string>> candidateNotes(6);
            for (std::size_t s = 0; s < 6; ++s) {
                int o = -1;
                for (const Row* row : {&regular, &sharp, &flat, &doubleSharp, &doubleFlat})
                    if (o < 0) o = indexIn(*row, strings[s]);
                if (o < 0) return {};
                std::vector<int> frets{-1};
                std::vector<std::string> notes{"-1"};
                for (int j = 0; j < span; ++j) {
                    const int f = start + j;
                    const std::string note =
                        o + f < 24 ? regular[static_cast<std::size_t>(o + f)] : std::string("-");
                    if (contains(chordNotes, note)) {
                        frets.push_back(f);
                        notes.push_back(note);
                    } else if (contains(chordNotes, strings[s])) {
                        frets.push_back(0);
                        notes.push_back(strings[s]);
                    }
                }
                for (std::size_t i = 0; i < frets.size(); ++i) {
                    if (std::find(frets.begin(), frets.begin() + static_cast<long>(i), frets[i]) ==
                        frets.begin() + static_cast<long>(i)) {
                        candidateFrets[s].push_back(frets[i]);
                        candidateNotes[s].push_back(notes[i]);
                    }
                }
            }

            // 9, 10. the product, string 5 fastest, each combination expanded by muting
            std::vector<Voicing> voicings;
            std::set<std::string> keys;
            const auto emit = [&](const Voicing& v) {
                if (keys.insert(dedupeKey(v)).second) voicings.push_back(v);
            };
            std::vector<std::size_t> pick(6, 0);
            for (;;) {
                Voicing combination;
                for (std::size_t s = 0; s < 6; ++s) {
                    combination.notes.push_back(candidateNotes[s][pick[s]]);
                    combination.frets.push_back(candidateFrets[s][pick[s]]);
                }
                const int lowest = lowestSoundingString(combination);
                if (lowest >= 0) {
                    const std::string bass = combination.notes[static_cast<std::size_t>(lowest)];
                    const auto notes = soundingNotes(combination);
                    emit(combination);
                    Voicing muted = combination;
                    for (int i = 5; i >= 0; --i) {
                        mute(muted, static_cast<std::size_t>(i));
                        const int now = lowestSoundingString(muted);
                        if (now < 0) break;
                        if (muted.notes[static_cast<std::size_t>(now)] == bass &&
                            soundingNotes(muted) == notes)
                            emit(muted);
                    }
                }
                int s = 5;
                while (s >= 0 && ++pick[static_cast<std::size_t>(s)] ==
                                     candidateFrets[static_cast<std::size_t>(s)].size()) {
                    pick[static_cast<std::size_t>(s)] = 0;
                    --s;
                }
                if (s < 0) break;
            }

            // 11. bass, notes, fingers, rank
            for (Voicing v : voicings) {
                if (v.notes[5] == bassNote) {
                } else if (v.notes[4] == bassNote) {
                    mute(v, 5);
                } else if (v.notes[3] == bassNote) {
                    for (std::size_t s : {5, 4})
                        mute(v, s);
                } else if (v.notes[2] == bassNote) {
                    for (std::size_t s : {5, 4, 3})
                        mute(v, s);
                } else if (v.notes[1] == bassNote) {
                    for (std::size_t s : {5, 4, 3, 2})
                        mute(v, s);
                } else {
                    continue;
                }
                const auto sounding = soundingNotes(v);
                if (!std::all_of(required.begin(), required.end(),
                                 [&](const std::string& note) { return sounding.count(note) > 0; }))
                    continue;
                const std::vector<int> lowFirst(v.frets.rbegin(), v.frets.rend());
                const auto fingers = ChordEngine::fingering(lowFirst);
                bool fingered = true;
                for (std::size_t s = 0; s < 6 && !fingers.empty(); ++s)
                    if (lowFirst[s] > 0 && fingers[s] == 0) fingered = false;
                if (!fingered) continue;
                const bool secondClass = v.frets[0] == -1 || v.frets[1] == -1 || v.frets[2] == -1 ||
                                         v.frets[3] == -1 || (v.frets[4] == -1 && v.frets[5] == 0);
                auto& frets = secondClass ? secondFrets : firstFrets;
                auto& fingerLists = secondClass ? secondFingers : firstFingers;
                if (std::find(frets.begin(), frets.end(), v.frets) == frets.end()) {
                    frets.push_back(v.frets);
                    fingerLists.push_back(fingers);
                }
                if (!secondClass && limit != -1 && static_cast<int>(firstFrets.size()) >= limit)
                    return lowestStringFirst(firstFrets, firstFingers);
            }
        }
    }
    auto result = lowestStringFirst(firstFrets, firstFingers);
    const auto second = lowestStringFirst(secondFrets, secondFingers);
    result.insert(result.end(), second.begin(), second.end());
    return result;
}

} // namespace fq::core::oracle
