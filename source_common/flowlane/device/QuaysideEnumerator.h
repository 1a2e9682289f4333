// The list of the connected devices: owns an enumeration of the device library and closes it at the end.
// Instances are addressed by index, 0 to count - 1. For one thread at a time.
#ifndef FLOWLANE_QUAYSIDEENUMERATOR_H
#define FLOWLANE_QUAYSIDEENUMERATOR_H

#include "quayside2_api.h"

namespace flowlane {

// The operations return the library's status unchanged.
class QuaysideEnumerator {
public:
    QuaysideEnumerator() = default;
    ~QuaysideEnumerator();
    QuaysideEnumerator(const QuaysideEnumerator&) = delete;
    QuaysideEnumerator& operator=(const QuaysideEnumerator&) = delete;

    // Closes an enumeration that is still open first. count is 0 on failure.
    [[nodiscard]] KESTATUS EnumerateDevices(QBXDeviceType type, unsigned& count);
    // Afterwards there is none, whatever the status.
    [[nodiscard]] KESTATUS CloseEnumeration();

    // 0 when there is none.
    QBXEnumerationHandle Handle() const noexcept { return mHandle; }

private:
    void CloseIfOpen();

    QBXEnumerationHandle mHandle = 0;
};

} // namespace flowlane

#endif
