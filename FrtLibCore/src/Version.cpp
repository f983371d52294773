#include "fq/core/ChordEngine.h"

namespace fq::core {

std::string_view appVersion() {
    return FQ_VERSION;
}
std::string_view appBuild() {
    return FQ_BUILD_NUMBER;
}

} // namespace fq::core
