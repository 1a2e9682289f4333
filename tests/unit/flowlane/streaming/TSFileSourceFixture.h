// A file source in virtual time, with a sink that records what it is given.
#ifndef FLOWLANE_TESTS_TSFILESOURCEFIXTURE_H
#define FLOWLANE_TESTS_TSFILESOURCEFIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "VirtualClock.h"
#include "WaitUntil.h"
#include "streaming/RecordingSink.h"
#include "streaming/TSFileSource.h"
#include "streaming/TSStream.h"

namespace testsupport {

constexpr std::int64_t cMs = 1000000; // in nanoseconds
constexpr std::int64_t cStart = VirtualClock::cStart.time_since_epoch().count();

class TSFileSourceTest : public testing::Test {
protected:
    KESTATUS Create(const char* path, bool rewindFile, unsigned packets) {
        return mSource.CreateTSFileSource(path, mSink, rewindFile, packets);
    }
    testing::AssertionResult WaitForMessage(const std::string& part) {
        using namespace kestrelon;
        return WaitUntil(
            [&] { return mLog.CountContaining(KEINFO, part) + mLog.CountContaining(KEERROR, part) != 0; },
            [&] { return mLog.Messages(); });
    }
    std::vector<std::uint32_t> Ordinals() const {
        std::vector<std::uint32_t> ordinals;
        for (const Delivery& delivery : mSink.mDeliveries) {
            ordinals.push_back(delivery.ordinal);
        }
        return ordinals;
    }

    VirtualClock mClock;
    RecordingSink mSink{mClock};
    LogCapture mLog;
    flowlane::TSFileSource mSource{mClock};
};

// Ten packets in 100 ms, and the one with the last PCR: eleven in the segment, 9.09 ms each.
inline const TSStream cTenPackets = TSStream().PCR(0).Plain(9).PCR(9000);

} // namespace testsupport

#endif
