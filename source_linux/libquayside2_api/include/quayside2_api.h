// The device interface: enumerate network devices, open one, send and receive raw Ethernet frames.
// C ABI, usable from C and C++.
//
// Handles are 32-bit numbers; 0 is no handle. They belong to the process that got them. A handle that was
// closed, that never was one, or that is another process's gives KESTATUS_INVALID_HANDLE. A child made by
// fork is another process.
//
// Threads: every function may be called from several threads at once. Frames of one transmit handle
// are sent in the order in which SubmitRawFrame took them; when several threads submit on one handle
// their frames interleave whole. A call never keeps a pointer to the caller's memory. While one thread
// waits, others can use the same handle. A thread must not be cancelled (pthread_cancel) inside a call: that
// ends the process.
//
// Status: all functions but the two version queries return a KESTATUS, 0 for success. A null pointer
// where a result is to be stored is KESTATUS_INVALID_PARAMETER. Functions with a handle also return
// KESTATUS_INVALID_HANDLE, and KESTATUS_NO_MEMORY or a code of the Linux family (kestatus.h) when the system
// fails.
//
// Frames are Ethernet frames from the destination address on, without preamble and frame check
// sequence, in wire order.
#ifndef QUAYSIDE2_API_H
#define QUAYSIDE2_API_H

#include <stdbool.h>
#include <stdint.h>

#include "kestatus.h"

// The interface version that this header describes.
#define QBX_API_VERSION_MAJOR 2u
#define QBX_API_VERSION_MINOR 20u

#if defined(__GNUC__)
#define QBX_API __attribute__((visibility("default")))
#else
#define QBX_API
#endif

