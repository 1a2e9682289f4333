#include "capture/RawFrameSender.h"

#include "base/KEBuffer.h"
#include "log/KELogging.h"

namespace flowlane {

using namespace kestrelon;

KESTATUS RawFrameSender::SendFrames(RawFrameTimePoint now) {
    bool isSubmitted = false;
    while (mFramesToSent.Head() && mFramesToSent.Head()->SendTime() <= now) {
        RawFrame* const frame = mFramesToSent.RemoveHead();
        const KESTATUS st = SubmitFrame(*frame);
        mFramePool.PutRawFrame(frame);
        if (st != KESTATUS_SUCCESS) {
            return KEOutputFailure(logger::Global, "SubmitFrame failed, st={}", st);
        }
        isSubmitted = true;
    }
    return isSubmitted ? FlushDevice() : KESTATUS_SUCCESS;
}

KESTATUS RawFrameSender::SubmitFrame(const RawFrame& frame) {
    const KEConstBufferReference data = frame.FrameData();
    const auto length = static_cast<unsigned>(data.mLength);
    mLastSubmitted = {frame.mOrigin, frame.mFrameSize};
    KESTATUS st = mDevice->CheckSubmitRawFrame(length);
    if (st == KESTATUS_NO_SPACE) {
        st = FlushDevice();
        if (st != KESTATUS_SUCCESS) {
            return st;
        }
    } else if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "CheckSubmitRawFrame failed, st={}", st);
    }
    st = mDevice->SubmitRawFrame(data.mData, length, nullptr);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, "SubmitRawFrame failed, st={}", st);
    }
    mStats.Add(&PcapNgReaderStatistics::infFramesSent);
    return KESTATUS_SUCCESS;
}

KESTATUS RawFrameSender::FlushDevice() {
    const KESTATUS st = mDevice->SendRawFrames();
    return st == KESTATUS_SUCCESS ? st : KEOutputFailure(logger::Global, "SendRawFrames failed, st={}", st);
}

void RawFrameSender::ClearSendList() noexcept {
    while (RawFrame* const frame = mFramesToSent.RemoveHead()) {
        mFramePool.PutRawFrame(frame);
    }
}

} // namespace flowlane
