#pragma once

#include <fq/core/Error.h>

#include <nlohmann/json.hpp>
#include <tl/expected.hpp>

#include <cstddef>
#include <string>
#include <string_view>

namespace fq::songmaker {

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

} // namespace fq::songmaker
