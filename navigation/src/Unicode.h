#pragma once

// The few Unicode operations links and identifiers need, done by ICU.

#include <string>
#include <string_view>
#include <vector>

namespace fq::navigation::unicode {

std::string lowerCased(std::string_view text);
/// Case and accents folded away: "Café" → "cafe".
std::string folded(std::string_view text);
/// Every code point that is neither a letter nor a digit (nor white space, when
/// `keepSpaces`) becomes `replacement`.
std::string replacingNonAlphanumerics(std::string_view text, char replacement, bool keepSpaces);
/// Pieces between runs of white space (new lines included), none empty.
std::vector<std::string> words(std::string_view text);
std::string_view trimmed(std::string_view text);
bool isValidUtf8(std::string_view text);

} // namespace fq::navigation::unicode
