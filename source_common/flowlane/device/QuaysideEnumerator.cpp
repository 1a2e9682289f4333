#include "device/QuaysideEnumerator.h"

#include <utility>

namespace flowlane {

QuaysideEnumerator::~QuaysideEnumerator() {
    CloseIfOpen();
}

void QuaysideEnumerator::CloseIfOpen() {
    if (mHandle != 0) {
        static_cast<void>(CloseEnumeration()); // the handle is given up whatever the status
    }
}

KESTATUS QuaysideEnumerator::EnumerateDevices(QBXDeviceType type, unsigned& count) {
    CloseIfOpen();
    count = 0;
    QBXEnumerationHandle handle = 0;
    const KESTATUS st = QBX_EnumerateDevices(type, &handle, &count);
    if (st == KESTATUS_SUCCESS) {
        mHandle = handle;
    } else {
        count = 0;
    }
    return st;
}

KESTATUS QuaysideEnumerator::CloseEnumeration() {
    return QBX_CloseEnumeration(std::exchange(mHandle, 0));
}

} // namespace flowlane
