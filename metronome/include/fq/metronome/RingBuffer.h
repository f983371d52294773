#pragma once

// A declared single-channel ring of floats that nothing uses yet.

#include <vector>

namespace fq::metronome {

/// A single-channel ring of floats. Declared for completeness: tempo detection keeps
/// its window as whole buffers instead, and nothing uses this type.
struct RingBuffer {
    std::vector<float> buffer;
    const int capacity = 0;
    int readIndex = 0;
    int writeIndex = 0;
    int availableCount = 0;
};

} // namespace fq::metronome
