#include "CommandSupport.h"

#include "ChordInput.h"

#include <fq/core/ChordPositions.h>

#include <fmt/format.h>

#include <cstdio>
#include <sstream>

namespace fq::cli {

void toStandardError(std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fputc('\n', stderr);
    std::fflush(stderr);
}

std::string printable(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    const auto escaped = [&result](unsigned char byte) {
        result += fmt::format("\\x{:02X}", byte);
    };
    for (std::size_t i = 0; i < text.size();) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x20 || byte == 0x7F) {
            escaped(byte);
            ++i;
            continue;
        }
        if (byte < 0x80) {
            result += static_cast<char>(byte);
            ++i;
            continue;
        }
        // a whole UTF-8 sequence passes unless it is a C1 control character (U+0080 to U+009F)
        const std::size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC2 ? 2 : 0;
        bool whole = length > 0 && byte < 0xF5 && i + length <= text.size();
        for (std::size_t k = 1; whole && k < length; ++k)
            whole = (static_cast<unsigned char>(text[i + k]) & 0xC0) == 0x80;
        if (whole && byte == 0xC2 && static_cast<unsigned char>(text[i + 1]) < 0xA0) whole = false;
        if (!whole) {
            escaped(byte);
            ++i;
            continue;
        }
        result.append(text.substr(i, length));
        i += length;
    }
    return result;
}

std::string wrapped(std::string_view text, std::size_t width, std::string_view indent) {
    std::string result;
    std::size_t lineLength = 0;
    std::istringstream words{std::string(text)};
    for (std::string word; words >> word;) {
        if (lineLength > 0 && lineLength + 1 + word.size() > width) {
            result += "\n";
            lineLength = 0;
        }
        result += lineLength == 0 ? std::string(indent) : std::string(" ");
        lineLength += lineLength == 0 ? indent.size() : 1;
        result += word;
        lineLength += word.size();
    }
    return result;
}

void ChordSelection::addOptions(CLI::App* to, const char* positionalName) {
    command = to;
    to->add_option(positionalName, symbol,
                   "A chord symbol: Am7, \"C♯ minor 7th\", Bb7, C7b9, E#m, C/E");
    to->add_option("--root", root, "Root note, e.g. C, F#, E♭");
    to->add_option("--type", type, "Catalogue chord type, e.g. \"minor 7th\" (default major)");
    to->add_option("--variant", variant,
                   "Inversion: 0 is root position, n puts note n in the bass");
}

core::Chord ChordSelection::resolve() const {
    const bool byParts = command->count("--root") > 0;
    if (byParts && !symbol.empty())
        throw CommandError("Give either a chord symbol or --root with --type, not both");
    if (!byParts && symbol.empty())
        throw CommandError("Name a chord, e.g. \"Am7\", or give --root and --type");
    if (byParts) return valueOrThrow(chordFromParts(root, type, variant));
    auto chord = valueOrThrow(chordFromSymbol(symbol));
    if (command->count("--variant") > 0)
        chord =
            valueOrThrow(chordFromParts(core::rawValue(chord.rootNote), chord.chordType, variant));
    return chord;
}

namespace {
const tl::expected<std::shared_ptr<personal::SharedStore>, Error>& openedStore() {
    static const auto opened = personal::SharedStore::openDefault();
    return opened;
}
} // namespace

std::shared_ptr<personal::SharedStore> appStore() {
    const auto& opened = openedStore();
    if (!opened) throw CommandError(opened.error().message);
    return *opened;
}

void useShapeMemo() {
    if (const auto& opened = openedStore()) core::installShapeMemo(*opened);
}

} // namespace fq::cli
