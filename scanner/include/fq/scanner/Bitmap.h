#pragma once

#include <fq/core/Error.h>

#include <tl/expected.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

struct Pix;

namespace fq::scanner {

namespace config {
/// Larger images are refused from their header, before any pixel memory is taken: a
/// phone camera's 48-megapixel photo fits, a forged header claiming billions does not.
inline constexpr std::int64_t maximumImagePixels = 64'000'000;
inline constexpr std::int32_t maximumImageSide = 32'768;
/// The most raw image bytes a PNG file can unpack to, per byte of the file: deflate's
/// own limit (1032) with room for the file's headers.
inline constexpr std::int64_t maximumPngExpansion = 1100;
} // namespace config

/// A decoded image, held through Leptonica. Copies share the same pixels, which are
/// never changed after decoding.
class Bitmap {
public:
    Bitmap() = default;

    /// An image in any format Leptonica reads (PNG, JPEG, TIFF, GIF, WebP, PNM, BMP, …).
    static tl::expected<Bitmap, Error> decode(std::span<const std::uint8_t> bytes);
    /// A PNG file only: the form pages are stored in.
    static tl::expected<Bitmap, Error> decodePng(std::span<const std::uint8_t> bytes);
    /// A 32-bit image of one colour (0xRRGGBB00), for drawing into; null when the size
    /// is refused.
    static Bitmap filled(std::int32_t width, std::int32_t height, std::uint32_t rgb);
    /// Takes ownership of an image made with Leptonica; null stays an empty bitmap.
    static Bitmap adopt(Pix* pix);

    /// The image as a whole PNG file.
    tl::expected<std::vector<std::uint8_t>, Error> pngData() const;

    std::int32_t width() const;
    std::int32_t height() const;
    /// Bits per pixel: 1, 2, 4, 8, 16 or 32.
    std::int32_t depth() const;
    explicit operator bool() const { return pix_ != nullptr; }
    /// For other Leptonica users (text recognition); null for an empty bitmap.
    Pix* pix() const { return pix_.get(); }

    /// Same size and the same pixel values.
    friend bool samePixels(const Bitmap& a, const Bitmap& b);

private:
    explicit Bitmap(Pix* pix);
    std::shared_ptr<Pix> pix_;
};

} // namespace fq::scanner
