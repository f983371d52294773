#include "fq/songmaker/SongDocument.h"

#include "fq/documents/PropertyList.h"

#include <fq/documents/DurableFile.h>

#include <fmt/format.h>

#include <random>
#include <utility>

namespace fq::songmaker {

using documents::decodePropertyList;
using documents::DictionaryFields;
using documents::encodeBinaryPropertyList;
using documents::storedChord;
namespace {

using Json = nlohmann::json;

constexpr std::array<std::pair<SectionType, std::string_view>, 6> sectionWords{{
    {SectionType::intro, "intro"},
    {SectionType::verse, "verse"},
    {SectionType::chorus, "chorus"},
    {SectionType::bridge, "bridge"},
    {SectionType::outro, "outro"},
    {SectionType::other, "other"},
}};

#define FQ_TRY(target, expression)                                                                 \
    do {                                                                                           \
        auto result_ = (expression);                                                               \
        if (!result_) return tl::unexpected(std::move(result_.error()));                           \
        target = std::move(*result_);                                                              \
    } while (false)

tl::expected<SongSection, Error> sectionFromJson(const Json& json, const std::string& where) {
    const DictionaryFields fields(json, where);
    SongSection section;
    FQ_TRY(section.id, fields.uuid("id"));
    FQ_TRY(section.title, fields.text("title"));
    const Json* chords = nullptr;
    FQ_TRY(chords, fields.array("chords"));
    for (std::size_t index = 0; index < chords->size(); ++index) {
        core::Chord chord;
        FQ_TRY(chord, storedChord((*chords)[index], fmt::format("{}.chords[{}]", where, index)));
        section.chords.push_back(std::move(chord));
    }
    std::string type;
    FQ_TRY(type, fields.text("sectionType"));
    const auto sectionType = sectionTypeFromRawValue(type);
    if (!sectionType)
        return tl::unexpected(Error{
            fmt::format("Cannot initialize SectionType from invalid value {} at {}", type, where)});
    section.sectionType = *sectionType;
    FQ_TRY(section.isGuitarEnabled, fields.flag("isGuitarEnabled"));
    FQ_TRY(section.isBassEnabled, fields.flag("isBassEnabled"));
    FQ_TRY(section.isDrumsEnabled, fields.flag("isDrumsEnabled"));
    FQ_TRY(section.shouldAddFillAtEnd, fields.flag("shouldAddFillAtEnd"));
    return section;
}

} // namespace

std::string_view rawValue(SectionType type) {
    for (const auto& [value, word] : sectionWords)
        if (value == type) return word;
    return "other";
}

std::optional<SectionType> sectionTypeFromRawValue(std::string_view text) {
    for (const auto& [value, word] : sectionWords)
        if (word == text) return value;
    return std::nullopt;
}

std::string_view displayName(SectionType type) {
    switch (type) {
    case SectionType::intro:
        return "Intro";
    case SectionType::verse:
        return "Verse";
    case SectionType::chorus:
        return "Chorus";
    case SectionType::bridge:
        return "Bridge";
    case SectionType::outro:
        return "Outro";
    case SectionType::other:
        return "Other";
    }
    return "Other";
}

nlohmann::ordered_json toJson(const SongSection& section) {
    auto chords = nlohmann::ordered_json::array();
    for (const auto& chord : section.chords)
        chords.push_back(core::toJson(chord));
    return {{"id", section.id.text()},
            {"title", section.title},
            {"chords", std::move(chords)},
            {"sectionType", rawValue(section.sectionType)},
            {"isGuitarEnabled", section.isGuitarEnabled},
            {"isBassEnabled", section.isBassEnabled},
            {"isDrumsEnabled", section.isDrumsEnabled},
            {"shouldAddFillAtEnd", section.shouldAddFillAtEnd}};
}

nlohmann::ordered_json toJson(const FrtQulDocumentData& data) {
    auto sections = nlohmann::ordered_json::array();
    for (const auto& section : data.sections)
        sections.push_back(toJson(section));
    return {{"title", data.title},
            {"sections", std::move(sections)},
            {"key", core::toJson(data.key)},
            {"bpm", data.bpm},
            {"sequence", core::toJson(data.sequence)}};
}

tl::expected<FrtQulDocumentData, Error> documentDataFromJson(const nlohmann::json& json) {
    try {
        const DictionaryFields fields(json, "the top level");
        FrtQulDocumentData data;
        FQ_TRY(data.title, fields.text("title"));
        const Json* sections = nullptr;
        FQ_TRY(sections, fields.array("sections"));
        for (std::size_t index = 0; index < sections->size(); ++index) {
            SongSection section;
            FQ_TRY(section,
                   sectionFromJson((*sections)[index], fmt::format("sections[{}]", index)));
            data.sections.push_back(std::move(section));
        }
        const Json* key = nullptr;
        FQ_TRY(key, fields.value("key"));
        FQ_TRY(data.key, storedChord(*key, "key"));
        FQ_TRY(data.bpm, fields.integer("bpm"));
        const Json* sequence = nullptr;
        FQ_TRY(sequence, fields.value("sequence"));
        auto decoded = core::arpeggioSequenceFromJson(*sequence);
        if (!decoded) return tl::unexpected(Error{decoded.error().message + " at sequence"});
        data.sequence = std::move(*decoded);
        return data;
    } catch (const nlohmann::json::exception& error) {
        // the checks above leave nothing to throw; a miss is still a refused file
        return tl::unexpected(Error{error.what()});
    }
}

tl::expected<std::string, Error> encodeSong(const FrtQulDocumentData& data) {
    return encodeBinaryPropertyList(toJson(data));
}

tl::expected<FrtQulDocumentData, Error> decodeSong(std::string_view bytes) {
    return decodePropertyList(bytes).and_then(
        [](const Json& json) { return documentDataFromJson(json); });
}

FrtQulDocument::FrtQulDocument(FrtQulDocumentData data)
    : title(std::move(data.title)), sections(std::move(data.sections)), key(std::move(data.key)),
      bpm(data.bpm), sequence(std::move(data.sequence)) {}

FrtQulDocumentData FrtQulDocument::data() const {
    return {title, sections, key, bpm, sequence};
}

tl::expected<FrtQulDocument, Error> FrtQulDocument::read(const std::filesystem::path& file) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) {
        if (!std::filesystem::exists(file, error))
            return tl::unexpected(
                Error{fmt::format("The file “{}” couldn’t be opened because there is no such file.",
                                  file.filename().string())});
        return tl::unexpected(documents::corruptFileError(file));
    }
    return documents::readWholeFile(file, config::maximumSongFileBytes)
        .and_then([](const std::string& bytes) { return decodeSong(bytes); })
        .map([](FrtQulDocumentData data) { return FrtQulDocument(std::move(data)); });
}

tl::expected<std::string, Error> FrtQulDocument::fileWrapper() const {
    auto bytes = encodeSong(data());
    // a file is only ever replaced by one that reads back
    if (bytes && !decodeSong(*bytes))
        return tl::unexpected(Error{"The song could not be written in a readable form"});
    return bytes;
}

core::ArpeggioSequence FrtQulDocument::randomSequence() {
    auto sequences = core::arpeggioSequences();
    if (sequences.empty()) return {};
    static thread_local std::mt19937 generator{std::random_device{}()};
    std::uniform_int_distribution<std::size_t> pick(0, sequences.size() - 1);
    return std::move(sequences[pick(generator)]);
}

} // namespace fq::songmaker
