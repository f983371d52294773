#pragma once

// A stored value of one of five types, and lenient reads of it as another.

#include <fq/core/BytesStore.h>

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace fq::personal {

/// One value of the shared store. The alternative stored is the type read back: a
/// boolean stays a boolean even though it could pass for the integer 0 or 1.
using StoreValue = std::variant<std::int64_t, double, bool, std::string, core::Bytes>;

// Typed readers, lenient the way a user-defaults reader is: the three number types
// stand in for one another, so a setting written as an integer can be read as a double
// and a switch written as 0 or 1 can be read as a boolean. Text and bytes are never
// reinterpreted (no parsing of "42", no text from bytes): each reads only as itself.
// Absent values and every other combination give none.

/// Integers as they are; booleans as 0 or 1; doubles truncated toward zero when the
/// result fits in 64 bits (infinities do not).
std::optional<std::int64_t> integerValue(std::optional<StoreValue> value);
/// Doubles as they are; integers converted (rounded beyond 2^53); booleans as 0 or 1.
std::optional<double> realValue(std::optional<StoreValue> value);
/// Booleans as they are; integers and doubles are true when not zero.
std::optional<bool> booleanValue(std::optional<StoreValue> value);
std::optional<std::string> textValue(std::optional<StoreValue> value);
std::optional<core::Bytes> bytesValue(std::optional<StoreValue> value);

} // namespace fq::personal
