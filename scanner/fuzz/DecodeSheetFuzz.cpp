// Any bytes given to the sheet reader must give a sheet or an error, never a crash;
// a sheet that reads must write and read back, and so must each page that decodes.
#include <fq/scanner/SheetDocument.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace fq::scanner;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto sheet = decodeSheet(bytes);
    if (!sheet) return 0;
    const auto written = encodeSheet(*sheet);
    if (!written || decodeSheet(*written) != sheet) std::abort();
    for (const auto& page : sheet->pages) {
        const auto image = Bitmap::decodePng(page.image);
        if (!image) continue;
        const auto png = image->pngData();
        if (!png) std::abort();
        const auto again = Bitmap::decodePng(*png);
        if (!again || !samePixels(*image, *again)) std::abort();
    }
    return 0;
}
