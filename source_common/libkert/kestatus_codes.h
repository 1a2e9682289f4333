// The status codes of the whole system: one row per code, X(name, value, text).
//
// Values are allocated in blocks by theme. Codes from 0xE0010001 on are the Linux family:
// 0xE0010000 | errno. errno values above 34 are valid codes that have no row here.
#ifndef KESTRELON_KESTATUS_CODES_H
#define KESTRELON_KESTATUS_CODES_H

// clang-format off
#define KESTATUS_CODES(X) \
    X(KESTATUS_SUCCESS, 0x00000000u, "The operation completed successfully.") \
    X(KESTATUS_FAILED, 0xE0000001u, "The operation failed.") \
    X(KESTATUS_INTERNAL_ERROR, 0xE0000002u, "An internal error occurred.") \
    X(KESTATUS_TIMEOUT, 0xE0000003u, "The operation timed out.") \
    X(KESTATUS_REJECTED, 0xE0000004u, "The operation cannot be executed.") \
    X(KESTATUS_ABORTED, 0xE0000005u, "The operation was aborted.") \
    X(KESTATUS_IN_USE, 0xE0000006u, "The requested resource is currently in use.") \
    X(KESTATUS_BUSY, 0xE0000007u, "The device is currently busy.") \
    X(KESTATUS_ALREADY_DONE, 0xE0000008u, "The operation was already executed and cannot be executed again.") \
    X(KESTATUS_PENDING, 0xE0000009u, "The operation is pending and will be completed at a later time.") \
    X(KESTATUS_WOULD_BLOCK, 0xE000000Au, "The operation cannot be completed immediately.") \
    X(KESTATUS_MISSING_ARGUMENT, 0xE0000010u, "Missing argument.") \
    X(KESTATUS_MISSING_OPTION, 0xE0000011u, "Missing option.") \
    X(KESTATUS_MISSING_VALUE, 0xE0000012u, "Missing value.") \
    X(KESTATUS_UNKNOWN_OPTION, 0xE0000013u, "Unknown option.") \
    X(KESTATUS_NO_MEMORY, 0xE0000020u, "Not enough memory available to complete the operation.") \
    X(KESTATUS_NO_RESOURCES, 0xE0000021u, "Not enough resources available to complete the operation.") \
    X(KESTATUS_NO_MORE_ITEMS, 0xE0000022u, "There is no more data available.") \
    X(KESTATUS_NO_DEVICES, 0xE0000023u, "There are no devices available in the system.") \
    X(KESTATUS_NO_DATA, 0xE0000024u, "There is no data available.") \
    X(KESTATUS_NO_ADDRESS, 0xE0000025u, "There is no address available.") \
    X(KESTATUS_NO_SPACE, 0xE0000026u, "There is no free space available.") \
    X(KESTATUS_NO_MATCH, 0xE0000027u, "No match found.") \
    X(KESTATUS_MORE_DATA_REQUIRED, 0xE0000028u, "More data is required.") \
    X(KESTATUS_NOT_SUPPORTED, 0xE0000030u, "The operation is not supported.") \
    X(KESTATUS_NOT_POSSIBLE, 0xE0000031u, "The operation cannot be executed.") \
    X(KESTATUS_NOT_ALLOWED, 0xE0000032u, "There is no permission to execute the operation.") \
    X(KESTATUS_NOT_OPENED, 0xE0000033u, "The device or object was not opened.") \
    X(KESTATUS_NOT_AVAILABLE, 0xE0000034u, "The specified resource or object is not available.") \
    X(KESTATUS_INSTANCE_NOT_AVAILABLE, 0xE0000035u, "The specified instance is not available.") \
    X(KESTATUS_NOT_INITIALIZED, 0xE0000036u, "The module or object was not initialized.") \
    X(KESTATUS_FORMAT_NOT_SUPPORTED, 0xE0000037u, "The data format is not supported.") \
    X(KESTATUS_NOT_PRESENT, 0xE0000038u, "The object or data is not present.") \
    X(KESTATUS_NOT_FOUND, 0xE0000039u, "The object or data was not found.") \
    X(KESTATUS_NOT_ENABLED, 0xE000003Au, "The operation is not enabled.") \
    X(KESTATUS_CONVERSION_FAILED, 0xE000003Bu, "Data conversion operation failed.") \
    X(KESTATUS_NOT_HANDLED, 0xE000003Cu, "The operation was not executed by this function.") \
    X(KESTATUS_DUPLICATE, 0xE000003Du, "The object already exists.") \
    X(KESTATUS_NOT_COMPATIBLE, 0xE000003Eu, "The given data is not compatible.") \
    X(KESTATUS_INVALID_IOCTL, 0xE0000040u, "The specified IOCTL code is invalid.") \
    X(KESTATUS_INVALID_PARAMETER, 0xE0000041u, "An invalid parameter was passed to the function.") \
    X(KESTATUS_INVALID_LENGTH, 0xE0000042u, "An invalid length was specified.") \
    X(KESTATUS_INVALID_BUFFER_SIZE, 0xE0000043u, "An invalid buffer size was specified.") \
    X(KESTATUS_INVALID_INBUF_SIZE, 0xE0000044u, "An invalid input buffer size was specified.") \
    X(KESTATUS_INVALID_OUTBUF_SIZE, 0xE0000045u, "An invalid output buffer size was specified.") \
    X(KESTATUS_INVALID_TYPE, 0xE0000046u, "An invalid type was specified.") \
    X(KESTATUS_INVALID_INDEX, 0xE0000047u, "An invalid index was specified.") \
    X(KESTATUS_INVALID_HANDLE, 0xE0000048u, "An invalid handle was specified.") \
    X(KESTATUS_INVALID_DEVICE_STATE, 0xE0000049u, "The operation cannot be performed in the current state of the device.") \
    X(KESTATUS_INVALID_DEVICE_CONFIG, 0xE000004Au, "An invalid device configuration was detected.") \
    X(KESTATUS_INVALID_DESCRIPTOR, 0xE0000050u, "Invalid descriptor.") \
    X(KESTATUS_INVALID_FORMAT, 0xE0000051u, "An invalid format was specified.") \
    X(KESTATUS_INVALID_CONFIGURATION, 0xE0000052u, "An invalid configuration was specified.") \
    X(KESTATUS_INVALID_MODE, 0xE0000053u, "An invalid mode was specified.") \
    X(KESTATUS_INVALID_COMMAND, 0xE0000054u, "An invalid command was specified.") \
    X(KESTATUS_INVALID_FILE, 0xE0000055u, "An invalid file was specified.") \
    X(KESTATUS_INVALID_EP_INTERVAL, 0xE0000056u, "Invalid endpoint polling interval (not supported by MS).") \
    X(KESTATUS_INVALID_DATA, 0xE0000057u, "Invalid data was given.") \
    X(KESTATUS_INVALID_ADDRESS, 0xE0000058u, "An invalid address was given.") \
    X(KESTATUS_INVALID_SIZE, 0xE0000059u, "An invalid size was specified.") \
    X(KESTATUS_VERSION_MISMATCH, 0xE0000060u, "The version numbers of software modules do not match.") \
    X(KESTATUS_LENGTH_MISMATCH, 0xE0000061u, "An unexpected length was detected.") \
    X(KESTATUS_MAGIC_MISMATCH, 0xE0000062u, "An unexpected marker was detected.") \
    X(KESTATUS_VALUE_UNKNOWN, 0xE0000063u, "The specified value is unknown.") \
    X(KESTATUS_UNEXPECTED_DEVICE_RESPONSE, 0xE0000064u, "An unexpected response was received from the device.") \
    X(KESTATUS_USB_STALL, 0xE0000065u, "The device returned STALL.") \
    X(KESTATUS_UNEXPECTED_RESULT, 0xE0000066u, "A function returned an unexpected result.") \
    X(KESTATUS_OUT_OF_RANGE, 0xE0000067u, "A value is not within the valid range of the underlying type.") \
    X(KESTATUS_TRANSACTION_ERROR, 0xE0000068u, "A transaction failed.") \
    X(KESTATUS_CHECKSUM_ERROR, 0xE0000069u, "A checksum error has been detected.") \
    X(KESTATUS_ENUM_REQUIRED, 0xE0000070u, "Device enumeration must be performed again.") \
    X(KESTATUS_DEVICE_REMOVED, 0xE0000071u, "The device has been removed from the system.") \
    X(KESTATUS_DEVICES_EXIST, 0xE0000072u, "One or more device instances exist in the system.") \
    X(KESTATUS_WRONG_DEVICE_STATE, 0xE0000073u, "The device is not in the expected state.") \
    X(KESTATUS_BUFFER_TOO_SMALL, 0xE0000074u, "The specified buffer is too small.") \
    X(KESTATUS_REGISTRY_ACCESS_FAILED, 0xE0000080u, "Unable to access the system registry.") \
    X(KESTATUS_OBJECT_NOT_FOUND, 0xE0000081u, "The specified object was not found.") \
    X(KESTATUS_NOT_IN_HIGH_SPEED_MODE, 0xE0000082u, "The device is not operating in USB high-speed mode.") \
    X(KESTATUS_WRONG_DIRECTION, 0xE0000083u, "An unexpected direction argument was specified.") \
    X(KESTATUS_PARAMETER_REJECTED, 0xE0000084u, "A parameter cannot be accepted.") \
    X(KESTATUS_ALREADY_OPEN, 0xE0000085u, "The device or object is already opened.") \
    X(KESTATUS_HARDWARE_ACCESS_FAILED, 0xE0000086u, "Unable to access the hardware.") \
    X(KESTATUS_HARDWARE_ERROR, 0xE0000087u, "The hardware reported an error.") \
    X(KESTATUS_OPEN_FILE_FAILED, 0xE0000090u, "Unable to open the specified file.") \
    X(KESTATUS_READ_FILE_FAILED, 0xE0000091u, "A file read operation failed.") \
    X(KESTATUS_WRITE_FILE_FAILED, 0xE0000092u, "A file write operation failed.") \
    X(KESTATUS_IS_READ_ONLY, 0xE0000093u, "The operation failed because the object is read-only.") \
    X(KESTATUS_SYSTEM_IS_OWNER, 0xE0000094u, "The operation failed because the object belongs to the system.") \
    X(KESTATUS_PENDING_FILE_DELETION, 0xE0000095u, "The operation failed since deletion of files not yet completed.") \
    X(KESTATUS_DEFERRED_DATA_STAGE, 0xE0000100u, "The data stage is to be completed at a later point in time.") \
    X(KESTATUS_FRAME_NUMBER_NOT_RCV, 0xE0000101u, "The frame number was not received.") \
    X(KESTATUS_EP_DISABLE, 0xE0000102u, "The endpoint has been disabled (because of unconfigure, USB reset, etc.).") \
    X(KESTATUS_EP_RESET, 0xE0000103u, "The operation was canceled because a reset pipe request (CLEAR_FEATURE endpoint stall) was received.") \
    X(KESTATUS_ADMIN_PRIVILEGES_REQUIRED, 0xE0000110u, "The operation requires administrator privileges.") \
    X(KESTATUS_NOT_ALLOWED_IN_WOW64, 0xE0000111u, "The operation is performed in the WOW64 environment, which is not allowed.") \
    X(KESTATUS_INCOMPATIBLE_PROTOCOL_VERSION, 0xE0001001u, "The protocol version of the device is incompatible.") \
    X(KESTATUS_MESSAGE_BUFFER_TOO_SMALL, 0xE0001002u, "The message buffer is too small to hold the desired message.") \
    X(KESTATUS_WAITING_FOR_TX_COMPLETION, 0xE0001003u, "Another thread is currently waiting for TX completion.") \
    X(KESTATUS_NO_FRAME_SENT, 0xE0001004u, "No frame was sent to the device.") \
    X(KESTATUS_FRAME_NOT_PENDING, 0xE0001005u, "The frame is currently not pending in the device.") \
    X(KESTATUS_RESPONSE_STATUS_BASE, 0xE0001100u, "Base value for the status code generated from a 1 byte response status.") \
    X(KESTATUS_APP_ERROR1, 0xE0002001u, "Error 1 occurred.") \
    X(KESTATUS_APP_ERROR2, 0xE0002002u, "Error 2 occurred.") \
    X(KESTATUS_LINUX_EPERM, 0xE0010001u, "Operation not permitted.") \
    X(KESTATUS_LINUX_ENOENT, 0xE0010002u, "No such file or directory.") \
    X(KESTATUS_LINUX_ESRCH, 0xE0010003u, "No such process.") \
    X(KESTATUS_LINUX_EINTR, 0xE0010004u, "Interrupted system call.") \
    X(KESTATUS_LINUX_EIO, 0xE0010005u, "I/O error.") \
    X(KESTATUS_LINUX_ENXIO, 0xE0010006u, "No such device or address.") \
    X(KESTATUS_LINUX_E2BIG, 0xE0010007u, "Argument list too long.") \
    X(KESTATUS_LINUX_ENOEXEC, 0xE0010008u, "Exec format error.") \
    X(KESTATUS_LINUX_EBADF, 0xE0010009u, "Bad file number.") \
    X(KESTATUS_LINUX_ECHILD, 0xE001000Au, "No child processes.") \
    X(KESTATUS_LINUX_EAGAIN, 0xE001000Bu, "Try again.") \
    X(KESTATUS_LINUX_ENOMEM, 0xE001000Cu, "Out of memory.") \
    X(KESTATUS_LINUX_EACCES, 0xE001000Du, "Permission denied.") \
    X(KESTATUS_LINUX_EFAULT, 0xE001000Eu, "Bad address.") \
    X(KESTATUS_LINUX_ENOTBLK, 0xE001000Fu, "Block device required.") \
    X(KESTATUS_LINUX_EBUSY, 0xE0010010u, "Device or resource busy.") \
    X(KESTATUS_LINUX_EEXIST, 0xE0010011u, "File exists.") \
    X(KESTATUS_LINUX_EXDEV, 0xE0010012u, "Cross-device link.") \
    X(KESTATUS_LINUX_ENODEV, 0xE0010013u, "No such device.") \
    X(KESTATUS_LINUX_ENOTDIR, 0xE0010014u, "Not a directory.") \
    X(KESTATUS_LINUX_EISDIR, 0xE0010015u, "Is a directory.") \
    X(KESTATUS_LINUX_EINVAL, 0xE0010016u, "Invalid argument.") \
    X(KESTATUS_LINUX_ENFILE, 0xE0010017u, "File table overflow.") \
    X(KESTATUS_LINUX_EMFILE, 0xE0010018u, "Too many open files.") \
    X(KESTATUS_LINUX_ENOTTY, 0xE0010019u, "Not a typewriter.") \
    X(KESTATUS_LINUX_ETXTBSY, 0xE001001Au, "Text file busy.") \
    X(KESTATUS_LINUX_EFBIG, 0xE001001Bu, "File too large.") \
    X(KESTATUS_LINUX_ENOSPC, 0xE001001Cu, "No space left on device.") \
    X(KESTATUS_LINUX_ESPIPE, 0xE001001Du, "Illegal seek.") \
    X(KESTATUS_LINUX_EROFS, 0xE001001Eu, "Read-only file system.") \
    X(KESTATUS_LINUX_EMLINK, 0xE001001Fu, "Too many links.") \
    X(KESTATUS_LINUX_EPIPE, 0xE0010020u, "Broken pipe.") \
    X(KESTATUS_LINUX_EDOM, 0xE0010021u, "Math argument out of domain of func.") \
    X(KESTATUS_LINUX_ERANGE, 0xE0010022u, "Math result not representable.")
// clang-format on

#endif
