// Why the file in shared memory that a device is in cannot be used, for the user.
#ifndef FLOWLANE_DEVICEFILEEXPLANATION_H
#define FLOWLANE_DEVICEFILEEXPLANATION_H

#include <string>

#include "kestatus.h"

namespace flowlane {

// Prints one line. st: the status of opening the device. path: of the file (QBX_PROPERTY_FILE). Looks at the
// file and its folder, and opens neither. Throws std::bad_alloc.
void ExplainDeviceFile(KESTATUS st, const std::string& path);

// What the owner and the mode of a file say against its use.
enum class FileObstacle { OtherOwner, OthersMayUseIt, NoAccess };
FileObstacle ObstacleOf(unsigned owner, unsigned user, unsigned mode) noexcept;

// The name of a user in the text of /etc/passwd, or the number.
std::string UserNameIn(const std::string& passwords, unsigned user);

} // namespace flowlane

#endif
