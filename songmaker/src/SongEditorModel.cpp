// The song editor: sections, chords, the key, the patterns, and saving.
#include "fq/songmaker/SongEditorModel.h"

#include <fq/core/ChordDataManager.h>
#include <fq/core/Diagnostics.h>
#include <fq/core/Text.h>
#include <fq/documents/DurableFile.h>
#include <fq/personal/PreferenceKeys.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <random>
#include <set>

namespace fq::songmaker {
namespace {

namespace fs = std::filesystem;
using core::Note;

core::ArpeggioSequence openingSequence() {
    auto sequences = core::arpeggioSequences();
    if (sequences.empty()) return {};
    static thread_local std::mt19937 generator{std::random_device{}()};
    std::uniform_int_distribution<std::size_t> pick(0,
                                                    std::min<std::size_t>(4, sequences.size()) - 1);
    return std::move(sequences[pick(generator)]);
}

std::string chordName(const core::Chord& chord) {
    return core::ChordDataManager::shared().shortestName(chord.rootNote, chord.chordType,
                                                         chord.variant);
}

} // namespace

std::string deleteSectionQuestion(std::string_view title) {
    return fmt::format("Are you sure you really want to delete '{}'", title);
}

std::vector<Note> naturalNotes() {
    return {Note::C, Note::D, Note::E, Note::F, Note::G, Note::A, Note::B};
}
std::vector<Note> sharpNotes() {
    return {Note::Cs, Note::Ds, Note::Fs, Note::Gs, Note::As};
}
std::vector<Note> flatNotes() {
    return {Note::Df, Note::Ef, Note::Gf, Note::Af, Note::Bf};
}

std::vector<core::Chord> flatChordList(const std::vector<SongSection>& sections) {
    std::vector<core::Chord> chords;
    for (const auto& section : sections)
        chords.insert(chords.end(), section.chords.begin(), section.chords.end());
    return chords;
}

SongEditorModel::SongEditorModel(std::optional<fs::path> url, Services services)
    : services_(std::move(services)) {
    auto bass = core::bassPatterns();
    auto drums = core::drumPatterns();
    if (!bass.empty()) currentBassPattern_ = std::move(bass.front());
    if (!drums.empty()) currentDrumPattern_ = std::move(drums.front());
    if (url) {
        isNew_ = false;
        documentURL_ = *url;
        FrtQulDocument document;
        if (auto loaded = FrtQulDocument::read(*url)) {
            document = std::move(*loaded);
        } else {
            loadError_ = loaded.error();
            loadError_->message = "Error loading document: " + loadError_->message;
        }
        sections_ = std::move(document.sections);
        trackTitle = document.title;
        currentKeySignature_ = document.key;
        bpm_ = document.bpm;
        currentSequence_ = std::move(document.sequence);
    } else {
        SongSection intro;
        intro.title = "Intro";
        intro.sectionType = SectionType::intro;
        sections_.push_back(std::move(intro));
        trackTitle = FrtQulDocument{}.title;
        currentSequence_ = openingSequence();
    }
    lastValidTitle = trackTitle;
    services_.sequencer->setTempo(bpm_);
    refreshSequencer();
}

bool SongEditorModel::isSequencerOn() const {
    return services_.store && personal::read(*services_.store, personal::keys::isSequencerOn);
}

std::optional<int> SongEditorModel::flatIndex(int sectionIndex, int chordIndex) const {
    if (sectionIndex < 0 || static_cast<std::size_t>(sectionIndex) >= sections_.size() ||
        chordIndex < 0 ||
        static_cast<std::size_t>(chordIndex) >=
            sections_[static_cast<std::size_t>(sectionIndex)].chords.size()) {
        diagnostic("Invalid section or chord index");
        return std::nullopt;
    }
    int index = chordIndex;
    for (int earlier = 0; earlier < sectionIndex; ++earlier)
        index += static_cast<int>(sections_[static_cast<std::size_t>(earlier)].chords.size());
    return index;
}

void SongEditorModel::tapChord(int sectionIndex, int chordIndex) {
    if (!isSequencerOn()) {
        if (!wasLongPressed_ && sectionIndex >= 0 &&
            static_cast<std::size_t>(sectionIndex) < sections_.size()) {
            const auto& id = sections_[static_cast<std::size_t>(sectionIndex)].id;
            selectedSectionID_ = id;
            selectedChordInfo_ = SelectedChordInfo{id, chordIndex};
        }
        wasLongPressed_ = false;
        return;
    }
    wasLongPressed_ = false;
    const auto index = flatIndex(sectionIndex, chordIndex);
    if (!index) return;
    chordIndex_ = *index;
    shouldSeekToLongPressedPosition_ = true;
    services_.sequencer->seek(*index);
}

void SongEditorModel::addSection(SectionType type, std::string_view customTitle) {
    SongSection section;
    section.title = customTitle.empty() ? std::string(displayName(type)) : std::string(customTitle);
    section.sectionType = type;
    diagnostic(fmt::format("Selected Section Type: {}, Title: {}", rawValue(type), section.title));
    sections_.push_back(std::move(section));
    refreshSequencer();
}

void SongEditorModel::duplicateSection(const core::Uuid& id) {
    const auto original =
        std::find_if(sections_.begin(), sections_.end(), [&](const auto& s) { return s.id == id; });
    if (original == sections_.end()) return;
    std::set<std::string> titles;
    for (const auto& section : sections_)
        titles.insert(section.title);
    const auto base = original->title + " Copy";
    auto title = base;
    for (int number = 2; titles.count(title); ++number)
        title = fmt::format("{} {}", base, number);
    SongSection copy = *original;
    copy.id = core::Uuid::random();
    copy.title = std::move(title);
    sections_.insert(original + 1, std::move(copy));
    refreshSequencer();
}

void SongEditorModel::deleteSection(const core::Uuid& id) {
    const auto found =
        std::find_if(sections_.begin(), sections_.end(), [&](const auto& s) { return s.id == id; });
    if (found == sections_.end()) return;
    sections_.erase(found);
    refreshSequencer();
}

void SongEditorModel::moveSection(const core::Uuid& source, const core::Uuid& target) {
    const auto indexOf = [&](const core::Uuid& id) {
        return std::find_if(sections_.begin(), sections_.end(),
                            [&](const auto& s) { return s.id == id; }) -
               sections_.begin();
    };
    const auto from = indexOf(source);
    const auto to = indexOf(target);
    const auto end = static_cast<std::ptrdiff_t>(sections_.size());
    if (from == end || to == end || from == to) return;
    auto moving = std::move(sections_[static_cast<std::size_t>(from)]);
    sections_.erase(sections_.begin() + from);
    sections_.insert(sections_.begin() + to, std::move(moving));

    std::vector<std::string> titles;
    for (const auto& section : sections_)
        titles.push_back(section.title);
    std::vector<std::string> chords;
    for (const auto& chord : flatChordList(sections_))
        chords.push_back(chordName(chord));
    diagnostic(fmt::format("Sections order: {}", fmt::join(titles, ", ")));
    diagnostic(fmt::format("Chords flattened: {}", fmt::join(chords, ", ")));
    refreshSequencer();
}

void SongEditorModel::selectChord(const SelectedChordInfo& info) {
    selectedSectionID_ = info.sectionID;
    selectedChordInfo_ = info;
}

bool SongEditorModel::addChord(const core::Chord& chord) {
    if (!selectedSectionID_) return false;
    const auto found = std::find_if(sections_.begin(), sections_.end(),
                                    [&](const auto& s) { return s.id == *selectedSectionID_; });
    if (found == sections_.end()) return false;
    found->chords.push_back(chord);
    refreshSequencer();
    return true;
}

bool SongEditorModel::deleteChord() {
    if (!selectedChordInfo_) return false;
    const auto found = std::find_if(sections_.begin(), sections_.end(), [&](const auto& s) {
        return s.id == selectedChordInfo_->sectionID;
    });
    if (found == sections_.end() || selectedChordInfo_->chordIndex < 0 ||
        static_cast<std::size_t>(selectedChordInfo_->chordIndex) >= found->chords.size())
        return false;
    found->chords.erase(found->chords.begin() + selectedChordInfo_->chordIndex);
    selectedChordInfo_.reset();
    refreshSequencer();
    return true;
}

void SongEditorModel::setKeySignature(Note root, KeySignatureQuality quality) {
    currentKeySignature_ =
        core::Chord{root, quality == KeySignatureQuality::major ? "major" : "minor", 0};
    refreshSequencer();
}

void SongEditorModel::setTempo(std::int64_t bpm) {
    bpm_ = bpm;
    refreshSequencer();
}

void SongEditorModel::setSequence(core::ArpeggioSequence sequence) {
    currentSequence_ = std::move(sequence);
    refreshSequencer();
}

void SongEditorModel::setBassPattern(core::BassPattern pattern) {
    currentBassPattern_ = std::move(pattern);
    refreshSequencer();
}

void SongEditorModel::setDrumPattern(core::DrumPattern pattern) {
    currentDrumPattern_ = std::move(pattern);
    refreshSequencer();
}

void SongEditorModel::refreshSequencer() {
    auto& sequencer = *services_.sequencer;
    const auto chords = flatChordList(sections_);
    if (chords.empty()) {
        chordIndex_ = 0;
        subdivisionPosition_ = 0;
        selectedSectionID_.reset();
        selectedChordInfo_.reset();
        noteDictionaries_.clear();
        if (sequencer.isRunning()) {
            sequencer.stop();
            if (services_.store)
                (void)personal::write(*services_.store, personal::keys::isSequencerOn, false);
        }
    } else {
        const int last = static_cast<int>(chords.size()) - 1;
        chordIndex_ = std::min(chordIndex_, last);
        previousChordIndex_ = std::min(previousChordIndex_, last);
        noteDictionaries_.clear();
        for (int index = 0; index <= last; ++index)
            noteDictionaries_[index] = chords[static_cast<std::size_t>(index)];
        int remaining = chordIndex_;
        for (const auto& section : sections_) {
            const auto count = static_cast<int>(section.chords.size());
            if (remaining < count) {
                isGuitarEnabled_ = section.isGuitarEnabled;
                isBassEnabled_ = section.isBassEnabled;
                isDrumsEnabled_ = section.isDrumsEnabled;
                break;
            }
            remaining -= count;
        }
    }
    sequencer.update(sections_, currentSequence_, currentBassPattern_, currentDrumPattern_);
    if (sequencer.tempo() != bpm_) sequencer.setTempo(bpm_);
}

tl::expected<FrtQulDocumentData, Error> SongEditorModel::edit(const fs::path& file,
                                                              Services services, const Step& step) {
    const auto lock = documents::FolderLock::acquire(documents::folderOf(file));
    if (!lock) return tl::unexpected(lock.error());
    SongEditorModel editor(file, std::move(services));
    if (editor.loadError_) return tl::unexpected(*editor.loadError_);
    if (auto stepped = step(editor); !stepped) return tl::unexpected(stepped.error());
    if (auto saved = editor.writeLocked(file, documents::ExistingFile::replace); !saved)
        return tl::unexpected(saved.error());
    return editor.data();
}

tl::expected<fs::path, Error> SongEditorModel::create(std::string_view name, Services services) {
    const std::string title(core::text::trimmed(name));
    if (title.empty()) return tl::unexpected(SongMakerDocumentStoreError::emptyDocumentName());
    const auto folder = services.documents();
    if (!folder)
        return tl::unexpected(SongMakerDocumentStoreError::documentsDirectoryUnavailable());
    const auto target = *folder / songFileName(safeSongFileName(title));
    SongEditorModel editor(std::nullopt, std::move(services));
    editor.trackTitle = title;
    auto saved = editor.saveAs(target);
    if (!saved && saved.error().kind == ErrorKind::exists)
        return tl::unexpected(SongMakerDocumentStoreError::fileAlreadyExists(title));
    if (!saved) return tl::unexpected(saved.error());
    return target;
}

FrtQulDocumentData SongEditorModel::data() const {
    return {trackTitle, sections_, currentKeySignature_, services_.sequencer->tempo(),
            currentSequence_};
}

tl::expected<void, Error> SongEditorModel::save() {
    if (documentURL_) return write(*documentURL_, documents::ExistingFile::replace);
    const auto folder = services_.documents();
    if (!folder)
        return tl::unexpected(Error{"Error saving document: The file couldn’t be saved because "
                                    "no such file or folder exists.",
                                    ErrorKind::notFound});
    return write(*folder / songFileName(trackTitle), documents::ExistingFile::replace);
}

tl::expected<void, Error> SongEditorModel::saveAs(const fs::path& target) {
    if (documentURL_) return save();
    return write(target, documents::ExistingFile::refuse);
}

tl::expected<void, Error> SongEditorModel::write(const fs::path& target,
                                                 documents::ExistingFile existing) {
    // waits for an edit of another process to finish; the last whole write wins
    const auto lock = documents::FolderLock::acquire(documents::folderOf(target));
    if (!lock) {
        auto error = lock.error();
        error.message = "Error saving document: " + error.message;
        return tl::unexpected(std::move(error));
    }
    return writeLocked(target, existing);
}

tl::expected<void, Error> SongEditorModel::writeLocked(const fs::path& target,
                                                       documents::ExistingFile existing) {
    const auto fail = [](Error error) {
        error.message = "Error saving document: " + error.message;
        return tl::unexpected(std::move(error));
    };
    const auto bytes = FrtQulDocument(data()).fileWrapper();
    if (!bytes) return fail(bytes.error());
    if (auto written = documents::writeFileDurably(target, *bytes, existing); !written)
        return fail(written.error());
    documentURL_ = target;
    isNew_ = false;
    documents::notifyDocumentsChanged(services_.observer, services_.mainExecutor);
    return {};
}

} // namespace fq::songmaker
