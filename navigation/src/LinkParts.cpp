// A link split into scheme, host, path segments and query items by uriparser.

#include "LinkParts.h"

#include "Unicode.h"

#include <uriparser/Uri.h>

#include <memory>

namespace fq::navigation {
namespace {

std::string_view range(const UriTextRangeA& text) {
    if (!text.first || !text.afterLast) return {};
    return {text.first, static_cast<std::size_t>(text.afterLast - text.first)};
}

std::string decoded(std::string_view text) {
    std::string result(text);
    result.resize(static_cast<std::size_t>(uriUnescapeInPlaceA(result.data()) - result.data()));
    return unicode::isValidUtf8(result) ? result : std::string(text);
}

} // namespace

std::optional<LinkParts> linkParts(std::string_view url) {
    // uriparser reads up to a NUL: a link with one inside is not a link
    if (url.find('\0') != std::string_view::npos) return std::nullopt;
    const std::string text(url);
    UriUriA uri{};
    const char* error = nullptr;
    if (uriParseSingleUriA(&uri, text.c_str(), &error) != URI_SUCCESS) return std::nullopt;
    const std::unique_ptr<UriUriA, void (*)(UriUriA*)> owner(
        &uri, [](UriUriA* u) { uriFreeUriMembersA(u); });

    LinkParts parts;
    parts.scheme = unicode::lowerCased(range(uri.scheme));
    parts.host = unicode::lowerCased(range(uri.hostText));
    for (auto* segment = uri.pathHead; segment; segment = segment->next)
        if (const auto piece = range(segment->text); !piece.empty())
            parts.pathSegments.push_back(decoded(piece));

    const auto query = range(uri.query);
    if (query.empty()) return parts;
    UriQueryListA* items = nullptr;
    int count = 0;
    // "+" stays a plus sign: a query item is not a form field
    if (uriDissectQueryMallocExA(&items, &count, query.data(), query.data() + query.size(),
                                 URI_FALSE, URI_BR_DONT_TOUCH) != URI_SUCCESS)
        return parts;
    const std::unique_ptr<UriQueryListA, void (*)(UriQueryListA*)> itemsOwner(items,
                                                                              uriFreeQueryListA);
    for (auto* item = items; item; item = item->next)
        if (item->key) parts.queryItems.emplace_back(item->key, item->value ? item->value : "");
    return parts;
}

} // namespace fq::navigation
