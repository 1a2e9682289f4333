// The statistics of a stage while they are counted: a RelaxedCounter for each field of a record. The record
// is the only list of the fields. Its members are all std::uint64_t, and say what they count:
//
//     struct Statistics { std::uint64_t infFramesSent = 0; ... };
//     StatisticsCounters<Statistics> mStats;
//     mStats.Add(&Statistics::infFramesSent);
//
// Each field is raised by one thread. Any thread reads them.
#ifndef FLOWLANE_STATISTICSCOUNTERS_H
#define FLOWLANE_STATISTICSCOUNTERS_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <type_traits>

#include "base/RelaxedCounter.h"

namespace flowlane {

template <typename Record>
class StatisticsCounters {
public:
    using Field = std::uint64_t Record::*;
    static constexpr std::size_t cFieldCount = sizeof(Record) / sizeof(std::uint64_t);
    using Values = std::array<std::uint64_t, cFieldCount>;

    // For the thread that counts the field.
    void Add(Field field, std::uint64_t count = 1) noexcept { mCounters[IndexOf(field)].Add(count); }
    void Subtract(Field field, std::uint64_t count) noexcept { mCounters[IndexOf(field)].Subtract(count); }

    // For any thread.
    std::uint64_t Value(Field field) const noexcept { return mCounters[IndexOf(field)].Value(); }
    // The fields are read one after the other, so those that are being counted may not fit together.
    Record Snapshot() const noexcept {
        Values values;
        for (std::size_t i = 0; i < cFieldCount; ++i) {
            values[i] = mCounters[i].Value();
        }
        return std::bit_cast<Record>(values);
    }

    void Clear() noexcept {
        for (RelaxedCounter& counter : mCounters) {
            counter.Clear();
        }
    }

private:
    static_assert(std::is_standard_layout_v<Record> && sizeof(Record) == sizeof(Values));

    static std::size_t IndexOf(Field field) noexcept {
        static constexpr Record sRecord{};
        const auto* const start = reinterpret_cast<const unsigned char*>(&sRecord);
        const auto* const member = reinterpret_cast<const unsigned char*>(&(sRecord.*field));
        return static_cast<std::size_t>(member - start) / sizeof(std::uint64_t);
    }

    std::array<RelaxedCounter, cFieldCount> mCounters;
};

// The sum of all fields of a record.
template <typename Record>
std::uint64_t SumOfFields(const Record& record) noexcept {
    const auto values = std::bit_cast<typename StatisticsCounters<Record>::Values>(record);
    return std::accumulate(values.begin(), values.end(), std::uint64_t{0});
}

} // namespace flowlane

#endif