// The enumerations are 32 bits wide in both languages. C++ has to be told, so that it allows values that are
// no enumerators. The library answers those with a status.
#ifdef __cplusplus
#define QBX_ENUM_U32 : uint32_t
#define QBX_ENUM_I32 : int32_t
extern "C" {
#else
#define QBX_ENUM_U32
#define QBX_ENUM_I32
#endif

// A list of devices as QBX_EnumerateDevices found them; 0 is none.
typedef uint32_t QBXEnumerationHandle;
// An opened device; 0 is none.
typedef uint32_t QBXDeviceHandle;

// What comes before each received frame.
typedef enum QBXRawHeaderType QBX_ENUM_U32 {
    QBXRawHeaderType_None = 0, // nothing: the buffer holds the bare Ethernet frame
    QBXRawHeaderType_1 = 1,    // not supported by this library
    QBXRawHeaderType_2 = 2     // a 16-byte receive header, see QBX_RAW_HEADER_2_SIZE
} QBXRawHeaderType;

// What a received item is. This library delivers data frames, and on handles with the receive header
// also idle items: a header alone, whose sequence number shows a loss that no frame has shown yet.
typedef enum QBXRawFrameType QBX_ENUM_U32 {
    QBXRawFrameType_Unknown = 0,
    QBXRawFrameType_Data = 1,
    QBXRawFrameType_Idle = 2,
    QBXRawFrameType_ExternalTrigger = 3
} QBXRawFrameType;

typedef enum QBXDeviceType QBX_ENUM_I32 {
    QBXDeviceType_any = -1 // every kind of device
} QBXDeviceType;

// The receive header of type 2, native byte order, directly before the frame:
//   offset 0   uint64_t  seconds      } since 1970-01-01 00:00:00 UTC, of the moment
//   offset 8   uint32_t  nanoseconds  } the frame was on the wire
//   offset 12  uint32_t  sequence number: counts every frame the device saw for this
//                        handle, delivered or lost, and every idle item, from 0 at each
//                        enabling, modulo 2^32; a loss shows as a gap
#define QBX_RAW_HEADER_2_SIZE 16u
#define QBX_RAW_HEADER_2_SECONDS_OFFSET 0u
#define QBX_RAW_HEADER_2_NANOSECONDS_OFFSET 8u
#define QBX_RAW_HEADER_2_SEQUENCE_OFFSET 12u

// Device properties.
#define QBX_PROPERTY_PRODUCT_STRING 0x0106u // text: product, at most 255 bytes and a zero
#define QBX_PROPERTY_MAC_ADDRESS 0x8110u    // binary: the device's own MAC address, 6 bytes in wire order
#define QBX_PROPERTY_FRIENDLY_NAME 0x8118u  // text: name of the instance, at most 255 bytes and a zero

// Properties of this library alone. Another library returns KESTATUS_NOT_FOUND.
// Text: "free", "link down" (nothing can be sent or received now), "no privilege", "in use", "in use
// (sending)" or "in use (receiving)" when the other direction is free, "removed". When the device cannot be
// opened at all, reading the property through a handle for control returns the status that opening it would
// return. Raw handles say "link down", "removed" or, when all is well, "in use", which is by themselves.
#define QBX_PROPERTY_STATE 0x81F0u
// Binary: 8 bytes, native byte order. Counts the frames that a raw handle has lost so far: submitted frames
// that could not be sent, or received frames for which the reader was too slow. Handles opened for control
// give KESTATUS_NOT_FOUND. On the virtual segment senders lose nothing: what a receiver misses is its own
// loss. It is counted when the receiver comes to the frame behind it.
#define QBX_PROPERTY_LOST_FRAMES 0x81F1u
// Text: the process that keeps others from opening the device to send (TX) or to receive (RX), for example
// "flowlane (process 1234)", at most 255 bytes and a zero. KESTATUS_NOT_FOUND when nobody does, or when the
// system does not show who: a user sees the processes of other users not at all. For handles opened for
// control; those of the virtual segment only with the environment variable QUAYSIDE2_INSPECT, since they hold
// their port themselves otherwise.
#define QBX_PROPERTY_TX_HOLDER 0x81F2u
#define QBX_PROPERTY_RX_HOLDER 0x81F3u
// Text: the path of the file in shared memory that the device is in, whether there is one already or not, at
// most 255 bytes and a zero. For handles opened for control. KESTATUS_NOT_FOUND for a network interface.
#define QBX_PROPERTY_FILE 0x81F4u

// Buffer size, terminator included, that holds every text property.
#define QBX_PROPERTY_STRING_SIZE 256u

// True when this library serves callers written for interface version major.minor: the same major
// version, and a minor version not above the library's own.
QBX_API bool QBX_CheckApiVersion(uint32_t major, uint32_t minor);

// The library's interface version: major in bits 31..16, minor in bits 15..0.
QBX_API uint32_t QBX_GetApiVersion(void);

// Lists the devices. *count gets their number. Instances have the indexes 0 to *count - 1 until the
// enumeration is closed. An empty list is a success with *count 0.
//   KESTATUS_INVALID_TYPE       type is not QBXDeviceType_any
//   KESTATUS_INVALID_PARAMETER  the environment names a virtual segment that cannot exist
//   KESTATUS_NO_RESOURCES       too many enumerations are open
QBX_API KESTATUS QBX_EnumerateDevices(QBXDeviceType type, QBXEnumerationHandle* enumeration, uint32_t* count);

// Releases an enumeration. Devices opened through it stay open.
QBX_API KESTATUS QBX_CloseEnumeration(QBXEnumerationHandle enumeration);

// Opens an instance to read its properties. A port of the virtual segment has one holder at a time, of any
// kind; a network interface has one that sends and one that receives, and any number for control. With the
// environment variable QUAYSIDE2_INSPECT opening for control takes no device.
//   KESTATUS_INVALID_INDEX  no such instance
//   KESTATUS_IN_USE         somebody holds the instance, in this or another process. A holder that opened
//                           it for control only is waited for, 200 ms at most.
//   KESTATUS_NO_RESOURCES   too many devices are open in this process
//   others                  the instance cannot be reached, see docs/device-library.md
QBX_API KESTATUS QBX_OpenControlDevice(QBXEnumerationHandle enumeration, uint32_t index,
                                       QBXDeviceHandle* device);

// Opens an instance to send raw frames. reserved1 and reserved2 are 0, headerType is
// QBXRawHeaderType_None; properties can be read through the handle too.
//   KESTATUS_INVALID_INDEX, KESTATUS_IN_USE, KESTATUS_NO_RESOURCES, others  as above
//   KESTATUS_ADMIN_PRIVILEGES_REQUIRED  a network interface, and the process lacks CAP_NET_RAW
//   KESTATUS_DEVICE_REMOVED     the device is gone since it was listed
//   KESTATUS_NOT_SUPPORTED      another header type
//   KESTATUS_INVALID_PARAMETER  reserved1 or reserved2 is not 0
QBX_API KESTATUS QBX_OpenRawTxDevice(QBXEnumerationHandle enumeration, uint32_t index, uint32_t reserved1,
                                     QBXRawHeaderType headerType, QBXDeviceHandle* device,
                                     uint32_t reserved2);

// Opens an instance to receive raw frames, not yet enabled. headerType None or 2.
//   KESTATUS_INVALID_INDEX, KESTATUS_IN_USE, KESTATUS_NO_RESOURCES, others  as above
//   KESTATUS_ADMIN_PRIVILEGES_REQUIRED  a network interface, and the process lacks CAP_NET_RAW
//   KESTATUS_DEVICE_REMOVED     the device is gone since it was listed
//   KESTATUS_NOT_SUPPORTED      header type 1 or an unknown one
//   KESTATUS_INVALID_PARAMETER  reserved1 or reserved2 is not 0
QBX_API KESTATUS QBX_OpenRawRxDevice(QBXEnumerationHandle enumeration, uint32_t index, uint32_t reserved1,
                                     QBXRawHeaderType headerType, QBXDeviceHandle* device,
                                     uint32_t reserved2);

// Closes a device. Frames submitted and not yet sent are sent first, within the time limit of
// QBX_SendRawFrames. A thread that waits on the handle gets KESTATUS_INVALID_HANDLE. Frames that a network
// interface does not take in that time are lost, and nobody is told. A caller who must know calls
// QBX_SendRawFrames first and reads QBX_PROPERTY_LOST_FRAMES.
QBX_API KESTATUS QBX_CloseDevice(QBXDeviceHandle device);

// Copies a text property, zero-terminated, into buffer of size bytes.
//   KESTATUS_BUFFER_TOO_SMALL  it does not fit; buffer holds what fits, terminated
//   KESTATUS_NOT_FOUND         no such text property
//   others                     of QBX_PROPERTY_STATE alone, see there
QBX_API KESTATUS QBX_GetDevicePropertyString(QBXDeviceHandle device, uint32_t property, char* buffer,
                                             uint32_t size);

// Copies a binary property into buffer of size bytes; *returnedSize (may be null) gets its length.
//   KESTATUS_BUFFER_TOO_SMALL  it does not fit; *returnedSize is the length needed, buffer unchanged
//   KESTATUS_NOT_FOUND         no such binary property
QBX_API KESTATUS QBX_GetDevicePropertyBinary(QBXDeviceHandle device, uint32_t property, void* buffer,
                                             uint32_t size, uint32_t* returnedSize);

// Starts delivery on a receive handle: frames sent before are never delivered. Enabling twice is a
// success without effect.
//   KESTATUS_WRONG_DIRECTION  not a receive handle
//   KESTATUS_DEVICE_REMOVED   the device is gone
//   KESTATUS_NO_MEMORY        there is no memory for received frames
QBX_API KESTATUS QBX_EnableRawRx(QBXDeviceHandle device);

// Stops delivery and wakes a thread that waits on the handle; frames not yet taken are discarded.
//   KESTATUS_WRONG_DIRECTION  not a receive handle
QBX_API KESTATUS QBX_DisableRawRx(QBXDeviceHandle device);

// Waits until at least one received frame is ready. timeoutMs is a number of milliseconds; 0 only looks, and
// a negative value waits without limit.
//   KESTATUS_TIMEOUT      no frame came in time
//   KESTATUS_NOT_ENABLED  delivery does not run, or was stopped meanwhile
//   KESTATUS_INVALID_HANDLE  also when the handle is closed meanwhile
//   KESTATUS_DEVICE_REMOVED  the device is gone
QBX_API KESTATUS QBX_WaitForRawFrame(QBXDeviceHandle device, int32_t timeoutMs);

// Takes the next received frame into buffer: the receive header when the handle was opened with type 2,
// then the frame. *type (may be null) gets what it is, *receivedLength the bytes stored, header included.
// Never waits.
//   KESTATUS_NO_DATA           nothing is ready
//   KESTATUS_NOT_ENABLED       delivery is stopped
//   KESTATUS_BUFFER_TOO_SMALL  the buffer cannot hold even the receive header
// A frame longer than the buffer is left out. The next sequence number shows the gap.
QBX_API KESTATUS QBX_GetReceivedRawFrame(QBXDeviceHandle device, QBXRawFrameType* type, void* buffer,
                                         uint32_t bufferSize, uint32_t* receivedLength);

// Says whether a frame of length bytes can be submitted now. The length is checked first.
//   KESTATUS_NO_SPACE         the batch has no place for it: QBX_SendRawFrames makes room
//   KESTATUS_INVALID_LENGTH   the link cannot carry it (below 14 bytes, or above the MTU + 14, + 4 with
//                             a VLAN tag)
//   KESTATUS_WRONG_DIRECTION  not a transmit handle
QBX_API KESTATUS QBX_CheckSubmitRawFrame(QBXDeviceHandle device, uint32_t length);

// Waits until count frames can be submitted (count 1 or more, at most the size of the batch), at most
// timeoutMs milliseconds; a negative value waits without limit. Sends the batch when that makes room. What
// could not be sent in time stays in the batch.
//   KESTATUS_TIMEOUT            no room in time
//   KESTATUS_INVALID_PARAMETER  count is 0 or above the size of the batch
//   KESTATUS_INVALID_HANDLE     also when the handle is closed meanwhile
//   KESTATUS_DEVICE_REMOVED, others  as QBX_SendRawFrames
QBX_API KESTATUS QBX_WaitForTxResources(QBXDeviceHandle device, uint32_t count, int32_t timeoutMs);

// Copies a frame into the batch. reserved is null, or it is KESTATUS_INVALID_PARAMETER. Status as
// QBX_CheckSubmitRawFrame, which sees only the length: here a frame above the MTU + 14 that has no VLAN tag
// is KESTATUS_INVALID_LENGTH too.
QBX_API KESTATUS QBX_SubmitRawFrame(QBXDeviceHandle device, const void* frame, uint32_t length,
                                    uint32_t* reserved);

// Sends the batch. Waits for room, one second at most in all. Afterwards the batch is empty; that includes
// what other threads submitted meanwhile. Frames that a network interface did not take in that time, or whose
// link is down, are lost and counted (QBX_PROPERTY_LOST_FRAMES). That is no failure.
//   KESTATUS_NO_DATA         the batch was empty
//   KESTATUS_DEVICE_REMOVED  the device is gone
//   KESTATUS_INVALID_LENGTH, others  the system refuses a frame, which is counted; the rest is sent
QBX_API KESTATUS QBX_SendRawFrames(QBXDeviceHandle device);

#ifdef __cplusplus
}
#endif

#undef QBX_ENUM_U32
#undef QBX_ENUM_I32

#endif
