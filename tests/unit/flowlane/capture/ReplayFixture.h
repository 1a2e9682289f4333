// A reader that replays files of hand-made blocks through the fake device, in virtual time.
#ifndef FLOWLANE_TESTS_REPLAYFIXTURE_H
#define FLOWLANE_TESTS_REPLAYFIXTURE_H

#include <string>
#include <vector>

#include "ByteList.h"
#include "FakeDeviceTest.h"
#include "LogCapture.h"
#include "ReplayBlocks.h"
#include "TemporaryFolder.h"
#include "VirtualClock.h"
#include "capture/PcapNgFileReader.h"

namespace testsupport {

class ReplayTest : public FakeDeviceTest {
protected:
    using State = flowlane::PcapNgFileReader::State;
    using Statistics = flowlane::PcapNgFileReader::Statistics;

    ReplayTest() { OpenToSend(); }

    void Write(const std::string& name, const ByteList& bytes) const {
        mFolder.Write(name, {bytes.begin(), bytes.end()});
    }
    KESTATUS Start(const std::string& name = "file.pcapng") {
        return mReader.StartFileReader((mFolder / name).c_str(), mStartFileIndex, mDevice, mFrameCount, 1522,
                                       mReplaceSrcMacAddr, mReadFileSet, mLoopMode, mIsStopRequested);
    }
    // Waits until the replay has ended by itself.
    void WaitForEnd();
    // Replays a file to its end.
    void Replay(const ByteList& bytes);

    // The numbers of the packets sent, from their last bytes.
    std::vector<unsigned> SentPackets() const;
    Statistics Stats() const;

    TemporaryFolder mFolder;
    LogCapture mLog;
    VirtualClock mClock;
    flowlane::PcapNgFileReader mReader{mClock};
    unsigned mStartFileIndex = 1;
    unsigned mFrameCount = 100;
    bool mReplaceSrcMacAddr = false;
    bool mReadFileSet = false;
    bool mLoopMode = false;
    flowlane::PcapNgFileReader::StopCheck mIsStopRequested;
};

} // namespace testsupport

#endif
