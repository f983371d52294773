// Case folding, trimming and UTF-8 checks through ICU.

#include "Unicode.h"

#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/ustring.h>
#include <unicode/utf8.h>

namespace fq::navigation::unicode {
namespace {

icu::UnicodeString fromUtf8(std::string_view text) {
    return icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
}

std::string toUtf8(const icu::UnicodeString& text) {
    std::string result;
    text.toUTF8String(result);
    return result;
}

/// Calls `visit(codePoint, bytes)` for each code point of valid UTF-8.
template <typename Visit>
void forEachCodePoint(std::string_view text, Visit visit) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    const auto length = static_cast<std::int32_t>(text.size());
    for (std::int32_t i = 0; i < length;) {
        const std::int32_t start = i;
        UChar32 c = 0;
        U8_NEXT(bytes, i, length, c);
        visit(c, text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(i - start)));
    }
}

} // namespace

std::string lowerCased(std::string_view text) {
    return toUtf8(fromUtf8(text).toLower(icu::Locale::getRoot()));
}

std::string folded(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    const auto* nfd = icu::Normalizer2::getNFDInstance(status);
    if (U_FAILURE(status)) return lowerCased(text);
    const auto decomposed = nfd->normalize(fromUtf8(text), status);
    if (U_FAILURE(status)) return lowerCased(text);
    icu::UnicodeString bare;
    for (std::int32_t i = 0; i < decomposed.length();) {
        const UChar32 c = decomposed.char32At(i);
        if (u_charType(c) != U_NON_SPACING_MARK) bare.append(c);
        i += U16_LENGTH(c);
    }
    return toUtf8(bare.foldCase());
}

std::string replacingNonAlphanumerics(std::string_view text, char replacement, bool keepSpaces) {
    std::string result;
    forEachCodePoint(text, [&](UChar32 c, std::string_view bytes) {
        if (c >= 0 && (u_isalnum(c) || (keepSpaces && u_isUWhiteSpace(c))))
            result.append(bytes);
        else
            result += replacement;
    });
    return result;
}

std::vector<std::string> words(std::string_view text) {
    std::vector<std::string> pieces(1);
    forEachCodePoint(text, [&](UChar32 c, std::string_view bytes) {
        if (c >= 0 && u_isUWhiteSpace(c)) {
            if (!pieces.back().empty()) pieces.emplace_back();
        } else {
            pieces.back().append(bytes);
        }
    });
    if (pieces.back().empty()) pieces.pop_back();
    return pieces;
}

std::string_view trimmed(std::string_view text) {
    std::size_t first = 0;
    std::size_t end = 0;
    bool seen = false;
    std::size_t offset = 0;
    forEachCodePoint(text, [&](UChar32 c, std::string_view bytes) {
        if (!(c >= 0 && u_isUWhiteSpace(c))) {
            if (!seen) first = offset;
            seen = true;
            end = offset + bytes.size();
        }
        offset += bytes.size();
    });
    return seen ? text.substr(first, end - first) : std::string_view{};
}

bool isValidUtf8(std::string_view text) {
    bool valid = true;
    forEachCodePoint(text, [&](UChar32 c, std::string_view) { valid = valid && c >= 0; });
    return valid;
}

} // namespace fq::navigation::unicode
