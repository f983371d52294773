#include "fq/core/Uuid.h"

#include <uuid/uuid.h>

namespace fq::core {

Uuid Uuid::random() {
    Uuid id;
    uuid_generate_random(id.bytes.data());
    return id;
}

std::optional<Uuid> Uuid::fromText(std::string_view text) {
    constexpr std::size_t length = 36;
    if (text.size() != length) return std::nullopt;
    char terminated[length + 1]{};
    text.copy(terminated, length);
    Uuid id;
    if (uuid_parse(terminated, id.bytes.data()) != 0) return std::nullopt;
    return id;
}

std::string Uuid::text() const {
    char buffer[37]{};
    uuid_unparse_upper(bytes.data(), buffer);
    return buffer;
}

} // namespace fq::core
