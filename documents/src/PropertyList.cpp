#include "fq/documents/PropertyList.h"

#include <fmt/format.h>
#include <plist/plist.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace fq::documents {
namespace {

struct PlistFree {
    void operator()(plist_t node) const { plist_free(node); }
};
using Plist = std::unique_ptr<void, PlistFree>;

struct BinaryFree {
    void operator()(char* bytes) const { plist_to_bin_free(bytes); }
};

tl::unexpected<Error> failure(std::string message) {
    return tl::unexpected(Error{std::move(message)});
}

/// libplist passes a string's bytes through unchecked: a binary file may hold bytes that
/// are not UTF-8, and such a string written again makes a file that no reader accepts.
bool isValidUtf8(std::string_view text) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    const auto length = static_cast<std::int32_t>(text.size());
    for (std::int32_t index = 0; index < length;) {
        UChar32 character = 0;
        U8_NEXT(bytes, index, length, character);
        if (character < 0) return false;
    }
    return true;
}

tl::expected<Plist, Error> toPlist(const nlohmann::ordered_json& value, int depth) {
    if (depth > config::maximumPropertyListDepth)
        return failure("The value is nested too deeply for a property list");
    using Type = nlohmann::ordered_json::value_t;
    switch (value.type()) {
    case Type::boolean:
        return Plist(plist_new_bool(value.get<bool>() ? 1 : 0));
    case Type::number_integer:
        // two's complement bits: the binary form stores 8-byte integers signed
        return Plist(plist_new_uint(static_cast<std::uint64_t>(value.get<std::int64_t>())));
    case Type::number_unsigned: {
        const auto number = value.get<std::uint64_t>();
        if (number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
            return failure("An integer is too large for a property list");
        return Plist(plist_new_uint(number));
    }
    case Type::number_float:
        return Plist(plist_new_real(value.get<double>()));
    case Type::string: {
        const auto& text = value.get_ref<const std::string&>();
        // the C string ends at a NUL, and the writer needs UTF-8
        if (text.find('\0') != std::string::npos || !isValidUtf8(text))
            return failure("A text value cannot be written to a property list");
        return Plist(plist_new_string(text.c_str()));
    }
    case Type::binary: {
        const auto& bytes = value.get_binary();
        return Plist(plist_new_data(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
    }
    case Type::array: {
        Plist array(plist_new_array());
        for (const auto& item : value) {
            auto node = toPlist(item, depth + 1);
            if (!node) return node;
            plist_array_append_item(array.get(), node->release());
        }
        return array;
    }
    case Type::object: {
        Plist dictionary(plist_new_dict());
        for (const auto& [key, item] : value.items()) {
            auto node = toPlist(item, depth + 1);
            if (!node) return node;
            if (key.find('\0') != std::string::npos || !isValidUtf8(key))
                return failure("A dictionary key cannot be written to a property list");
            plist_dict_set_item(dictionary.get(), key.c_str(), node->release());
        }
        return dictionary;
    }
    case Type::null:
    case Type::discarded:
        break;
    }
    return failure("A property list cannot hold a null value");
}

/// A big-endian unsigned number of `size` bytes at `offset`, if the bytes are there.
std::optional<std::uint64_t> bigEndian(std::string_view bytes, std::uint64_t offset,
                                       std::uint64_t size) {
    if (size == 0 || size > 8 || offset > bytes.size() || bytes.size() - offset < size)
        return std::nullopt;
    std::uint64_t value = 0;
    for (std::uint64_t index = 0; index < size; ++index)
        value = (value << 8) | static_cast<unsigned char>(bytes[offset + index]);
    return value;
}

/// libplist 2.2 reads the containers of a binary file recursively, so a file that nests
/// arrays a few hundred thousand deep overflows the stack before any check of ours can
/// run. This walks only the container references of the binary form, without recursion,
/// and refuses nesting deeper than our documents can have. Anything it cannot follow is
/// left for libplist to refuse.
tl::expected<void, Error> checkBinaryNesting(std::string_view bytes) {
    constexpr std::size_t trailerSize = 32;
    if (bytes.size() < 8 + trailerSize || bytes.substr(0, 6) != "bplist") return {};
    const std::uint64_t trailer = bytes.size() - trailerSize;
    const auto offsetSize = static_cast<unsigned char>(bytes[trailer + 6]);
    const auto referenceSize = static_cast<unsigned char>(bytes[trailer + 7]);
    const auto count = bigEndian(bytes, trailer + 8, 8);
    const auto top = bigEndian(bytes, trailer + 16, 8);
    const auto table = bigEndian(bytes, trailer + 24, 8);
    if (!count || !top || !table || offsetSize == 0 || offsetSize > 8 || referenceSize == 0 ||
        referenceSize > 8 || *top >= *count || *count > trailer || *table > trailer ||
        (trailer - *table) / offsetSize < *count)
        return {};
    const auto objectOffset = [&](std::uint64_t object) {
        return bigEndian(bytes, *table + object * offsetSize, offsetSize);
    };

    // deepest level at which each object was seen: a shared object is walked again
    // only when reached deeper, so the work stays bounded by the depth limit
    std::vector<std::uint8_t> deepest(static_cast<std::size_t>(*count), 0);
    std::vector<std::pair<std::uint64_t, int>> pending{{*top, 1}};
    while (!pending.empty()) {
        const auto [object, depth] = pending.back();
        pending.pop_back();
        if (depth > config::maximumPropertyListDepth)
            return failure("The property list is nested too deeply");
        if (deepest[static_cast<std::size_t>(object)] >= depth) continue;
        deepest[static_cast<std::size_t>(object)] = static_cast<std::uint8_t>(depth);
        const auto offset = objectOffset(object);
        if (!offset || *offset >= trailer) return {};
        const auto marker = static_cast<unsigned char>(bytes[*offset]);
        const unsigned kind = marker >> 4;
        if (kind != 0xA && kind != 0xC && kind != 0xD) continue;
        std::uint64_t items = marker & 0x0F;
        std::uint64_t start = *offset + 1;
        if (items == 0x0F) {
            if (start >= trailer) return {};
            const auto sizeMarker = static_cast<unsigned char>(bytes[start]);
            if ((sizeMarker >> 4) != 0x1 || (sizeMarker & 0x0F) > 3) return {};
            const std::uint64_t sizeBytes = std::uint64_t{1} << (sizeMarker & 0x0F);
            const auto counted = bigEndian(bytes, start + 1, sizeBytes);
            if (!counted) return {};
            items = *counted;
            start += 1 + sizeBytes;
        }
        const std::uint64_t references = kind == 0xD ? items * 2 : items;
        if (items > trailer || references > (trailer - std::min(start, trailer)) / referenceSize)
            return {};
        for (std::uint64_t index = 0; index < references; ++index) {
            const auto child = bigEndian(bytes, start + index * referenceSize, referenceSize);
            if (!child || *child >= *count) return {};
            pending.emplace_back(*child, depth + 1);
        }
    }
    return {};
}

/// A dictionary key's text, read with comparisons only. libplist's own key getter asserts
/// that the key holds no NUL byte, and a binary file can hold one (a UTF-16 key with a
/// zero unit), which would abort the program. A comparison never aborts: each byte is
/// found by bisection, up to the first NUL, as any C reader of the key would see it.
tl::expected<std::string, Error> keyText(plist_t key) {
    std::string text;
    const auto compare = [&](unsigned char next) {
        std::string probe = text;
        probe += static_cast<char>(next);
        return plist_key_val_compare_with_size(key, probe.c_str(), probe.size());
    };
    while (compare(1) >= 0) {
        if (text.size() >= config::maximumKeyLength) return failure("A dictionary key is too long");
        int low = 1, high = 255;
        while (low < high) {
            const int middle = (low + high + 1) / 2;
            if (compare(static_cast<unsigned char>(middle)) < 0)
                high = middle - 1;
            else
                low = middle;
        }
        text += static_cast<char>(low);
    }
    if (!isValidUtf8(text)) return failure("The property list holds a key that is not UTF-8");
    return text;
}

tl::expected<nlohmann::json, Error> fromPlist(plist_t node, int depth) {
    if (depth > config::maximumPropertyListDepth)
        return failure("The property list is nested too deeply");
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        std::uint8_t flag = 0;
        plist_get_bool_val(node, &flag);
        return nlohmann::json(flag != 0);
    }
    case PLIST_UINT: {
        std::uint64_t bits = 0;
        plist_get_uint_val(node, &bits);
        return nlohmann::json(static_cast<std::int64_t>(bits));
    }
    case PLIST_REAL:
    case PLIST_DATE: {
        double number = 0;
        if (plist_get_node_type(node) == PLIST_REAL) {
            plist_get_real_val(node, &number);
        } else {
            std::int32_t seconds = 0, microseconds = 0;
            plist_get_date_val(node, &seconds, &microseconds);
            number = seconds + microseconds / 1e6;
        }
        return nlohmann::json(number);
    }
    case PLIST_STRING: {
        std::uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        std::string value(text ? text : "", text ? length : 0);
        if (value.find('\0') != std::string::npos || !isValidUtf8(value))
            return failure("The property list holds text that is not UTF-8 or has a NUL character");
        return nlohmann::json(std::move(value));
    }
    case PLIST_DATA: {
        std::uint64_t length = 0;
        const auto* bytes =
            reinterpret_cast<const std::uint8_t*>(plist_get_data_ptr(node, &length));
        nlohmann::json::binary_t::container_type container;
        if (bytes) container.assign(bytes, bytes + length);
        return nlohmann::json::binary(std::move(container));
    }
    case PLIST_ARRAY: {
        auto array = nlohmann::json::array();
        const auto count = plist_array_get_size(node);
        for (std::uint32_t index = 0; index < count; ++index) {
            auto item = fromPlist(plist_array_get_item(node, index), depth + 1);
            if (!item) return item;
            array.push_back(std::move(*item));
        }
        return array;
    }
    case PLIST_DICT: {
        auto object = nlohmann::json::object();
        plist_dict_iter iterator = nullptr;
        plist_dict_new_iter(node, &iterator);
        if (!iterator) return object;
        for (;;) {
            plist_t item = nullptr;
            plist_dict_next_item(node, iterator, nullptr, &item);
            if (!item) break;
            auto name = keyText(plist_dict_item_get_key(item));
            if (!name) {
                std::free(iterator);
                return tl::unexpected(name.error());
            }
            auto converted = fromPlist(item, depth + 1);
            if (!converted) {
                std::free(iterator);
                return converted;
            }
            object[*name] = std::move(*converted);
        }
        std::free(iterator);
        return object;
    }
    default:
        break;
    }
    return failure("The property list holds a value of an unsupported kind");
}

} // namespace

