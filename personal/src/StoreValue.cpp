// Lenient reads of a stored value as another type.

#include "fq/personal/StoreValue.h"

#include <cmath>
#include <utility>

namespace fq::personal {

std::optional<std::int64_t> integerValue(std::optional<StoreValue> value) {
    if (!value) return std::nullopt;
    if (const auto* integer = std::get_if<std::int64_t>(&*value)) return *integer;
    if (const auto* boolean = std::get_if<bool>(&*value)) return *boolean ? 1 : 0;
    if (const auto* real = std::get_if<double>(&*value)) {
        const double truncated = std::trunc(*real);
        // 2^63 itself does not fit; -2^63 does.
        constexpr double limit = 9223372036854775808.0;
        if (!(truncated >= -limit && truncated < limit)) return std::nullopt;
        return static_cast<std::int64_t>(truncated);
    }
    return std::nullopt;
}

std::optional<double> realValue(std::optional<StoreValue> value) {
    if (!value) return std::nullopt;
    if (const auto* real = std::get_if<double>(&*value)) return *real;
    if (const auto* integer = std::get_if<std::int64_t>(&*value))
        return static_cast<double>(*integer);
    if (const auto* boolean = std::get_if<bool>(&*value)) return *boolean ? 1.0 : 0.0;
    return std::nullopt;
}

std::optional<bool> booleanValue(std::optional<StoreValue> value) {
    if (!value) return std::nullopt;
    if (const auto* boolean = std::get_if<bool>(&*value)) return *boolean;
    if (const auto* integer = std::get_if<std::int64_t>(&*value)) return *integer != 0;
    if (const auto* real = std::get_if<double>(&*value)) return *real != 0.0;
    return std::nullopt;
}

std::optional<std::string> textValue(std::optional<StoreValue> value) {
    if (!value) return std::nullopt;
    if (auto* text = std::get_if<std::string>(&*value)) return std::move(*text);
    return std::nullopt;
}

std::optional<core::Bytes> bytesValue(std::optional<StoreValue> value) {
    if (!value) return std::nullopt;
    if (auto* bytes = std::get_if<core::Bytes>(&*value)) return std::move(*bytes);
    return std::nullopt;
}

} // namespace fq::personal
