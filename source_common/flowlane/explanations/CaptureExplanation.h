// Why a capture cannot write its files, and what files of an earlier capture mean for it. On the main thread.
// All throw std::bad_alloc.
#ifndef FLOWLANE_CAPTUREEXPLANATION_H
#define FLOWLANE_CAPTUREEXPLANATION_H

#include <cstdint>
#include <string>
#include <vector>

#include "capture/PcapNgFileWriter.h"
#include "device/QuaysideDevice.h"
#include "kestatus.h"

namespace flowlane {

// Why writing failed, as a part of a sentence: "the disk is full". Pure.
std::string WriteFailureWords(KESTATUS st);

// Prints a line about a failed PcapNgFileWriter::StartFileWriter. frameSize: bytes, receive header included.
void ExplainFailedCaptureStart(const PcapNgFileWriter& writer, KESTATUS st, std::uint32_t frameCount,
                               std::uint32_t frameSize);

// The numbers of the files of an earlier capture whose set has the same name. To be asked before the new
// capture makes its first file. baseName: the name of the set, with its folder.
std::vector<std::uint32_t> NumbersOfEarlierCapture(const std::string& baseName);
// Prints a line about them if there are any.
void ExplainEarlierCapture(const std::string& baseName, const std::vector<std::uint32_t>& numbers);

// Prints a line about a writer whose thread has ended.
void ExplainEndedWriter(const PcapNgFileWriter& writer);

// Tells once when writing begins to fail, and once when it works again.
class WriteFailureWatch {
public:
    // Prints a line when that has changed since the last call. A writer that has ended is not its matter.
    void Look(const PcapNgFileWriter& writer);
    // The same for the time behind StopFileWriter: frames may have been lost since the last look.
    void LookAtEnd(const PcapNgFileWriter& writer);

private:
    std::uint64_t mLostBefore = 0; // when writing worked last
    bool mIsFailing = false;
};

// Prints a line when received frames were lost before they reached the writer. frameSize: bytes of the
// longest frame that is recorded.
void ExplainLostFrames(const PcapNgWriterStatistics& statistics, std::uint32_t frameCount,
                       std::uint32_t frameSize);

// Prints a line about a device, which no other thread uses. what: what it does or does not, as "cannot
// receive".
void ExplainReceiveFailure(const QuaysideDevice& device, const char* what, KESTATUS st);

} // namespace flowlane

#endif
