#include "segment/RingMerge.h"

#include <algorithm>

#include "common/Clock.h"

namespace quayside2::segment {

namespace {

// A frame that was passed over this often is next, whatever its time. Two full rings of the shortest
// frames hold fewer, so this happens only when a sender's clock was wrong.
constexpr std::uint32_t cMaxPassedOver = 2 * cRingBytes / RecordBytes(cMinFrameBytes);

} // namespace

RingMerge::RingMerge(const SegmentPort& port) {
    for (std::uint32_t sender = 0; sender < cPortCount; ++sender) {
        if (sender != port.Number()) {
            mReaders.emplace_back(port.RingOf(sender), port.Control().senders[sender],
                                  port.OwnReceiver().cursors[sender].position);
        }
    }
}

void RingMerge::Start() noexcept {
    mLastTime = 0;
    for (RingReader& reader : mReaders) {
        reader.Start();
    }
}

bool RingMerge::HasData() const noexcept {
    return std::any_of(mReaders.begin(), mReaders.end(),
                       [](const RingReader& reader) { return reader.HasData(); });
}

void RingMerge::ReleaseSenders() noexcept {
    for (RingReader& reader : mReaders) {
        reader.ReleaseSender();
    }
}

bool RingMerge::Peek(Frame& frame) noexcept {
    mChosen = ChooseReader();
    if (mChosen) {
        frame = {mChosen->Time(), mChosen->Length(), false};
    }
    return mChosen;
}

// A loss is known when the frame behind it is looked at.
std::uint32_t RingMerge::TakeLoss() noexcept {
    return mChosen ? mChosen->TakeLoss() : 0;
}

bool RingMerge::Take(std::uint8_t* to) noexcept {
    return mChosen->Take(to);
}

// The reader whose frame is next, or null.
RingReader* RingMerge::ChooseReader() noexcept {
    RingReader* chosen = nullptr;
    for (RingReader& reader : mReaders) {
        if (!reader.Peek()) {
            continue;
        }
        if (reader.PassedOver() >= cMaxPassedOver) {
            return &reader;
        }
        if (!chosen || reader.Time() < chosen->Time()) {
            if (chosen) {
                chosen->PassOver();
            }
            chosen = &reader;
        } else {
            reader.PassOver();
        }
    }
    return chosen;
}

std::uint64_t RingMerge::DeliveryTime(std::uint64_t time) noexcept {
    // The last time is past for every clock that was not set back since, however late this frame was sent.
    if (time < mLastTime && TimeOfDay() >= mLastTime) {
        time = mLastTime;
    }
    mLastTime = time;
    return time;
}

} // namespace quayside2::segment
