// The one wrapper of PCRE2, in UTF mode.

#define PCRE2_CODE_UNIT_WIDTH 8
#include "Pcre.h"

#include <pcre2.h>

#include <cassert>

namespace fq::navigation {

struct Regex::Code {
    pcre2_code* code = nullptr;
    ~Code() { pcre2_code_free(code); }
};

Regex::Regex(std::string_view pattern) : code_(std::make_unique<Code>()) {
    int error = 0;
    PCRE2_SIZE offset = 0;
    code_->code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                                PCRE2_UTF | PCRE2_UCP, &error, &offset, nullptr);
    assert(code_->code && "invalid regular expression");
}

Regex::~Regex() = default;

std::string Regex::replacingAll(std::string_view text, std::string_view replacement) const {
    if (!code_->code) return std::string(text);
    std::string output(text.size() * 2 + 64, '\0');
    for (int attempt = 0; attempt < 2; ++attempt) {
        PCRE2_SIZE length = output.size();
        const int result = pcre2_substitute(
            code_->code, reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), 0,
            PCRE2_SUBSTITUTE_GLOBAL | PCRE2_SUBSTITUTE_OVERFLOW_LENGTH, nullptr, nullptr,
            reinterpret_cast<PCRE2_SPTR>(replacement.data()), replacement.size(),
            reinterpret_cast<PCRE2_UCHAR*>(output.data()), &length);
        if (result >= 0) {
            output.resize(length);
            return output;
        }
        if (result != PCRE2_ERROR_NOMEMORY) break;
        output.assign(length + 1, '\0'); // the length needed was reported
    }
    return std::string(text);
}

} // namespace fq::navigation
