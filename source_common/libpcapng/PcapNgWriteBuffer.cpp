#include "PcapNgWriteBuffer.h"

#include <cstring>
#include <utility>

#include "PcapNgFormat.h"
#include "log/KELogging.h"

namespace flowlane {

using namespace kestrelon;
using namespace pcapng;

namespace {

// Counts the blocks of a buffer from an offset on.
unsigned CountBlocks(const KEBufferBlock& buffer, std::size_t offset) {
    unsigned count = 0;
    for (; offset < buffer.mDataLength; offset += LengthOfBlock(buffer.mBuffer + offset)) {
        ++count;
    }
    return count;
}

} // namespace

void PcapNgWriteBuffer::Start() {
    if (mBuffer.mBufferSize < Size) {
        mBuffer = KEBufferBlock(Size);
    }
    mBuffer.mDataLength = 0;
    mBytesOnDisk = 0;
    mUnfinished = {};
}

KESTATUS PcapNgWriteBuffer::Append(KEStdFileStream& file, KEBufferBlock& blocks) noexcept {
    if (blocks.mDataLength == 0) {
        return KESTATUS_SUCCESS;
    }
    if (mBuffer.mBufferSize - mBuffer.mDataLength < blocks.mDataLength) {
        const KESTATUS st = Write(file);
        if (st != KESTATUS_SUCCESS) {
            return st;
        }
    }
    if (mBuffer.mBufferSize < blocks.mDataLength) {
        std::swap(mBuffer, blocks);
        return KESTATUS_SUCCESS;
    }
    std::memcpy(mBuffer.mBuffer + mBuffer.mDataLength, blocks.mBuffer, blocks.mDataLength);
    mBuffer.mDataLength += std::exchange(blocks.mDataLength, 0);
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgWriteBuffer::Write(KEStdFileStream& file) noexcept {
    if (mBuffer.mDataLength == 0) {
        return KESTATUS_SUCCESS;
    }
    const std::size_t written = file.WriteToFile(mBuffer.mBuffer, mBuffer.mDataLength);
    mBytesOnDisk += written;
    if (written == mBuffer.mDataLength) {
        mBuffer.mDataLength = 0;
        mUnfinished = {};
        return KESTATUS_SUCCESS;
    }
    NoteWhereWritingEnded(written);
    mBuffer.mDataLength -= written;
    std::memmove(mBuffer.mBuffer, mBuffer.mBuffer + written, mBuffer.mDataLength);
    return KESTATUS_WRITE_FILE_FAILED;
}

// Finds the block in which the written bytes at the start of the buffer end.
void PcapNgWriteBuffer::NoteWhereWritingEnded(std::size_t written) noexcept {
    if (written < mUnfinished.rest) {
        mUnfinished.written += written;
        mUnfinished.rest -= written;
        return;
    }
    std::size_t block = mUnfinished.rest;
    while (block < written && block + LengthOfBlock(mBuffer.mBuffer + block) <= written) {
        block += LengthOfBlock(mBuffer.mBuffer + block);
    }
    mUnfinished.written = written - block;
    mUnfinished.rest = block == written ? 0 : block + LengthOfBlock(mBuffer.mBuffer + block) - written;
}

unsigned PcapNgWriteBuffer::GiveUp(KEStdFileStream& file, const KEBufferBlock& blocks) noexcept {
    const unsigned lost =
        (mUnfinished.rest != 0 ? 1 : 0) + CountBlocks(mBuffer, mUnfinished.rest) + CountBlocks(blocks, 0);
    if (mUnfinished.written != 0) {
        // If this fails, readers can still read the blocks before.
        static_cast<void>(file.TruncateFile(static_cast<std::size_t>(mBytesOnDisk) - mUnfinished.written));
    }
    mBuffer.mDataLength = 0;
    mUnfinished = {};
    return lost;
}

} // namespace flowlane
