#include "explanations/CaptureExplanation.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "capture/CaptureFileName.h"
#include "device/RawReceiveHeader.h"
#include "explanations/CaptureFileNumbers.h"
#include "explanations/DeviceName.h"
#include "explanations/Explain.h"
#include "explanations/FileExplanation.h"
#include "explanations/StatusWords.h"
#include "files/KEStdPath.h"

namespace flowlane {

using namespace kestrelon;

namespace {

int ErrnoOf(KESTATUS st) {
    constexpr KESTATUS cErrnoMask = 0xFFFF;
    return (st & ~cErrnoMask) == KESTATUS_LINUX_BASE ? static_cast<int>(st & cErrnoMask) : 0;
}

std::string FolderOf(const std::string& path) {
    const std::string folder = KEStdPath(path).ParentPath().c_str();
    return folder.empty() ? "." : folder;
}

bool Exists(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0;
}

void ExplainFileThatCannotBeMade(const std::string& path, KESTATUS st) {
    const std::string folder = FolderOf(path);
    const int error = ErrnoOf(st);
    if (error == ENOENT && !Exists(folder)) {
        Explain("There is no folder '{}'. Make it with: mkdir -p {}", ShortPath(folder),
                BareCommandPath(folder, "FOLDER"));
    } else if (error == EISDIR) {
        Explain("'{}' is a folder. Choose another name for the capture.", ShortPath(path));
    } else if ((error == EACCES || error == EPERM) && Exists(path)) {
        Explain("You are not allowed to write the existing file '{}'. Choose another name.", ShortPath(path));
    } else if (error == EACCES || error == EPERM) {
        Explain("You are not allowed to make files in the folder '{}'. Choose another folder.",
                ShortPath(folder));
    } else {
        Explain("'{}' cannot be written: {}.", ShortPath(path),
                error == ENOENT ? StatusWords(st) : WriteFailureWords(st));
    }
}

} // namespace

std::string WriteFailureWords(KESTATUS st) {
    switch (ErrnoOf(st)) {
    case ENOSPC:
        return "the disk is full";
    case EDQUOT:
        return "your disk quota is used up";
    case EFBIG:
        return "the file has reached the largest size that is allowed (ulimit -f); -maxmb makes smaller "
               "files";
    case EROFS:
        return "the file system is read-only";
    case ENOENT:
        return "its folder does not exist";
    case EISDIR:
        return "there is a folder of this name";
    default:
        return StatusWords(st);
    }
}

void ExplainFailedCaptureStart(const PcapNgFileWriter& writer, KESTATUS st, std::uint32_t frameCount,
                               std::uint32_t frameSize) {
    if (writer.WriteStatus() != KESTATUS_SUCCESS) {
        ExplainFileThatCannotBeMade(writer.FileName(), writer.WriteStatus());
    } else if (st == KESTATUS_INVALID_PARAMETER) {
        Explain(
            "-fbs {} is too much: {} frame buffers of {} bytes fill the greatest possible memory of 4 GiB.",
            frameCount, UINT32_MAX / frameSize, frameSize);
    } else if (st == KESTATUS_NO_MEMORY) {
        Explain(
            "There is not enough memory for {} frame buffers of {} bytes. Give a smaller number with -fbs.",
            frameCount, frameSize);
    } else {
        Explain("The system refuses: {}.", StatusWords(st));
    }
}

std::vector<std::uint32_t> NumbersOfEarlierCapture(const std::string& baseName) {
    const std::size_t name = baseName.find_last_of('/') + 1; // 0 when there is no folder
    return FileNumbersOnDisk(baseName.substr(0, name), baseName.substr(name), cCaptureFileExtension);
}

void ExplainEarlierCapture(const std::string& baseName, const std::vector<std::uint32_t>& numbers) {
    if (!numbers.empty()) {
        Explain(
            "'{}' has files of an earlier capture, with the numbers {}. New files replace them; those that "
            "are left may follow the new ones in a replay.",
            ShortPath(baseName), RangesText(numbers));
    }
}

void ExplainEndedWriter(const PcapNgFileWriter& writer) {
    Explain("The capture has ended, because the next file '{}' cannot be written: {}.",
            ShortPath(writer.FileName()), WriteFailureWords(writer.WriteStatus()));
}

void WriteFailureWatch::Look(const PcapNgFileWriter& writer) {
    if (writer.ThreadStatus() != KESTATUS_SUCCESS) {
        return;
    }
    PcapNgWriterStatistics statistics;
    writer.QuerryStatistics(statistics);
    const std::uint64_t lost = statistics.errWriteFileFailed;
    const KESTATUS st = writer.WriteStatus();
    if (st != KESTATUS_SUCCESS && !mIsFailing) {
        mIsFailing = true;
        Explain("Frames are being lost: '{}' cannot be written, because {}.", ShortPath(writer.FileName()),
                WriteFailureWords(st));
    } else if (st == KESTATUS_SUCCESS && (mIsFailing || lost > mLostBefore)) {
        mIsFailing = false;
        Explain("Writing to '{}' works again; {} frames were lost.", ShortPath(writer.FileName()),
                lost - mLostBefore);
    }
    if (!mIsFailing) {
        mLostBefore = lost;
    }
}

void WriteFailureWatch::LookAtEnd(const PcapNgFileWriter& writer) {
    PcapNgWriterStatistics statistics;
    writer.QuerryStatistics(statistics);
    const std::uint64_t lost = statistics.errWriteFileFailed;
    const KESTATUS st = writer.WriteStatus();
    if (!mIsFailing && lost > mLostBefore) {
        Explain("{} frames were lost: '{}' could not be written, because {}.", lost - mLostBefore,
                ShortPath(writer.FileName()),
                st != KESTATUS_SUCCESS ? WriteFailureWords(st) : "writing failed for a while");
    }
}

void ExplainLostFrames(const PcapNgWriterStatistics& statistics, std::uint32_t frameCount,
                       std::uint32_t frameSize) {
    constexpr std::uint32_t cMoreFrames = 10;
    if (statistics.errPoolUnderflow != 0) {
        const std::uint64_t more = std::uint64_t{frameCount == 0 ? 2000 : frameCount} * cMoreFrames;
        const std::uint64_t most = UINT32_MAX / (frameSize + rawheader::cSize);
        Explain("The disk was slower than the frames for a while. Give them more buffers, for example with: "
                "-fbs {}",
                more < most ? more : most);
    } else if (statistics.errMissingFrames != 0) {
        Explain(
            "Missing frames are longer than {} bytes, or came while the machine was too busy. -fbs with a "
            "number above {} may help against the latter.",
            frameSize, frameCount);
    }
}

void ExplainReceiveFailure(const QuaysideDevice& device, const char* what, KESTATUS st) {
    Explain("{} {}: {}.", DeviceSubject(device), what, StatusWords(st));
}

} // namespace flowlane
