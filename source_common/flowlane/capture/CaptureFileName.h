// How the files of a recording are named, for the capture that makes them and the replay that reads them:
// "name.pcapng" for a single file, "name_00001.pcapng", "name_00002.pcapng", ... for a set.
#ifndef FLOWLANE_CAPTUREFILENAME_H
#define FLOWLANE_CAPTUREFILENAME_H

#include <cstdint>
#include <string>

#include "text/KEFormatter.h"

namespace flowlane {

constexpr const char* cCaptureFileExtension = ".pcapng";

// What stands between the name and the extension of a file of a set: "_" and a number of five digits or more.
inline std::string CaptureFileNumber(std::uint32_t number) {
    return kestrelon::KEStdStringFormat("_{:05}", number);
}

} // namespace flowlane

#endif
