#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace fq::core {

/// A random (version 4) universally unique identifier.
struct Uuid {
    std::array<std::uint8_t, 16> bytes{};

    /// A fresh identifier; no two calls give the same one.
    static Uuid random();
    /// Reads the 36-character form in either case.
    static std::optional<Uuid> fromText(std::string_view text);

    /// The 36-character form in upper case, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
    std::string text() const;

    friend auto operator<=>(const Uuid&, const Uuid&) = default;
};

} // namespace fq::core
