#include "fq/audio/AudioSource.h"

#include <algorithm>
#include <cmath>

namespace fq::audio {

FrameTime BlockTiming::frameFor(TimelineTime time) const noexcept {
    if (time == TimelineTime::min()) return firstFrame;
    const double seconds = std::chrono::duration<double>(time - anchorTime).count();
    const auto frame = anchorFrame + static_cast<FrameTime>(std::llround(seconds * sampleRate));
    return std::max(frame, firstFrame);
}

} // namespace fq::audio
