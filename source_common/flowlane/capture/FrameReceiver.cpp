#include "capture/FrameReceiver.h"

#include <utility>

#include "base/LogCons.h"
#include "log/KELogging.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr std::uint32_t cReportInterval = 1000; // ms
constexpr int cReceiveTimeout = 1000;           // ms
constexpr unsigned cFramesPerClockRead = 64;

KESTATUS LogFailedReception(const char* format, KESTATUS st) {
    KEOutputFailure(logger::Cons, format, st);
    return KEOutputFailure(logger::Cons, "WriteReceivedFramesToFile failed, st={}.", st);
}

} // namespace

FrameReceiver::FrameReceiver(QuaysideDevice& device, PcapNgFileWriter& writer, unsigned frameSize,
                             TickCount tickCount)
    : mDevice(device),
      mWriter(writer),
      mFrameSize(frameSize),
      mSpareBuffer(std::make_unique<unsigned char[]>(frameSize)),
      mTickCount(std::move(tickCount)) {}

KESTATUS FrameReceiver::WriteReceivedFramesToFile(const Report& report, const StopCheck& isStopRequested) {
    mLastReport = mTickCount();
    for (KESTATUS failure = KESTATUS_SUCCESS;;) {
        if (IsReportDue()) {
            report();
            mLastReport = mTickCount();
            if (isStopRequested()) {
                return failure == KESTATUS_SUCCESS ? TakeReceivedFrames() : failure;
            }
        }
        if (failure != KESTATUS_SUCCESS) {
            return failure;
        }
        const KESTATUS st = mDevice.WaitForRawFrame(cReceiveTimeout);
        if (st == KESTATUS_SUCCESS) {
            failure = TakeReceivedFrames();
        } else if (st != KESTATUS_TIMEOUT) {
            failure = KEOutputFailure(logger::Cons, "WaitForRawFrame failed, st={}.", st);
        }
    }
}

bool FrameReceiver::IsReportDue() const {
    return mTickCount() - mLastReport >= cReportInterval;
}

// Takes frames until the device has none left or the next report is due: under full load the device always
// has some left.
KESTATUS FrameReceiver::TakeReceivedFrames() {
    const PcapNgFileWriter::Batch batch(mWriter);
    while (!IsReportDue()) {
        for (unsigned i = 0; i < cFramesPerClockRead; ++i) {
            const KESTATUS st = TakeFrame();
            if (st != KESTATUS_SUCCESS) {
                return st == KESTATUS_NO_DATA ? KESTATUS_SUCCESS : st;
            }
        }
    }
    return KESTATUS_SUCCESS;
}

KESTATUS FrameReceiver::TakeFrame() {
    RawFrame* const frame = mWriter.GetRawFrame();
    unsigned char* const buffer = frame ? frame->mFrameBuffer.mData : mSpareBuffer.get();
    QBXRawFrameType type = QBXRawFrameType_Unknown;
    unsigned length = 0;
    const KESTATUS st = mDevice.GetReceivedRawFrame(&type, buffer, mFrameSize, &length);
    if (st != KESTATUS_SUCCESS) {
        Release(frame);
        return st == KESTATUS_NO_DATA ? st : LogFailedReception("GetReceivedRawFrame failed, st={}.", st);
    }
    if (!mWriter.CheckRawFrame(type, {buffer, length})) {
        Release(frame);
        return KESTATUS_SUCCESS;
    }
    if (!frame) {
        KEOutputLogMessage(logger::Global, KEWARN, "Frame pool exhausted, discard the received frame");
        mWriter.PoolUnderflowOccurred();
        return KESTATUS_SUCCESS;
    }
    frame->mFrameSize = length;
    frame->mFrameType = type;
    return HandOver(*frame);
}

KESTATUS FrameReceiver::HandOver(RawFrame& frame) {
    const KESTATUS st = mWriter.WriteRawFrame(&frame);
    if (st == KESTATUS_SUCCESS) {
        return st;
    }
    if (mWriter.ThreadStatus() != KESTATUS_SUCCESS) {
        KEOutputFailure(logger::Cons, "PCAPNG file writer has ended, st={}.", mWriter.ThreadStatus());
    }
    return LogFailedReception("WriteRawFrame failed, st={}.", st);
}

// Null is no frame.
void FrameReceiver::Release(RawFrame* frame) noexcept {
    if (frame) {
        mWriter.ReleaseRawFrame(frame);
    }
}

} // namespace flowlane
