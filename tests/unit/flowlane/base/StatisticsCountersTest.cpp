// Counters of a record's fields: each is counted for itself, and read by its name.

#include "base/StatisticsCounters.h"

#include <gtest/gtest.h>

#include <cstdint>

using namespace flowlane;

namespace {

struct Record {
    std::uint64_t first = 0;
    std::uint64_t second = 0;
    std::uint64_t third = 0;
};

TEST(StatisticsCountersTest, BeginsWithZeros) {
    const StatisticsCounters<Record> counters;
    EXPECT_EQ(counters.cFieldCount, 3u);
    EXPECT_EQ(SumOfFields(counters.Snapshot()), 0u);
}

TEST(StatisticsCountersTest, EachFieldIsCountedForItself) {
    StatisticsCounters<Record> counters;
    counters.Add(&Record::first);
    counters.Add(&Record::second, 20);
    counters.Add(&Record::second);
    counters.Add(&Record::third, UINT64_MAX);
    counters.Subtract(&Record::second, 5);
    const Record record = counters.Snapshot();
    EXPECT_EQ(record.first, 1u);
    EXPECT_EQ(record.second, 16u);
    EXPECT_EQ(counters.Value(&Record::second), 16u);
    EXPECT_EQ(record.third, UINT64_MAX);
    EXPECT_EQ(SumOfFields(record), 16u); // modulo 2^64
}

TEST(StatisticsCountersTest, ClearSetsAllToZero) {
    StatisticsCounters<Record> counters;
    counters.Add(&Record::first, 1);
    counters.Add(&Record::second, 2);
    counters.Add(&Record::third, 3);
    counters.Clear();
    const Record record = counters.Snapshot();
    EXPECT_EQ(record.first, 0u);
    EXPECT_EQ(record.second, 0u);
    EXPECT_EQ(record.third, 0u);
}

} // namespace
