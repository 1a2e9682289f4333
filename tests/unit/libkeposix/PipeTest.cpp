// The pipe: waking its reader, closing its ends, failures.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "KEPosixPipe.h"
#include "LogExpect.h"
#include "SystemCallFaults.h"

using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

bool IsReadable(const KEPosixPipe& pipe) {
    pollfd readable = {pipe.ReadEnd(), POLLIN, 0};
    return poll(&readable, 1, 0) == 1 && (readable.revents & POLLIN) != 0;
}

bool IsOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

class PipeTest : public testing::TestWithParam<bool> {
protected:
    LogCapture mLog;
    KEPosixPipe mPipe;
};

TEST_P(PipeTest, CarriesWakeUps) {
    EXPECT_EQ(mPipe.ReadEnd(), -1);
    EXPECT_EQ(mPipe.WriteEnd(), -1);
    ASSERT_EQ(mPipe.CreatePipe(GetParam()), KESTATUS_SUCCESS);
    for (const int end : {mPipe.ReadEnd(), mPipe.WriteEnd()}) {
        EXPECT_EQ((fcntl(end, F_GETFL) & O_NONBLOCK) != 0, GetParam());
        EXPECT_EQ(fcntl(end, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    }
    EXPECT_FALSE(IsReadable(mPipe));
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(mPipe.WriteChar('w'), KESTATUS_SUCCESS);
    }
    EXPECT_TRUE(IsReadable(mPipe));
    EXPECT_EQ(mPipe.ReadUntilEmpty(), KESTATUS_SUCCESS);
    EXPECT_FALSE(IsReadable(mPipe));
    EXPECT_EQ(mPipe.ReadUntilEmpty(), KESTATUS_SUCCESS); // does not wait, blocking or not
    EXPECT_EQ(mPipe.WriteChar('x'), KESTATUS_SUCCESS);
    char character = 0;
    EXPECT_EQ(read(mPipe.ReadEnd(), &character, 1), 1);
    EXPECT_EQ(character, 'x');
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_P(PipeTest, ReadsToTheEndWhenTheWriteEndIsClosed) {
    ASSERT_EQ(mPipe.CreatePipe(GetParam()), KESTATUS_SUCCESS);
    EXPECT_EQ(mPipe.WriteChar('w'), KESTATUS_SUCCESS);
    mPipe.CloseWriteEnd();
    EXPECT_EQ(mPipe.ReadUntilEmpty(), KESTATUS_SUCCESS);
    EXPECT_EQ(mPipe.ReadUntilEmpty(), KESTATUS_SUCCESS);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(BlockingModes, PipeTest, testing::Bool());

TEST_F(PipeTest, ClosesItsEnds) {
    ASSERT_EQ(mPipe.CreatePipe(true), KESTATUS_SUCCESS);
    const int readEnd = mPipe.ReadEnd();
    const int writeEnd = mPipe.WriteEnd();
    mPipe.CloseReadEnd();
    EXPECT_EQ(mPipe.ReadEnd(), KEPosixPipe::InvalidFileDescriptor);
    EXPECT_FALSE(IsOpen(readEnd));
    EXPECT_TRUE(IsOpen(writeEnd));
    EXPECT_EQ(mPipe.ReadUntilEmpty(), KESTATUS_NOT_OPENED);
    mPipe.CloseWriteEnd();
    EXPECT_EQ(mPipe.WriteEnd(), -1);
    EXPECT_FALSE(IsOpen(writeEnd));
    EXPECT_EQ(mPipe.WriteChar('w'), KESTATUS_NOT_OPENED);
    mPipe.ClosePipe();
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(PipeTest, TheDestructorClosesBothEnds) {
    int ends[2];
    {
        KEPosixPipe pipe;
        ASSERT_EQ(pipe.CreatePipe(false), KESTATUS_SUCCESS);
        ends[0] = pipe.ReadEnd();
        ends[1] = pipe.WriteEnd();
    }
    EXPECT_FALSE(IsOpen(ends[0]));
    EXPECT_FALSE(IsOpen(ends[1]));
}

TEST_F(PipeTest, ASecondCreationIsRefused) {
    ASSERT_EQ(mPipe.CreatePipe(true), KESTATUS_SUCCESS);
    const int readEnd = mPipe.ReadEnd();
    EXPECT_EQ(mPipe.CreatePipe(true), KESTATUS_ALREADY_DONE);
    EXPECT_EQ(mPipe.ReadEnd(), readEnd);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEPosixPipe::CreatePipe", "already created")));
}

struct FailingCall {
    const char* call;
    unsigned skip;
    const char* message;
};

class PipeCreationFailureTest : public testing::TestWithParam<FailingCall> {};

TEST_P(PipeCreationFailureTest, IsLoggedAndLeavesBothEndsClosed) {
    const LogCapture log;
    KEPosixPipe pipe;
    const SystemCallFault fault(GetParam().call, EMFILE, GetParam().skip);
    EXPECT_EQ(pipe.CreatePipe(true), KESTATUS{0xE0010018});
    EXPECT_TRUE(fault.IsDelivered());
    EXPECT_THAT(log.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEPosixPipe::CreatePipe", GetParam().message)));
    EXPECT_EQ(pipe.ReadEnd(), -1);
    EXPECT_EQ(pipe.WriteEnd(), -1);
}

INSTANTIATE_TEST_SUITE_P(Calls, PipeCreationFailureTest,
                         testing::Values(FailingCall{"pipe2", 0, "pipe failed, err=24"},
                                         FailingCall{"fcntl", 0, "fcntl(read end) failed, err=24"},
                                         FailingCall{"fcntl", 1, "fcntl(read end) failed, err=24"},
                                         FailingCall{"fcntl", 2, "fcntl(write end) failed, err=24"},
                                         FailingCall{"fcntl", 3, "fcntl(write end) failed, err=24"}));

TEST_F(PipeTest, ABlockingPipeIsNotSwitched) {
    const SystemCallFault fault("fcntl", EINVAL);
    EXPECT_EQ(mPipe.CreatePipe(false), KESTATUS_SUCCESS);
    EXPECT_FALSE(fault.IsDelivered());
}

TEST_F(PipeTest, AFullPipeIsAStatus) {
    ASSERT_EQ(mPipe.CreatePipe(true), KESTATUS_SUCCESS);
    KESTATUS st = KESTATUS_SUCCESS;
    for (int i = 0; i < 2000000 && st == KESTATUS_SUCCESS; ++i) {
        st = mPipe.WriteChar('w');
    }
    EXPECT_EQ(st, KESTATUS{0xE001000B});
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEPosixPipe::WriteChar", "write failed, err=11")));
    EXPECT_EQ(mPipe.ReadUntilEmpty(), KESTATUS_SUCCESS);
    EXPECT_EQ(mPipe.WriteChar('w'), KESTATUS_SUCCESS);
}

TEST_F(PipeTest, WritingWithoutAReaderRaisesNoSignal) {
    ASSERT_EQ(mPipe.CreatePipe(true), KESTATUS_SUCCESS);
    mPipe.CloseReadEnd();
    EXPECT_EQ(mPipe.WriteChar('w'), KESTATUS{0xE0010020});
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEPosixPipe::WriteChar", "write failed, err=32")));
}

TEST_F(PipeTest, InterruptionsAreNoFailures) {
    ASSERT_EQ(mPipe.CreatePipe(true), KESTATUS_SUCCESS);
    {
        const SystemCallFault fault("write", EINTR);
        EXPECT_EQ(mPipe.WriteChar('w'), KESTATUS_SUCCESS);
        EXPECT_TRUE(fault.IsDelivered());
    }
    {
        const SystemCallFault fault("read", EINTR);
        EXPECT_EQ(mPipe.ReadUntilEmpty(), KESTATUS_SUCCESS);
        EXPECT_TRUE(fault.IsDelivered());
    }
    EXPECT_FALSE(IsReadable(mPipe));
    EXPECT_THAT(mLog.Messages(), IsEmpty());
}

TEST_F(PipeTest, AFailingReadIsLoggedAndMapped) {
    ASSERT_EQ(mPipe.CreatePipe(true), KESTATUS_SUCCESS);
    ASSERT_EQ(mPipe.WriteChar('w'), KESTATUS_SUCCESS);
    const SystemCallFault fault("read", EIO);
    EXPECT_EQ(mPipe.ReadUntilEmpty(), KESTATUS{0xE0010005});
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEPosixPipe::ReadUntilEmpty", "read failed, err=5")));
}

TEST_F(PipeTest, AFailingCloseIsLogged) {
    ASSERT_EQ(mPipe.CreatePipe(true), KESTATUS_SUCCESS);
    ASSERT_EQ(close(mPipe.ReadEnd()), 0); // behind its back
    mPipe.CloseReadEnd();
    EXPECT_EQ(mPipe.ReadEnd(), -1);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "KEPosixPipe::CloseEnd", "close failed, err=9")));
}

} // namespace
