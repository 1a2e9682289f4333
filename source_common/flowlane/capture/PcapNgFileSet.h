// The file of a replay, or the numbered set of files, in the order in which they are read: which file comes
// first, and what follows the end of a file. One file is open at a time.
//
// One thread at a time. Failures are logged on Global, a first file that does not exist on Cons.
#ifndef FLOWLANE_PCAPNGFILESET_H
#define FLOWLANE_PCAPNGFILESET_H

#include <cstdint>
#include <string>

#include "PcapNgFile.h"
#include "base/KEBuffer.h"
#include "files/KEStdPath.h"
#include "kestatus.h"
#include "text/KEUnicode.h"

namespace flowlane {

class PcapNgFileSet {
public:
    // What follows the end of a file.
    enum class Next {
        File, // the next file of a set
        Pass, // the only file, or the first file of the set, once more
        End   // nothing
    };

    // fileName and the flags are those of PcapNgFileReader::StartFileReader. Throws std::bad_alloc.
    void SetFiles(const kestrelon::T_UNICHAR* fileName, unsigned startFileIndex, bool readFileSet,
                  bool loopMode);

    //   KESTATUS_NOT_PRESENT  the file does not exist
    // Other failures are those of PcapNgFile::OpenForRead.
    [[nodiscard]] KESTATUS OpenFirstFile();

    // Says what follows the end of the open file, and selects it. hasFrames: some frame was read in this
    // pass.
    //   KESTATUS_INVALID_FILE  the pass is at its end and had no frame; next is unchanged
    [[nodiscard]] KESTATUS SelectNext(bool hasFrames, Next& next);
    // Goes to the start of what SelectNext has selected. Failures are those of PcapNgFile.
    [[nodiscard]] KESTATUS OpenSelected();

    // A file of the set by its number. The only file has every number.
    kestrelon::KEStdPath FilePath(std::uint32_t number) const;
    std::uint32_t CurrentFileNumber() const noexcept { return mCurrentFileNumber; }
    bool IsSet() const noexcept { return mReadFileSet; }

    // See PcapNgFile.
    [[nodiscard]] KESTATUS ReadNextBlock(kestrelon::KEBufferBlock& block) {
        return mFile.ReadNextBlock(block);
    }
    PcapNgFile::ReadFault LastReadFault() const noexcept { return mFile.LastReadFault(); }
    [[nodiscard]] KESTATUS SystemError() const noexcept { return mFile.SystemError(); }
    void CloseFile() { mFile.CloseFile(); }

private:
    [[nodiscard]] KESTATUS OpenCurrentFile();
    kestrelon::KEStdPath CreateNextFilePath();

    std::string mFileName;
    std::uint32_t mStartFileIndex = 0;
    std::uint32_t mFileNumber = 0; // of the next file of a set
    std::uint32_t mCurrentFileNumber = 0;
    bool mReadFileSet = false;
    bool mLoopMode = false;
    kestrelon::KEStdPath mCurrentFilePath;
    PcapNgFile mFile;
};

} // namespace flowlane

#endif
