// Starts of the writer and the reader for which the system has no thread or event.

#include <gtest/gtest.h>

#include <cerrno>

#include "FakeDeviceTest.h"
#include "LogCapture.h"
#include "ReplayBlocks.h"
#include "SystemCallFaults.h"
#include "TemporaryFolder.h"
#include "capture/PcapNgFileReader.h"
#include "capture/PcapNgFileWriter.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;

namespace {

constexpr KESTATUS cTryAgain = 0xE001000B; // EAGAIN
constexpr KESTATUS cNoMemory = 0xE001000C; // ENOMEM

class PcapNgStartFailureTest : public FakeDeviceTest {
protected:
    // Fails with the status and the line, and leaves the writer so that it can be started.
    void ExpectWriterFailure(const char* call, int error, KESTATUS status, const char* line) {
        OpenToReceive(QBXRawHeaderType_2);
        PcapNgFileWriter writer;
        const auto start = [&] {
            return writer.StartFileWriter((mFolder / "file").c_str(), mDevice, 10, 1538, 0);
        };
        {
            const SystemCallFault fault(call, error);
            EXPECT_EQ(start(), status);
            EXPECT_TRUE(fault.IsDelivered());
        }
        EXPECT_EQ(mLog.Count(KEERROR, line), 1u);
        EXPECT_EQ(writer.GetRawFrame(), nullptr); // the pool is gone
        mLog.Clear();
        EXPECT_EQ(start(), KESTATUS_SUCCESS);
        EXPECT_NE(writer.GetRawFrame(), nullptr);
        EXPECT_EQ(mLog.CountContaining(KEERROR, ""), 0u);
    }

    const TemporaryFolder mFolder;
    LogCapture mLog;
};

TEST_F(PcapNgStartFailureTest, WriterWithoutAnEvent) {
    ExpectWriterFailure("pthread_cond_init", ENOMEM, cNoMemory,
                        "InitQueue failed, st=0xe001000c(KESTATUS_LINUX_ENOMEM)");
}

TEST_F(PcapNgStartFailureTest, WriterWithoutAThread) {
    ExpectWriterFailure("pthread_create", EAGAIN, cTryAgain,
                        "CreateThread failed, st=0xe001000b(KESTATUS_LINUX_EAGAIN)");
}

TEST_F(PcapNgStartFailureTest, ReaderWithoutAThread) {
    OpenToSend();
    const ByteList bytes = FileOf(Packet(1));
    mFolder.Write("file.pcapng", {bytes.begin(), bytes.end()});
    PcapNgFileReader reader;
    const auto start = [&] {
        return reader.StartFileReader((mFolder / "file").c_str(), 1, mDevice, 10, 1522, false, false, false);
    };
    {
        const SystemCallFault fault("pthread_create", EAGAIN);
        EXPECT_EQ(start(), cTryAgain);
        EXPECT_TRUE(fault.IsDelivered());
    }
    EXPECT_EQ(mLog.Count(KEERROR, "CreateThread failed, st=0xe001000b(KESTATUS_LINUX_EAGAIN)"), 1u);
    mLog.Clear();
    EXPECT_EQ(start(), KESTATUS_SUCCESS);
    reader.StopFileReader();
    EXPECT_EQ(mLog.CountContaining(KEFATAL, ""), 0u); // no frame was left out of the pool
    EXPECT_EQ(mLog.CountContaining(KEERROR, ""), 0u);
}

} // namespace