tl::expected<std::string, Error> encodeBinaryPropertyList(const nlohmann::ordered_json& value) {
    auto root = toPlist(value, 0);
    if (!root) return tl::unexpected(root.error());
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(root->get(), &bytes, &length);
    std::unique_ptr<char, BinaryFree> owned(bytes);
    if (!bytes || length == 0) return failure("The property list could not be written");
    return std::string(bytes, length);
}

tl::expected<nlohmann::json, Error> decodePropertyList(std::string_view bytes) {
    if (bytes.empty()) return failure("The file is empty");
    if (bytes.size() > config::maximumPropertyListBytes)
        return failure("The file is too large to be a document");
    if (auto nesting = checkBinaryNesting(bytes); !nesting) return tl::unexpected(nesting.error());
    plist_t root = nullptr;
    plist_from_memory(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &root);
    if (!root) return failure("The data is not a property list");
    Plist owned(root);
    return fromPlist(root, 0);
}

DictionaryFields::DictionaryFields(const Json& json, std::string where)
    : json_(json), where_(std::move(where)) {}

tl::expected<const nlohmann::json*, Error> DictionaryFields::value(std::string_view key) const {
    if (!json_.is_object()) return failure(fmt::format("Expected a dictionary at {}", where_));
    const auto found = json_.find(key);
    if (found == json_.end())
        return failure(fmt::format("Missing value for key: {} at {}", key, where_));
    return &*found;
}

