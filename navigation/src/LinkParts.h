#pragma once

// A link taken apart by uriparser: what the custom-scheme hosts need to read.

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fq::navigation {

struct LinkParts {
    std::string scheme;                    ///< lower case
    std::string host;                      ///< lower case
    std::vector<std::string> pathSegments; ///< percent-decoded, empty ones left out
    std::vector<std::pair<std::string, std::string>> queryItems; ///< decoded, in order
};

/// None for text that is not a URI.
std::optional<LinkParts> linkParts(std::string_view url);

} // namespace fq::navigation
