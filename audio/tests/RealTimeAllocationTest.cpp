// The render paths allocate nothing: every allocation through operator new on a
// thread that is rendering is counted. (FluidSynth allocates with malloc, which is
// not counted here; it allocates its voices when the synthesizer is made.)

#include "fq/audio/GuitarAudioEngine.h"
#include "fq/audio/OfflineRender.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
thread_local bool counting = false;
std::atomic<int> allocations{0};
} // namespace

void* operator new(std::size_t size) {
    if (counting) ++allocations;
    if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
    throw std::bad_alloc();
}
// the pair above allocates with malloc, so free is the match here
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
#pragma GCC diagnostic pop

namespace fq::audio {
namespace {

using namespace std::chrono_literals;

TEST(RealTimeAllocationTest, RenderingAStrumAllocatesNothing) {
    ManualTimeline timeline;
    SharedAudioEngine engine{timeline};
    engine.enableManualRenderingMode();
    auto guitar = GuitarAudioEngine::create(engine);
    guitar->playChord(std::vector<int>{40, 45, 50, 55, 59, 64});
    std::vector<float> left(256), right(256);
    auto time = timeline.now();
    int rendered = 0;
    for (int block = 0; block < 200; ++block) {
        // the timeline's work (the control side) may allocate; the render may not
        const auto next = time + std::chrono::duration_cast<TimelineTime>(
                                     std::chrono::duration<double>(256 / 44100.0));
        timeline.advanceTo(next);
        counting = true;
        engine.renderOffline(left, right, time);
        counting = false;
        time = next;
        ++rendered;
    }
    guitar->stopAllNotes();
    guitar->suspendForBackground();
    guitar->resumeAfterActivation(false);
    counting = true;
    engine.renderOffline(left, right, time);
    counting = false;
    EXPECT_EQ(rendered, 200);
    EXPECT_EQ(allocations.load(), 0);
}

} // namespace
} // namespace fq::audio
