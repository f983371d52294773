#pragma once

// Small UTF-8 text helpers: byte-level rules that need no Unicode tables.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace fq::core::text {

inline std::string replaceAll(std::string_view text, std::string_view from, std::string_view to) {
    std::string result;
    result.reserve(text.size());
    std::size_t start = 0;
    for (auto found = text.find(from); found != std::string_view::npos;
         found = text.find(from, start)) {
        result.append(text.substr(start, found - start)).append(to);
        start = found + from.size();
    }
    result.append(text.substr(start));
    return result;
}

/// Characters as a person counts them (code points), not bytes.
inline std::size_t characterCount(std::string_view text) {
    std::size_t count = 0;
    for (unsigned char byte : text)
        count += (byte & 0xC0) != 0x80;
    return count;
}

/// Splits at every separator, keeping empty pieces.
inline std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    std::size_t start = 0;
    for (auto found = text.find(separator); found != std::string_view::npos;
         found = text.find(separator, start)) {
        pieces.push_back(text.substr(start, found - start));
        start = found + 1;
    }
    pieces.push_back(text.substr(start));
    return pieces;
}

inline std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\n\r\v\f";
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// Upper case for ASCII letters only, so that multi-byte signs pass through untouched.
inline std::string asciiUpper(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return result;
}

/// The note letter left once the signs ♭, ♯ and 𝄪 are stripped.
inline std::string withoutSigns(std::string_view name) {
    return replaceAll(replaceAll(replaceAll(name, "♭", ""), "♯", ""), "𝄪", "");
}

} // namespace fq::core::text
