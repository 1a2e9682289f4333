#include "PcapNgFile.h"

#include <cstdio>
#include <cstring>
#include <utility>

#include "base/KEByteOrder.h"
#include "log/KELogging.h"

namespace flowlane {

using namespace kestrelon;
using namespace pcapng;

namespace {

// A block that is longer than this, or that does not end at a multiple of four, is damaged rather than cut
// short.
constexpr std::uint64_t cMaxUsualLength = 64u << 20;

} // namespace

PcapNgFile::PcapNgFile(PcapNgFile&& other) noexcept
    : mFile(std::move(other.mFile)),
      mFileBuffer(std::move(other.mFileBuffer)),
      mWriteBuffer(std::move(other.mWriteBuffer)),
      mFileSize(std::exchange(other.mFileSize, 0)),
      mBlocksLost(std::exchange(other.mBlocksLost, 0)),
      mReadFault(std::exchange(other.mReadFault, ReadFault::None)) {}

PcapNgFile& PcapNgFile::operator=(PcapNgFile&& other) noexcept {
    if (this != &other) {
        CloseFile();
        mFile = std::move(other.mFile);
        mFileBuffer = std::move(other.mFileBuffer);
        mWriteBuffer = std::move(other.mWriteBuffer);
        mFileSize = std::exchange(other.mFileSize, 0);
        mBlocksLost = std::exchange(other.mBlocksLost, 0);
        mReadFault = std::exchange(other.mReadFault, ReadFault::None);
    }
    return *this;
}

KESTATUS PcapNgFile::OpenForWrite(const T_UNICHAR* path, const PcapNgSectionHeaderBlock& shb,
                                  const PcapNgInterfaceDescBlock& idb) {
    CloseFile();
    KESTATUS st = mFile.OpenFile(path, "wb");
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, KE_FUNCTION_TAG, "OpenFile failed, st={}", st);
    }
    mFile.DisableBuffering();
    if (mFileBuffer.mBufferSize < FileBufferSize) {
        mFileBuffer = KEBufferBlock(FileBufferSize);
    }
    mWriteBuffer.Start();
    st = shb.AddToBuffer(mFileBuffer);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, KE_FUNCTION_TAG, "AddToBuffer(SHB) failed, st={}", st);
    }
    st = idb.AddToBuffer(mFileBuffer);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, KE_FUNCTION_TAG, "AddToBuffer(IDB) failed, st={}", st);
    }
    mFileSize += mFileBuffer.mDataLength;
    st = FlushFileBuffer();
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, KE_FUNCTION_TAG, "FlushFileBuffer failed, st={}", st);
    }
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgFile::OpenForRead(const T_UNICHAR* path) {
    CloseFile();
    KESTATUS st = mFile.OpenFile(path, "rb");
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, KE_FUNCTION_TAG, "OpenFile failed, st={}", st);
    }
    st = MeasureFile(mFileSize);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    if (mFileSize == 0) {
        KEOutputLogMessage(logger::Global, KEERROR, KE_FUNCTION_TAG, "file is empty");
        return KESTATUS_NO_DATA;
    }
    return mFile.RewindFile();
}

