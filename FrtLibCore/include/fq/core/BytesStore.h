#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace fq::core {

using Bytes = std::vector<std::uint8_t>;

/// What the theory core needs of the persistent store: bytes under a text key.
/// The shared preference store implements it; the core knows nothing more of it.
/// Implementations are safe to call from any thread.
class BytesStore {
public:
    virtual ~BytesStore() = default;

    /// The bytes stored under `key`, or none.
    virtual std::optional<Bytes> data(std::string_view key) const = 0;
    /// Stores `bytes` under `key`, replacing what was there. A failure to store is
    /// survived: the caller's result does not depend on it.
    virtual void setData(std::string_view key, std::span<const std::uint8_t> bytes) = 0;
};

} // namespace fq::core
