#include "fq/core/ChordTexts.h"

#include "fq/core/ChordDataManager.h"
#include "fq/core/Text.h"
#include "fq/resources/fq_FrtLibCore.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <unordered_map>

namespace fq::core {
namespace {

using TextMap = std::unordered_map<std::string, std::string, TextHash, std::equal_to<>>;

struct ChordTexts {
    TextMap mood, genres, descriptions, guitarDescriptions;
};

const ChordTexts& texts() {
    static const ChordTexts loaded = [] {
        ChordTexts result;
        const auto document = nlohmann::json::parse(resources::chord_texts_json(), nullptr, false);
        const auto read = [&](const char* key, TextMap& into) {
            if (!document.is_object() || !document.contains(key)) return;
            for (const auto& [type, text] : document[key].items())
                if (text.is_string()) into.emplace(type, text.get<std::string>());
        };
        read("mood", result.mood);
        read("genres", result.genres);
        read("descriptions", result.descriptions);
        read("guitarDescriptions", result.guitarDescriptions);
        return result;
    }();
    return loaded;
}

std::string_view lookUp(const TextMap& map, std::string_view key) {
    const auto found = map.find(key);
    return found == map.end() ? std::string_view{} : std::string_view(found->second);
}

} // namespace

std::string_view chordMood(std::string_view chordType) {
    return lookUp(texts().mood, chordType);
}

std::string_view chordGenres(std::string_view chordType) {
    return lookUp(texts().genres, chordType);
}

std::string_view descriptionTemplate(std::string_view chordType) {
    return lookUp(texts().descriptions, chordType);
}

std::string_view guitarDescriptionTemplate(std::string_view chordType) {
    return lookUp(texts().guitarDescriptions, chordType);
}

std::string fillDescriptionTemplate(std::string_view text, std::span<const std::string> notes) {
    std::string filled(text);
    for (std::size_t n = 1; n <= 6; ++n) {
        const auto placeholder = "(--" + std::to_string(n) + "--)";
        filled = text::replaceAll(filled, placeholder, n <= notes.size() ? notes[n - 1] : "");
    }
    return filled;
}

std::string chordDescription(Note root, std::string_view chordType) {
    return fillDescriptionTemplate(descriptionTemplate(chordType),
                                   ChordDataManager::shared().notes(root, chordType));
}

std::string guitarDescription(Note root, std::string_view chordType) {
    return fillDescriptionTemplate(guitarDescriptionTemplate(chordType),
                                   ChordDataManager::shared().notes(root, chordType));
}

} // namespace fq::core
