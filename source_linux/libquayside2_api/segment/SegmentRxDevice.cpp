#include "segment/SegmentRxDevice.h"

#include <algorithm>

#include "common/Clock.h"
#include "common/ReceiveHeader.h"
#include "segment/Futex.h"

namespace quayside2::segment {

namespace {

// A waiting receiver looks by itself this often, against a sender that died between sending and waking.
constexpr std::int64_t cWaitSlice = 100 * cNanosecondsPerMillisecond;

// How many frames one call skips because the buffer is too small, before it answers "no data".
constexpr int cMaxSkips = 1024;

// A frame that was passed over this often is next, whatever its time. Two full rings of the shortest
// frames hold fewer, so this happens only when a sender's clock was wrong.
constexpr std::uint32_t cMaxPassedOver = 2 * cRingBytes / RecordBytes(cMinFrameBytes);

} // namespace

SegmentRxDevice::SegmentRxDevice(const DeviceProperties& properties, bool receiveHeader,
                                 std::unique_ptr<SegmentPort> port)
    : mProperties(properties),
      mHeaderBytes(receiveHeader ? QBX_RAW_HEADER_2_SIZE : 0),
      mPort(std::move(port)),
      mEpoch(mPort->OwnReceiver().epoch.load(std::memory_order_relaxed) & ~1u) {
    for (std::uint32_t sender = 0; sender < cPortCount; ++sender) {
        if (sender != mPort->Number()) {
            mReaders.emplace_back(mPort->RingOf(sender), mPort->Control().senders[sender],
                                  mPort->OwnReceiver().cursors[sender].position);
        }
    }
}

SegmentRxDevice::~SegmentRxDevice() {
    if (mEpoch.load(std::memory_order_relaxed) % 2 == 1) {
        ChangeEpoch();
    }
}

// As far as frames have been taken: what is lost is known when the next frame is looked at.
KESTATUS SegmentRxDevice::GetLostFrames(std::uint64_t& count) {
    const std::lock_guard lock(mMutex);
    count = mSequence.Lost();
    return KESTATUS_SUCCESS;
}

KESTATUS SegmentRxDevice::EnableRawRx() {
    const std::lock_guard lock(mMutex);
    if (mEpoch.load(std::memory_order_relaxed) % 2 == 0) {
        mSequence.Start();
        mLastTime = 0;
        for (RingReader& reader : mReaders) {
            reader.Start();
        }
        ChangeEpoch();
    }
    return KESTATUS_SUCCESS;
}

KESTATUS SegmentRxDevice::DisableRawRx() {
    const std::lock_guard lock(mMutex);
    if (mEpoch.load(std::memory_order_relaxed) % 2 == 1) {
        ChangeEpoch();
    }
    return KESTATUS_SUCCESS;
}

// Enables or disables, for senders and for threads that wait.
void SegmentRxDevice::ChangeEpoch() noexcept {
    const std::uint32_t epoch = mEpoch.load(std::memory_order_relaxed) + 1;
    mEpoch.store(epoch, std::memory_order_release);
    mPort->OwnReceiver().epoch.store(epoch, std::memory_order_release);
    if (epoch % 2 == 0) {
        FutexWake(mPort->OwnReceiver().wakeWord);
        for (RingReader& reader : mReaders) {
            reader.ReleaseSender();
        }
    }
}

void SegmentRxDevice::Shutdown() noexcept {
    mShutdown.store(true, std::memory_order_release);
    FutexWake(mPort->OwnReceiver().wakeWord);
}

bool SegmentRxDevice::HasData() {
    const std::lock_guard lock(mMutex);
    return std::any_of(mReaders.begin(), mReaders.end(),
                       [](const RingReader& reader) { return reader.HasData(); });
}

// Whether a wait that began in an epoch may go on.
KESTATUS SegmentRxDevice::WaitState(std::uint32_t epoch) const noexcept {
    if (mShutdown.load(std::memory_order_acquire)) {
        return KESTATUS_INVALID_HANDLE;
    }
    const bool goOn = epoch % 2 == 1 && mEpoch.load(std::memory_order_acquire) == epoch;
    return goOn ? KESTATUS_SUCCESS : KESTATUS_NOT_ENABLED;
}

KESTATUS SegmentRxDevice::WaitForRawFrame(std::int32_t timeoutMs) {
    const std::uint32_t epoch = mEpoch.load(std::memory_order_acquire);
    KESTATUS status = WaitState(epoch);
    if (status != KESTATUS_SUCCESS || HasData()) {
        return status;
    }
    if (timeoutMs == 0) {
        return KESTATUS_TIMEOUT;
    }
    const std::int64_t deadline = DeadlineAfter(timeoutMs);
    ReceiverState& shared = mPort->OwnReceiver();
    for (;;) {
        const std::uint32_t word = shared.wakeWord.load(std::memory_order_acquire);
        shared.sleeping.store(1, std::memory_order_relaxed);
        // A sender sends and looks for sleepers then; the other way round here.
        std::atomic_thread_fence(std::memory_order_seq_cst);
        status = WaitState(epoch);
        if (status != KESTATUS_SUCCESS || HasData()) {
            return status;
        }
        const std::int64_t now = SteadyNow();
        if (now >= deadline) {
            return KESTATUS_TIMEOUT;
        }
        FutexWait(shared.wakeWord, word, std::min(cWaitSlice, deadline - now));
    }
}

// The reader whose frame is next, or null.
RingReader* SegmentRxDevice::ChooseReader() noexcept {
    RingReader* chosen = nullptr;
    for (RingReader& reader : mReaders) {
        if (!reader.Peek()) {
            continue;
        }
        if (reader.PassedOver() >= cMaxPassedOver) {
            return &reader;
        }
        if (chosen == nullptr || reader.Time() < chosen->Time()) {
            if (chosen != nullptr) {
                chosen->PassOver();
            }
            chosen = &reader;
        } else {
            reader.PassOver();
        }
    }
    return chosen;
}

KESTATUS SegmentRxDevice::GetReceivedRawFrame(QBXRawFrameType& type, std::uint8_t* buffer,
                                              std::uint32_t bufferSize, std::uint32_t& receivedLength) {
    const std::lock_guard lock(mMutex);
    const KESTATUS status = WaitState(mEpoch.load(std::memory_order_relaxed));
    if (status != KESTATUS_SUCCESS) {
        return status;
    }
    if (bufferSize < mHeaderBytes) {
        return KESTATUS_BUFFER_TOO_SMALL;
    }
    for (int skips = 0; skips < cMaxSkips; ++skips) {
        RingReader* const reader = ChooseReader();
        const bool isReady = reader != nullptr;
        if (isReady) {
            mSequence.Lose(reader->TakeLoss());
        }
        if (mHeaderBytes != 0 && mSequence.IsIdleDue(isReady)) {
            type = QBXRawFrameType_Idle;
            receivedLength = WriteItem(buffer, isReady ? reader->Time() : TimeOfDay(), 0);
            return KESTATUS_SUCCESS;
        }
        if (!isReady) {
            break;
        }
        const std::uint32_t length = reader->Length();
        const std::uint64_t time = reader->Time();
        if (length > bufferSize - mHeaderBytes) {
            if (reader->Skip()) {
                mSequence.Skip();
            }
        } else if (reader->Take(buffer + mHeaderBytes)) {
            type = QBXRawFrameType_Data;
            receivedLength = WriteItem(buffer, time, length);
            return KESTATUS_SUCCESS;
        }
    }
    return KESTATUS_NO_DATA;
}

// Numbers what is delivered now and writes its header. Returns its length.
std::uint32_t SegmentRxDevice::WriteItem(std::uint8_t* buffer, std::uint64_t time,
                                         std::uint32_t frameBytes) noexcept {
    const std::uint32_t sequence = mSequence.Take();
    if (mHeaderBytes != 0) {
        time = DeliveryTime(time);
        WriteReceiveHeader(buffer, time / cNanosecondsPerSecond,
                           static_cast<std::uint32_t>(time % cNanosecondsPerSecond), sequence);
    }
    return mHeaderBytes + frameBytes;
}

// The time with which a frame is delivered that was stamped with this one.
std::uint64_t SegmentRxDevice::DeliveryTime(std::uint64_t time) noexcept {
    // The last time is past for every clock that was not set back since, however late this frame was sent.
    if (time < mLastTime && TimeOfDay() >= mLastTime) {
        time = mLastTime;
    }
    mLastTime = time;
    return time;
}

} // namespace quayside2::segment
