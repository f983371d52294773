#pragma once

#include "fq/documents/DocumentsFolder.h"
#include "fq/songmaker/JamSequencer.h"
#include "fq/songmaker/SongDocument.h"

#include <fq/core/AccompanimentPatterns.h>
#include <fq/core/Chord.h>
#include <fq/documents/DurableFile.h>
#include <fq/personal/SharedStore.h>

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace fq::songmaker {

using documents::defaultDocumentsDirectory;
using documents::DocumentsChangeObserver;
using documents::DocumentsDirectory;
using documents::immediateContext;
using documents::MainContext;

enum class KeySignatureQuality { major, minor };

namespace config {
inline constexpr std::string_view keySignatureNote =
    "Key signature set here will be used when adding new chords. Existing chords will not be "
    "transposed.";
inline constexpr std::string_view deleteChordQuestion =
    "Are you sure you want to delete this chord?";
inline constexpr std::string_view duplicateSectionHint = "Creates a copy after this section";
inline constexpr std::string_view deleteSectionHint = "Removes this section";
} // namespace config

/// "Are you sure you really want to delete 'Verse'".
std::string deleteSectionQuestion(std::string_view title);

/// The notes the key signature sheet offers.
std::vector<core::Note> naturalNotes();
std::vector<core::Note> sharpNotes();
std::vector<core::Note> flatNotes();

/// The chords of all sections in section order, whatever the instrument flags say.
std::vector<core::Chord> flatChordList(const std::vector<SongSection>& sections);

/// The song editor's state and its editing steps. Every change to the sections, a
/// pattern, the key or the tempo hands the result to the jam sequencer. Main context only.
class SongEditorModel {
public:
    struct Services {
        JamSequencer* sequencer = nullptr; ///< required
        /// Holds "isSequencerOn"; without one the sequencer counts as stopped.
        std::shared_ptr<personal::SharedStore> store;
        DocumentsDirectory documents = defaultDocumentsDirectory;
        DocumentsChangeObserver* observer = nullptr;
        MainContext mainContext = immediateContext();
    };

    /// Opens the song at `url`, or a new one with the single section "Intro". A song that
    /// cannot be read is told ("Error loading document: ") and the editor starts from
    /// the defaults; `loadFailed` says so.
    SongEditorModel(std::optional<std::filesystem::path> url, Services services);

    const std::vector<SongSection>& sections() const { return sections_; }
    bool isNew() const { return isNew_; }
    bool loadFailed() const { return loadFailed_; }
    const std::optional<std::filesystem::path>& documentURL() const { return documentURL_; }
    const std::optional<SelectedChordInfo>& selectedChordInfo() const { return selectedChordInfo_; }
    const std::optional<core::Uuid>& selectedSectionID() const { return selectedSectionID_; }
    const core::Chord& currentKeySignature() const { return currentKeySignature_; }
    const core::ArpeggioSequence& currentSequence() const { return currentSequence_; }
    const core::BassPattern& currentBassPattern() const { return currentBassPattern_; }
    const core::DrumPattern& currentDrumPattern() const { return currentDrumPattern_; }
    std::int64_t bpm() const { return bpm_; }
    int chordIndex() const { return chordIndex_; }
    /// The instrument flags of the section that holds the chord at `chordIndex`.
    bool isGuitarEnabled() const { return isGuitarEnabled_; }
    bool isBassEnabled() const { return isBassEnabled_; }
    bool isDrumsEnabled() const { return isDrumsEnabled_; }
    bool wasLongPressed() const { return wasLongPressed_; }

    std::string trackTitle;
    std::string lastValidTitle;

    /// The flat index of a chord, or none with "Invalid section or chord index" told.
    std::optional<int> flatIndex(int sectionIndex, int chordIndex) const;

    void tapChord(int sectionIndex, int chordIndex);
    void longPress() { wasLongPressed_ = true; }

    /// The title is the type's display word unless a custom title is given.
    void addSection(SectionType type, std::string_view customTitle = {});
    void duplicateSection(const core::Uuid& id);
    void deleteSection(const core::Uuid& id);
    /// Puts the source section where the target is.
    void moveSection(const core::Uuid& source, const core::Uuid& target);

    void selectSection(const core::Uuid& id) { selectedSectionID_ = id; }
    void selectChord(const SelectedChordInfo& info);
    /// Adds to the end of the selected section's chords; false without a selected section.
    bool addChord(const core::Chord& chord);
    /// Removes the selected chord; false when none is selected or it is gone.
    bool deleteChord();

    /// Only what the add-chord sheet suggests changes; chords already placed stay.
    void setKeySignature(core::Note root, KeySignatureQuality quality);
    void setTempo(std::int64_t bpm);
    void setSequence(core::ArpeggioSequence sequence);
    void setBassPattern(core::BassPattern pattern);
    void setDrumPattern(core::DrumPattern pattern);

    /// Writes the song to its file (the first save names it after the title) and tells
    /// the observer. Failures are told ("Error saving document: ") and the editor stays.
    bool save();
    /// The first save of a new song to a file of the caller's choosing; an existing file
    /// there is never replaced (the save fails instead).
    bool saveAs(const std::filesystem::path& target);

    void refreshSequencer();

private:
    bool isSequencerOn() const;
    bool write(const std::filesystem::path& target, documents::ExistingFile existing);

    Services services_;
    std::vector<SongSection> sections_;
    bool isNew_ = true;
    bool loadFailed_ = false;
    std::optional<std::filesystem::path> documentURL_;
    std::optional<SelectedChordInfo> selectedChordInfo_;
    std::optional<core::Uuid> selectedSectionID_;
    core::Chord currentKeySignature_{core::Note::D, "major", 0};
    core::ArpeggioSequence currentSequence_;
    core::BassPattern currentBassPattern_;
    core::DrumPattern currentDrumPattern_;
    std::int64_t bpm_ = 120;
    bool isGuitarEnabled_ = true;
    bool isBassEnabled_ = true;
    bool isDrumsEnabled_ = true;
    int chordIndex_ = 0;
    int previousChordIndex_ = 0;
    int subdivisionPosition_ = 0;
    bool wasLongPressed_ = false;
    bool shouldSeekToLongPressedPosition_ = false;
    /// The chord at each flat index, rebuilt with every refresh.
    std::map<int, core::Chord> noteDictionaries_;
};

} // namespace fq::songmaker
