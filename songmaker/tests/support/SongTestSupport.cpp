// For the song maker's tests: the sample song and the folder fixture.
#include "SongTestSupport.h"

#include <algorithm>

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

documents::DocumentsDirectory SongFolderTest::location() const {
    return [folder = folder_.path()]() -> tl::expected<fs::path, Error> { return folder; };
}

fs::path SongFolderTest::song(const std::string& fileName, const std::string& title) {
    const auto file = documents() / fileName;
    writeBytes(file, *encodeSong(sampleSong(title)));
    return file;
}

std::vector<std::string> SongFolderTest::files() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(documents()))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace fq::songmaker::testing
