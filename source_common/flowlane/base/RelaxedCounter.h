// A counter that one thread changes and any thread reads: a field of statistics. It needs no locked
// instruction, so it costs nothing on a hot path. A reader sees whole values, maybe a little late.
#ifndef FLOWLANE_RELAXEDCOUNTER_H
#define FLOWLANE_RELAXEDCOUNTER_H

#include <atomic>
#include <cstdint>

namespace flowlane {

class RelaxedCounter {
public:
    // For the counting thread alone.
    void Add(std::uint64_t count = 1) noexcept { Set(Value() + count); }
    void Subtract(std::uint64_t count) noexcept { Set(Value() - count); }
    void Set(std::uint64_t value) noexcept { mValue.store(value, std::memory_order_relaxed); }
    void Clear() noexcept { Set(0); }

    std::uint64_t Value() const noexcept { return mValue.load(std::memory_order_relaxed); }

private:
    std::atomic<std::uint64_t> mValue{0};
};

} // namespace flowlane

#endif
