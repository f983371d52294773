#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <optional>
#include <type_traits>

namespace fq::audio {

/// A bounded queue between one writer and one reader, either of which may be the
/// audio thread: no allocation after construction, no lock, and push and pop finish
/// in a fixed number of steps. Several writers may share one only by taking turns
/// under a lock of their own, so that at any moment there is one writer.
///
/// Threads: push from the writer, pop from the reader, size from either.
template <typename T, std::size_t Capacity>
class SpscQueue {
    static_assert(Capacity >= 2 && (Capacity & (Capacity - 1)) == 0, "a power of two");
    static_assert(std::is_nothrow_copy_assignable_v<T> &&
                  std::is_nothrow_default_constructible_v<T>);

public:
    static constexpr std::size_t capacity = Capacity;

    /// False when the queue is full; the item is then not queued.
    bool push(const T& item) noexcept {
        const auto tail = tail_.load(std::memory_order_relaxed);
        if (tail - head_.load(std::memory_order_acquire) == Capacity) return false;
        slots_[tail & (Capacity - 1)] = item;
        tail_.store(tail + 1, std::memory_order_release);
        return true;
    }

    std::optional<T> pop() noexcept {
        const auto head = head_.load(std::memory_order_relaxed);
        if (head == tail_.load(std::memory_order_acquire)) return std::nullopt;
        T item = slots_[head & (Capacity - 1)];
        head_.store(head + 1, std::memory_order_release);
        return item;
    }

    /// A snapshot: exact only for a thread that neither pushes nor pops meanwhile.
    std::size_t size() const noexcept {
        return tail_.load(std::memory_order_acquire) - head_.load(std::memory_order_acquire);
    }
    bool empty() const noexcept { return size() == 0; }

private:
    // apart, so that the reader and writer do not share a cache line
    alignas(64) std::atomic<std::size_t> head_{0};
    alignas(64) std::atomic<std::size_t> tail_{0};
    alignas(64) std::array<T, Capacity> slots_{};
};

} // namespace fq::audio
