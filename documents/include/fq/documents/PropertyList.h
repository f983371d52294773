#pragma once

#include <fq/core/Chord.h>
#include <fq/core/Error.h>
#include <fq/core/Uuid.h>

#include <nlohmann/json.hpp>
#include <tl/expected.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace fq::documents {

namespace config {
/// Deeper nesting than any document of ours has; a file that claims more is refused
/// before it can exhaust the stack.
inline constexpr int maximumPropertyListDepth = 64;
/// Longer dictionary keys are refused; ours are a few words at most.
inline constexpr std::size_t maximumKeyLength = 256;
/// Larger files are refused unread (the reader's sizes are 32-bit).
inline constexpr std::size_t maximumPropertyListBytes = std::size_t{1} << 30;
} // namespace config

// Property lists through libplist's C API, with JSON values as the in-memory form:
// dictionaries keep their insertion order when written, integers are signed 64-bit
// (libplist 2.2 holds them unsigned, so they are converted explicitly), binary JSON
// values are data, floating-point numbers are reals.

/// The value as a binary property list ("bplist00"). Fails for null values.
tl::expected<std::string, Error> encodeBinaryPropertyList(const nlohmann::ordered_json& value);

/// Reads a property list in any form libplist knows (binary or XML). Dates become
/// seconds since 2001 as reals; identifiers and other oddities are refused.
tl::expected<nlohmann::json, Error> decodePropertyList(std::string_view bytes);

/// Reads one dictionary of a decoded document, naming the place of a failure
/// ("sections[2]", "pages[1].detectedChordBoxes[0]"). Every key asked for is required.
class DictionaryFields {
public:
    using Json = nlohmann::json;
    DictionaryFields(const Json& json, std::string where);

    tl::expected<const Json*, Error> value(std::string_view key) const;
    /// Any string, as stored.
    tl::expected<std::string, Error> text(std::string_view key) const;
    /// A string a property list carries back unchanged: whole UTF-8 with no NUL.
    tl::expected<std::string, Error> cleanText(std::string_view key) const;
    tl::expected<bool, Error> flag(std::string_view key) const;
    tl::expected<std::int64_t, Error> integer(std::string_view key) const;
    tl::expected<const Json*, Error> array(std::string_view key) const;
    tl::expected<const Json*, Error> data(std::string_view key) const;
    tl::expected<core::Uuid, Error> uuid(std::string_view key) const;

private:
    tl::expected<const Json*, Error> typed(std::string_view key, bool (Json::*is)() const noexcept,
                                           std::string_view expected) const;

    const Json& json_;
    std::string where_;
};

/// A stored chord: unlike the looser chord form elsewhere, all three keys are required
/// and the variant is an integer.
tl::expected<core::Chord, Error> storedChord(const nlohmann::json& json, const std::string& where);

} // namespace fq::documents
