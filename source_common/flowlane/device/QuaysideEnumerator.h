// The list of the connected devices: owns an enumeration of the device library and closes it at the end. Its
// instances have the indexes 0 to count - 1. The operations return the library's status unchanged. One thread
// at a time.
#ifndef FLOWLANE_QUAYSIDEENUMERATOR_H
#define FLOWLANE_QUAYSIDEENUMERATOR_H

#include "quayside2_api.h"

namespace flowlane {

class QuaysideEnumerator {
public:
    QuaysideEnumerator() = default;
    ~QuaysideEnumerator();
    QuaysideEnumerator(const QuaysideEnumerator&) = delete;
    QuaysideEnumerator& operator=(const QuaysideEnumerator&) = delete;

    // First closes an enumeration that is still open. count is 0 on failure.
    [[nodiscard]] KESTATUS EnumerateDevices(QBXDeviceType type, unsigned& count);
    // No enumeration is open afterwards, whatever the status.
    [[nodiscard]] KESTATUS CloseEnumeration();

    // 0 when no enumeration is open.
    QBXEnumerationHandle Handle() const noexcept { return mHandle; }

private:
    void CloseIfOpen();

    QBXEnumerationHandle mHandle = 0;
};

} // namespace flowlane

#endif
