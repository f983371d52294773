#pragma once

#include <fq/core/AccompanimentPatterns.h>
#include <fq/core/Chord.h>
#include <fq/core/Error.h>
#include <fq/core/Uuid.h>

#include <nlohmann/json.hpp>
#include <tl/expected.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fq::songmaker {

namespace config {
/// The song file's extension, compared exactly.
inline constexpr std::string_view songExtension = "frtqul";
/// Far beyond any real song (a hundred sections of chords take a few kilobytes); a
/// larger file is refused unread.
inline constexpr std::size_t maximumSongFileBytes = std::size_t{16} << 20;
/// The exported content type of a song file.
inline constexpr std::string_view songContentType = "com.kelvane.frtqul.track";
/// Shown by the song maker above its editor.
inline constexpr std::string_view songMakerBetaNote =
    "This section is currently in beta. Saved tracks may not persist across updates. We'd love "
    "your "
    "feedback — feel free to reach out via the Contact option on the home screen.";
} // namespace config

enum class SectionType { intro, verse, chorus, bridge, outro, other };

inline constexpr std::array<SectionType, 6> allSectionTypes{
    SectionType::intro,  SectionType::verse, SectionType::chorus,
    SectionType::bridge, SectionType::outro, SectionType::other};

/// The stored word, e.g. "chorus".
std::string_view rawValue(SectionType type);
std::optional<SectionType> sectionTypeFromRawValue(std::string_view text);
/// The word the add-section sheet shows, e.g. "Chorus".
std::string_view displayName(SectionType type);

struct SongSection {
    core::Uuid id = core::Uuid::random();
    std::string title;
    std::vector<core::Chord> chords;
    SectionType sectionType = SectionType::intro;
    bool isGuitarEnabled = true;
    bool isBassEnabled = true;
    bool isDrumsEnabled = true;
    bool shouldAddFillAtEnd = true;

    friend bool operator==(const SongSection&, const SongSection&) = default;
};

/// Names a chord in the editor; not stored.
struct SelectedChordInfo {
    core::Uuid sectionID;
    int chordIndex = 0;

    friend bool operator==(const SelectedChordInfo&, const SelectedChordInfo&) = default;
};

/// The stored record of a song.
struct FrtQulDocumentData {
    std::string title;
    std::vector<SongSection> sections;
    core::Chord key;
    std::int64_t bpm = 0;
    core::ArpeggioSequence sequence;
};

/// The document the rest of the program holds: the same five fields, with the defaults
/// of a new song and the file form.
struct FrtQulDocument {
    std::string title = "Untitled";
    std::vector<SongSection> sections;
    /// D major on purpose, not C.
    core::Chord key{core::Note::D, "major", 0};
    std::int64_t bpm = 120;
    /// Drawn at random from the whole guitar pattern list, so two new songs may differ.
    core::ArpeggioSequence sequence = randomSequence();

    FrtQulDocument() = default;
    explicit FrtQulDocument(FrtQulDocumentData data);
    FrtQulDocumentData data() const;

    /// Reads a song file. A folder or other non-regular file fails as corrupt; a decoding
    /// failure passes through.
    static tl::expected<FrtQulDocument, Error> read(const std::filesystem::path& file);
    /// The file's bytes: always a binary property list, and checked to read back.
    tl::expected<std::string, Error> fileWrapper() const;

    static core::ArpeggioSequence randomSequence();
};

/// The dictionary written to the file, keys in their fixed order.
nlohmann::ordered_json toJson(const SongSection& section);
nlohmann::ordered_json toJson(const FrtQulDocumentData& data);
/// Every key is required; unknown keys are ignored. Errors name the key and where it is.
tl::expected<FrtQulDocumentData, Error> documentDataFromJson(const nlohmann::json& json);

tl::expected<std::string, Error> encodeSong(const FrtQulDocumentData& data);
tl::expected<FrtQulDocumentData, Error> decodeSong(std::string_view bytes);

} // namespace fq::songmaker
