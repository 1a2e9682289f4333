#include "capture/PcapNgFileSet.h"

#include "base/LogCons.h"
#include "capture/CaptureFileName.h"
#include "log/KELogging.h"

namespace flowlane {

using namespace kestrelon;

void PcapNgFileSet::SetFiles(const T_UNICHAR* fileName, unsigned startFileIndex, bool readFileSet,
                             bool loopMode) {
    mFileName = fileName;
    mStartFileIndex = startFileIndex;
    mFileNumber = startFileIndex;
    mReadFileSet = readFileSet;
    mLoopMode = loopMode;
}

KESTATUS PcapNgFileSet::OpenFirstFile() {
    mCurrentFileNumber = mFileNumber;
    mCurrentFilePath = CreateNextFilePath();
    if (!mCurrentFilePath.Exists()) {
        KEOutputLogMessage(logger::Cons, KEERROR, "File '{}' does not exist.", mCurrentFilePath);
        return KESTATUS_NOT_PRESENT;
    }
    return OpenCurrentFile();
}

KEStdPath PcapNgFileSet::CreateNextFilePath() {
    return FilePath(mFileNumber++);
}

// Empty when there is no memory for the path: opening it then fails and is reported.
KEStdPath PcapNgFileSet::FilePath(std::uint32_t number) const {
    KEStdPath path(mFileName);
    if (path.Extension().IsEmpty() && path.Concat(cCaptureFileExtension) != KESTATUS_SUCCESS) {
        return KEStdPath();
    }
    if (!mReadFileSet) {
        return path;
    }
    const std::string name = CaptureFileName(path.Stem().c_str(), number, path.Extension().c_str());
    KEStdPath ofSet = path.ParentPath();
    return ofSet.Append(name.c_str()) == KESTATUS_SUCCESS ? ofSet : KEStdPath();
}

KESTATUS PcapNgFileSet::OpenCurrentFile() {
    const KESTATUS st = mFile.OpenForRead(mCurrentFilePath.c_str());
    return st == KESTATUS_SUCCESS ? st : KEOutputFailure(logger::Global, "OpenForRead failed, st={}", st);
}

KESTATUS PcapNgFileSet::SelectNext(bool hasFrames, Next& next) {
    if (mReadFileSet) {
        const std::uint32_t number = mFileNumber;
        const KEStdPath path = CreateNextFilePath();
        if (path.Exists()) {
            mCurrentFileNumber = number;
            mCurrentFilePath = path;
            next = Next::File;
            return KESTATUS_SUCCESS;
        }
    }
    if (!hasFrames) {
        KEOutputLogMessage(logger::Global, KEERROR,
                           mReadFileSet ? "file(s) does not contain any valid frames"
                                        : "file does not contain any valid frames");
        return KESTATUS_INVALID_FILE;
    }
    if (!mLoopMode) {
        next = Next::End;
        return KESTATUS_SUCCESS;
    }
    if (mReadFileSet) {
        mFileNumber = mStartFileIndex;
        mCurrentFileNumber = mStartFileIndex;
        mCurrentFilePath = CreateNextFilePath();
    }
    next = Next::Pass;
    return KESTATUS_SUCCESS;
}

KESTATUS PcapNgFileSet::OpenSelected() {
    return mReadFileSet ? OpenCurrentFile() : mFile.RewindFile();
}

} // namespace flowlane
