#pragma once

// The one wrapper of PCRE2 in this subsystem: UTF-8 patterns compiled once,
// global substitution.

#include <memory>
#include <string>
#include <string_view>

namespace fq::navigation {

class Regex {
public:
    /// An invalid pattern is a programming error; it asserts and then never matches.
    explicit Regex(std::string_view pattern);
    ~Regex();
    Regex(const Regex&) = delete;
    Regex& operator=(const Regex&) = delete;
    /// Every match replaced by `replacement` (which may name groups as $1); the text
    /// as it was when it is not valid UTF-8.
    std::string replacingAll(std::string_view text, std::string_view replacement) const;

private:
    struct Code;
    std::unique_ptr<Code> code_;
};

} // namespace fq::navigation
