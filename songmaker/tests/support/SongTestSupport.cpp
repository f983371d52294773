#include "SongTestSupport.h"

#include <fq/core/Diagnostics.h>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace fq::songmaker::testing {

namespace fs = std::filesystem;

FrtQulDocumentData sampleSong(std::string title) {
    FrtQulDocumentData data;
    data.title = std::move(title);
    SongSection verse;
    verse.title = "Verse";
    verse.sectionType = SectionType::verse;
    verse.chords = {{core::Note::Fs, "minor 7th", 0},
                    {core::Note::Bf, "major", -2},
                    {core::Note::C, "sus4", 1}};
    verse.isBassEnabled = false;
    verse.shouldAddFillAtEnd = false;
    SongSection chorus;
    chorus.title = "Chorus — ♯";
    chorus.sectionType = SectionType::chorus;
    chorus.chords = {{core::Note::G, "major", 0}};
    chorus.isDrumsEnabled = false;
    data.sections = {verse, chorus};
    data.key = {core::Note::Ef, "minor", 0};
    data.bpm = -7;
    data.sequence = core::arpeggioSequences().at(1);
    return data;
}

nlohmann::json comparable(const FrtQulDocumentData& data) {
    auto json = nlohmann::json::parse(toJson(data).dump());
    auto& sequence = json["sequence"];
    sequence.erase("id");
    for (auto* list : {&sequence["associatedBassPatterns"], &sequence["associatedDrumPatterns"]})
        for (auto& item : *list) {
            item.erase("id");
            for (auto& [key, value] : item.items())
                if (value.is_object()) value.erase("id");
        }
    return json;
}

} // namespace fq::songmaker::testing