tl::expected<const nlohmann::json*, Error>
DictionaryFields::typed(std::string_view key, bool (Json::*is)() const noexcept,
                        std::string_view expected) const {
    return value(key).and_then([&](const Json* found) -> tl::expected<const Json*, Error> {
        if (!(found->*is)())
            return failure(
                fmt::format("Type mismatch for key {} at {}: expected {}", key, where_, expected));
        return found;
    });
}

tl::expected<std::string, Error> DictionaryFields::text(std::string_view key) const {
    return typed(key, &Json::is_string, "text").map([](const Json* found) {
        return found->get<std::string>();
    });
}

tl::expected<std::string, Error> DictionaryFields::cleanText(std::string_view key) const {
    return text(key).and_then([&](std::string text) -> tl::expected<std::string, Error> {
        if (!isValidUtf8(text) || text.find('\0') != std::string::npos)
            return failure(fmt::format("Invalid text for key {} at {}", key, where_));
        return text;
    });
}

tl::expected<bool, Error> DictionaryFields::flag(std::string_view key) const {
    return typed(key, &Json::is_boolean, "a boolean").map([](const Json* found) {
        return found->get<bool>();
    });
}

tl::expected<std::int64_t, Error> DictionaryFields::integer(std::string_view key) const {
    return typed(key, &Json::is_number_integer, "an integer").map([](const Json* found) {
        return found->get<std::int64_t>();
    });
}

tl::expected<const nlohmann::json*, Error> DictionaryFields::array(std::string_view key) const {
    return typed(key, &Json::is_array, "an array");
}

tl::expected<const nlohmann::json*, Error> DictionaryFields::data(std::string_view key) const {
    return typed(key, &Json::is_binary, "data");
}

tl::expected<core::Uuid, Error> DictionaryFields::uuid(std::string_view key) const {
    return text(key).and_then([&](const std::string& text) -> tl::expected<core::Uuid, Error> {
        if (auto id = core::Uuid::fromText(text)) return *id;
        return failure(fmt::format("Invalid UUID string: {} at {}", text, where_));
    });
}

tl::expected<core::Chord, Error> storedChord(const nlohmann::json& json, const std::string& where) {
    const DictionaryFields fields(json, where);
    for (const auto key : {"rootNote", "chordType", "variant"})
        if (auto found = fields.value(key); !found) return tl::unexpected(found.error());
    if (auto variant = fields.integer("variant"); !variant) return tl::unexpected(variant.error());
    if (auto type = fields.cleanText("chordType"); !type) return tl::unexpected(type.error());
    auto chord = core::chordFromJson(json);
    if (!chord) return failure(fmt::format("{} at {}", chord.error().message, where));
    return chord;
}

} // namespace fq::documents