// Leaves the position at the end.
KESTATUS PcapNgFile::MeasureFile(std::uint64_t& size) noexcept {
    KESTATUS st = mFile.SeekToEnd();
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, KE_FUNCTION_TAG, "SeekToEnd failed, st={}", st);
    }
    std::size_t position = 0;
    st = mFile.Tell(position);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, KE_FUNCTION_TAG, "Tell failed, st={}", st);
    }
    size = position;
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgFile::WriteBlock(const PcapNgBlockBase& block) {
    const std::uint64_t length = block.TotalBlockLength();
    if (mFileBuffer.mBufferSize - mFileBuffer.mDataLength < length) {
        const KESTATUS st = FlushFileBuffer(Target::WriteBuffer);
        if (st != KESTATUS_SUCCESS) {
            return KEOutputFailure(logger::Global, KE_FUNCTION_TAG, "FlushFileBuffer failed, st={}", st);
        }
    }
    const std::size_t gathered = mFileBuffer.mDataLength;
    const KESTATUS st = block.AddToBuffer(mFileBuffer);
    if (st != KESTATUS_SUCCESS) {
        mFileBuffer.mDataLength = gathered;
        return KEOutputFailure(logger::Global, KE_FUNCTION_TAG, "AddToBuffer failed, st={}", st);
    }
    mFileSize += length;
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgFile::FlushFileBuffer(Target target) noexcept {
    KESTATUS st = mWriteBuffer.Append(mFile, mFileBuffer);
    if (st == KESTATUS_SUCCESS && target == Target::File) {
        st = mWriteBuffer.Write(mFile);
    }
    if (st != KESTATUS_SUCCESS) {
        KEOutputLogMessage(logger::Global, KEERROR, KE_FUNCTION_TAG, "WriteToFile failed");
    }
    return st;
}

void PcapNgFile::CloseFile() {
    mBlocksLost = 0;
    if (mFile.IsOpen()) {
        const KESTATUS st = FlushFileBuffer();
        if (st != KESTATUS_SUCCESS) {
            KEOutputFailure(logger::Global, KE_FUNCTION_TAG, "FlushFileBuffer failed, st={}", st);
            mBlocksLost = mWriteBuffer.GiveUp(mFile, mFileBuffer);
        }
        mFile.CloseFile();
    }
    mFileBuffer.mDataLength = 0;
    mFileSize = 0;
}

KESTATUS PcapNgFile::ReadNextBlock(KEBufferBlock& block) {
    block.mDataLength = 0;
    mReadFault = ReadFault::None;
    unsigned char header[cBlockHeaderSize];
    const std::size_t headerLength = mFile.ReadFromFile(header, sizeof header);
    if (headerLength < sizeof header) {
        if (mFile.IsEndOfFile()) {
            return KESTATUS_NO_DATA;
        }
        KEOutputLogMessage(logger::Global, KEERROR, KE_FUNCTION_TAG, "read incomplete header with {} bytes",
                           headerLength);
        mReadFault = ReadFault::System;
        return KESTATUS_INVALID_FILE;
    }
    const std::size_t length = LengthOfBlock(header);
    if (length < cBlockHeaderSize) {
        return FailIncomplete(KE_FUNCTION_TAG, cBlockHeaderSize, length);
    }
    if (length > mFileSize) {
        // The length may be damaged. Memory is allocated only for what there is to read.
        std::uint64_t available = 0;
        const KESTATUS st = MeasureRest(available);
        if (st != KESTATUS_SUCCESS) {
            mReadFault = ReadFault::System;
            return st;
        }
        if (length - cBlockHeaderSize > available) {
            static_cast<void>(mFile.SeekToEnd());
            return FailIncomplete(KE_FUNCTION_TAG, cBlockHeaderSize + available, length);
        }
    }
    if (block.mBufferSize < length) {
        block = KEBufferBlock(length);
    }
    std::memcpy(block.mBuffer, header, sizeof header);
    const std::size_t bodyLength = mFile.ReadFromFile(block.mBuffer + sizeof header, length - sizeof header);
    if (bodyLength < length - sizeof header) {
        return FailIncomplete(KE_FUNCTION_TAG, cBlockHeaderSize + bodyLength, length);
    }
    block.mDataLength = length;
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgFile::FailIncomplete(const KELogMsgHeaderTag& function, std::uint64_t length,
                                    std::uint64_t expected) noexcept {
    KEOutputLogMessage(logger::Global, KEERROR, function,
                       "read incomplete block with {} bytes, exp. {} bytes", length, expected);
    if (SystemError() != KESTATUS_SUCCESS) {
        mReadFault = ReadFault::System;
    } else if (expected < cBlockHeaderSize || expected > cMaxUsualLength || expected != Padded(expected)) {
        mReadFault = ReadFault::Damaged;
    } else {
        mReadFault = ReadFault::CutShort;
    }
    return KESTATUS_INVALID_FILE;
}

// Counts the bytes from the position to the end of the file. The position stays.
KESTATUS PcapNgFile::MeasureRest(std::uint64_t& rest) noexcept {
    std::size_t position = 0;
    KESTATUS st = mFile.Tell(position);
    if (st != KESTATUS_SUCCESS) {
        return KEOutputFailure(logger::Global, KE_FUNCTION_TAG, "Tell failed, st={}", st);
    }
    std::uint64_t size = 0;
    st = MeasureFile(size);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    rest = size > position ? size - position : 0;
    return mFile.Seek(static_cast<long>(position), SEEK_SET);
}

} // namespace flowlane
