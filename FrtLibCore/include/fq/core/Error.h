#pragma once

#include <cstdint>
#include <string>

namespace fq {

/// What kind of failure an `Error` is, so that a caller can act on it without reading the
/// message: a front end chooses its wording or its exit status from the kind.
enum class ErrorKind : std::uint8_t {
    refused,  ///< the input breaks a rule (out of range, malformed, not allowed)
    notFound, ///< the thing named does not exist
    corrupt,  ///< stored data cannot be read back
    exists,   ///< the thing to create is already there
    device,   ///< an audio or other device failed
    io,       ///< the file system or another system call failed
};

/// A recoverable failure, carried by `tl::expected`. The message is the one-line
/// text a person sees.
struct Error {
    std::string message;
    ErrorKind kind = ErrorKind::refused;

    friend bool operator==(const Error&, const Error&) = default;
};

} // namespace fq
