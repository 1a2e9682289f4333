// Opens a device by index or by friendly name, for the lane tools. Prints what went wrong.
#ifndef FLOWLANE_TESTS_LANE_OPEN_H
#define FLOWLANE_TESTS_LANE_OPEN_H

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "quayside2_api.h"

enum { LANE_TX, LANE_RX_BARE, LANE_RX_HEADER };

typedef struct LaneDevice {
    const char* tool; // for messages
    const char* name; // null: index counts
    uint32_t index;
    QBXDeviceHandle handle;
} LaneDevice;

// Prints a failed call; returns 1, the exit code of a failure.
static inline int LaneFailed(const LaneDevice* lane, const char* what, KESTATUS status) {
    fprintf(stderr, "%s: %s failed, status 0x%08x\n", lane->tool, what, (unsigned)status);
    return 1;
}

static inline int LaneFindName(LaneDevice* lane, QBXEnumerationHandle enumeration, uint32_t count) {
    for (uint32_t index = 0; index < count; ++index) {
        char name[QBX_PROPERTY_STRING_SIZE] = "";
        QBXDeviceHandle control = 0;
        const KESTATUS status = QBX_OpenControlDevice(enumeration, index, &control);
        if (status == KESTATUS_IN_USE) {
            continue;
        }
        if (status != KESTATUS_SUCCESS) {
            return LaneFailed(lane, "opening a device", status);
        }
        QBX_GetDevicePropertyString(control, QBX_PROPERTY_FRIENDLY_NAME, name, sizeof name);
        QBX_CloseDevice(control);
        if (strcmp(name, lane->name) == 0) {
            lane->index = index;
            return 0;
        }
    }
    fprintf(stderr, "%s: no free device is named %s\n", lane->tool, lane->name);
    return 1;
}

// Returns 0 and the handle in lane, or 1.
static inline int LaneOpen(LaneDevice* lane, int kind) {
    QBXEnumerationHandle enumeration = 0;
    uint32_t count = 0;
    KESTATUS status = QBX_EnumerateDevices(QBXDeviceType_any, &enumeration, &count);
    if (status != KESTATUS_SUCCESS) {
        return LaneFailed(lane, "listing the devices", status);
    }
    int result = lane->name != NULL ? LaneFindName(lane, enumeration, count) : 0;
    if (result == 0) {
        if (kind == LANE_TX) {
            status =
                QBX_OpenRawTxDevice(enumeration, lane->index, 0, QBXRawHeaderType_None, &lane->handle, 0);
        } else {
            const QBXRawHeaderType type = kind == LANE_RX_HEADER ? QBXRawHeaderType_2 : QBXRawHeaderType_None;
            status = QBX_OpenRawRxDevice(enumeration, lane->index, 0, type, &lane->handle, 0);
        }
        if (status != KESTATUS_SUCCESS) {
            result = LaneFailed(lane, "opening the device", status);
        }
    }
    QBX_CloseEnumeration(enumeration);
    return result;
}

// Reads a decimal number; anything else ends the program.
static inline uint64_t LaneNumber(const LaneDevice* lane, const char* text) {
    char* end = NULL;
    errno = 0;
    const unsigned long long value = strtoull(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || *text == '-') {
        fprintf(stderr, "%s: %s is not a number\n", lane->tool, text);
        exit(1);
    }
    return value;
}

#endif
