#pragma once

#include <string>

namespace fq {

/// A recoverable failure, carried by `tl::expected`. The message is the one-line
/// text a person sees.
struct Error {
    std::string message;

    friend bool operator==(const Error&, const Error&) = default;
};

} // namespace fq
