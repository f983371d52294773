// libFuzzer: reading any text as a web link must never crash, and what it reads must
// be a link that the writer turns back into a link that reads the same chord.

#include <fq/navigation/ChordURLParser.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    namespace links = fq::navigation::ChordURLParser;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto route = links::parseChordURL(text);
    if (!route) return 0;
    const auto again = links::parseChordURL(links::chordWebURL(route->chord));
    if (!again || again->chord != route->chord) std::abort();
    return 0;
}
