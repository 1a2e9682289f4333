// How the files of a recording are named, for the capture that makes them and the replay that reads them:
// "name.pcapng" for a single file, "name_00001.pcapng", "name_00002.pcapng", ... for a set.
#ifndef FLOWLANE_CAPTUREFILENAME_H
#define FLOWLANE_CAPTUREFILENAME_H

#include <cstdint>
#include <string>

#include "text/KEFormatter.h"

namespace flowlane {

constexpr const char* cCaptureFileExtension = ".pcapng";

// The name of a file of a set: its number has five digits or more.
inline std::string CaptureFileName(const char* baseName, std::uint32_t number, const char* extension) {
    return kestrelon::KEStdStringFormat("{}_{:05}{}", baseName, number, extension);
}

} // namespace flowlane

#endif
