#include "fq/scanner/Bitmap.h"

#include <fmt/format.h>
#include <leptonica/allheaders.h>

#include <algorithm>
#include <mutex>

namespace fq::scanner {
namespace {

tl::unexpected<Error> failure(std::string message) {
    return tl::unexpected(Error{std::move(message)});
}

/// Leptonica reports every refusal on standard error; our own errors say it once.
void quietLeptonica() {
    static std::once_flag once;
    std::call_once(once, [] { setMsgSeverity(L_SEVERITY_NONE); });
}

struct LeptonicaFree {
    void operator()(l_uint8* bytes) const { lept_free(bytes); }
};

tl::expected<void, Error> checkSize(l_int32 width, l_int32 height) {
    if (width <= 0 || height <= 0) return failure("The image has no pixels");
    if (width > config::maximumImageSide || height > config::maximumImageSide ||
        std::int64_t{width} * height > config::maximumImagePixels)
        return failure(fmt::format("The image is too large ({}×{} pixels)", width, height));
    return {};
}

/// Whether every chunk of a PNG file lies within the file. The PNG reader allocates a
/// chunk's claimed length before reading it, so a forged length must be caught first.
bool chunksFit(std::span<const std::uint8_t> bytes) {
    constexpr std::size_t signatureSize = 8, chunkOverhead = 12; // length, type, CRC
    for (std::size_t offset = signatureSize; offset + chunkOverhead <= bytes.size();) {
        const std::uint32_t length = (std::uint32_t{bytes[offset]} << 24) |
                                     (std::uint32_t{bytes[offset + 1]} << 16) |
                                     (std::uint32_t{bytes[offset + 2]} << 8) | bytes[offset + 3];
        if (length > bytes.size() - offset - chunkOverhead) return false;
        if (std::equal(bytes.begin() + static_cast<std::ptrdiff_t>(offset + 4),
                       bytes.begin() + static_cast<std::ptrdiff_t>(offset + 8), "IEND"))
            return true;
        offset += chunkOverhead + length;
    }
    return false;
}

} // namespace

Bitmap::Bitmap(Pix* pix) : pix_(pix, [](Pix* owned) { pixDestroy(&owned); }) {}

tl::expected<Bitmap, Error> Bitmap::decode(std::span<const std::uint8_t> bytes) {
    quietLeptonica();
    if (bytes.empty()) return failure("The image is empty");
    l_int32 format = IFF_UNKNOWN, width = 0, height = 0, bitsPerSample = 0, samples = 0,
            colormap = 0;
    // the header alone first: a forged size must not reach the allocation
    if (pixReadHeaderMem(bytes.data(), bytes.size(), &format, &width, &height, &bitsPerSample,
                         &samples, &colormap) != 0)
        return failure("The data is not an image in a known format");
    if (format == IFF_PNG) return decodePng(bytes);
    if (auto fits = checkSize(width, height); !fits) return tl::unexpected(fits.error());
    Pix* pix = pixReadMem(bytes.data(), bytes.size());
    if (!pix) return failure("The image could not be decoded");
    Bitmap bitmap(pix);
    // a multi-image file may hold a first image other than the header's
    if (auto fits = checkSize(bitmap.width(), bitmap.height()); !fits)
        return tl::unexpected(fits.error());
    return bitmap;
}

tl::expected<Bitmap, Error> Bitmap::decodePng(std::span<const std::uint8_t> bytes) {
    quietLeptonica();
    l_int32 format = IFF_UNKNOWN;
    if (bytes.size() < 8 || findFileFormatBuffer(bytes.data(), &format) != 0 || format != IFF_PNG)
        return failure("The image is not a PNG file");
    l_int32 width = 0, height = 0, bitsPerSample = 0, samples = 0, colormap = 0;
    if (!chunksFit(bytes)) return failure("The PNG file is cut short or damaged");
    if (readHeaderMemPng(bytes.data(), bytes.size(), &width, &height, &bitsPerSample, &samples,
                         &colormap) != 0)
        return failure("The PNG header is damaged");
    if (auto fits = checkSize(width, height); !fits) return tl::unexpected(fits.error());
    // deflate packs at most 1032 bytes into one, so pixels that many times beyond the
    // file's size cannot be in it: refuse the claim before its memory is taken
    const auto rowBytes = (std::int64_t{width} * bitsPerSample * std::max(samples, 1) + 7) / 8 + 1;
    if (rowBytes * height > config::maximumPngExpansion * static_cast<std::int64_t>(bytes.size()))
        return failure(fmt::format("The PNG claims {}×{} pixels that its {} bytes cannot hold",
                                   width, height, bytes.size()));
    Pix* pix = pixReadMemPng(bytes.data(), bytes.size());
    if (!pix) return failure("The PNG image could not be decoded");
    return Bitmap(pix);
}

Bitmap Bitmap::filled(std::int32_t width, std::int32_t height, std::uint32_t rgb) {
    quietLeptonica();
    if (!checkSize(width, height)) return {};
    Pix* pix = pixCreate(width, height, 32);
    if (!pix) return {};
    pixSetAllArbitrary(pix, rgb);
    return Bitmap(pix);
}

Bitmap Bitmap::adopt(Pix* pix) {
    return pix ? Bitmap(pix) : Bitmap();
}

tl::expected<std::vector<std::uint8_t>, Error> Bitmap::pngData() const {
    quietLeptonica();
    if (!pix_) return failure("There is no image to encode");
    l_uint8* bytes = nullptr;
    std::size_t size = 0;
    const auto status = pixWriteMemPng(&bytes, &size, pix_.get(), 0.0f);
    std::unique_ptr<l_uint8, LeptonicaFree> owned(bytes);
    if (status != 0 || !bytes || size == 0) return failure("The image could not be encoded as PNG");
    return std::vector<std::uint8_t>(bytes, bytes + size);
}

std::int32_t Bitmap::width() const {
    return pix_ ? pixGetWidth(pix_.get()) : 0;
}

std::int32_t Bitmap::height() const {
    return pix_ ? pixGetHeight(pix_.get()) : 0;
}

std::int32_t Bitmap::depth() const {
    return pix_ ? pixGetDepth(pix_.get()) : 0;
}

bool samePixels(const Bitmap& a, const Bitmap& b) {
    if (!a || !b) return !a && !b;
    l_int32 same = 0;
    return pixEqual(a.pix(), b.pix(), &same) == 0 && same != 0;
}

} // namespace fq::scanner
