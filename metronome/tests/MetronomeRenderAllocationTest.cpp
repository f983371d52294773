// The render step allocates nothing: every allocation through operator new on a
// thread that is rendering is counted, whatever the sound, tempo or block size.

#include "fq/metronome/MetronomeAudioUnitManager.h"

#include <fq/audio/OfflineRender.h>

#include <asio/io_context.hpp>
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
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
#pragma GCC diagnostic pop

namespace fq::metronome {
namespace {

TEST(MetronomeRenderAllocationTest, RenderingClicksAllocatesNothing) {
    audio::ManualTimeline timeline;
    audio::SharedAudioEngine engine{timeline};
    engine.enableManualRenderingMode();
    asio::io_context main;
    MetronomeAudioUnitManager manager(engine, main.get_executor());
    manager.setUp();
    main.poll();
    ASSERT_NE(manager.audioUnit(), nullptr);
    auto& unit = *manager.audioUnit();
    manager.tickRelay().setHandler([](int, int) {});
    unit.setOnTick(&manager.tickRelay());
    unit.bpmParameter.setValue(240);
    unit.subdivisionParameter.setValue(8);
    manager.start();

    std::vector<float> left(4096), right(4096);
    int blocks = 0;
    for (const float sound : {0.0f, 1.0f, 2.0f, 3.0f, 9.0f}) {
        unit.soundParameter.setValue(sound);
        for (const std::size_t frames : {1u, 64u, 256u, 4096u, 1000u}) {
            for (int i = 0; i < 20; ++i) {
                counting = true;
                engine.renderOffline(std::span(left).first(frames), std::span(right).first(frames),
                                     timeline.now());
                counting = false;
                ++blocks;
                manager.tickRelay().drain();
            }
        }
        unit.muteParameter.setValue(unit.muteParameter.value() > 0 ? 0.0f : 1.0f);
    }
    manager.stop();
    counting = true;
    engine.renderOffline(std::span(left).first(256), std::span(right).first(256), timeline.now());
    counting = false;
    EXPECT_EQ(blocks, 500);
    EXPECT_EQ(allocations.load(), 0);
}

} // namespace
} // namespace fq::metronome
