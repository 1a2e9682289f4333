// Every status code with its name and its text. They are written down here a second time on purpose: the
// codes are an interface and must not change by accident. X(value, name, text).
#ifndef FLOWLANE_TESTS_STATUSTABLE_H
#define FLOWLANE_TESTS_STATUSTABLE_H

// clang-format off
#define STATUS_TABLE(X) \
    X(0x00000000u, KESTATUS_SUCCESS, "The operation completed successfully.") \
    X(0xE0000001u, KESTATUS_FAILED, "The operation failed.") \
    X(0xE0000002u, KESTATUS_INTERNAL_ERROR, "An internal error occurred.") \
    X(0xE0000003u, KESTATUS_TIMEOUT, "The operation timed out.") \
    X(0xE0000004u, KESTATUS_REJECTED, "The operation cannot be executed.") \
    X(0xE0000005u, KESTATUS_ABORTED, "The operation was aborted.") \
    X(0xE0000006u, KESTATUS_IN_USE, "The requested resource is currently in use.") \
    X(0xE0000007u, KESTATUS_BUSY, "The device is currently busy.") \
    X(0xE0000008u, KESTATUS_ALREADY_DONE, "The operation was already executed and cannot be executed again.") \
    X(0xE0000009u, KESTATUS_PENDING, "The operation is pending and will be completed at a later time.") \
    X(0xE000000Au, KESTATUS_WOULD_BLOCK, "The operation cannot be completed immediately.") \
    X(0xE0000010u, KESTATUS_MISSING_ARGUMENT, "Missing argument.") \
    X(0xE0000011u, KESTATUS_MISSING_OPTION, "Missing option.") \
    X(0xE0000012u, KESTATUS_MISSING_VALUE, "Missing value.") \
    X(0xE0000013u, KESTATUS_UNKNOWN_OPTION, "Unknown option.") \
    X(0xE0000020u, KESTATUS_NO_MEMORY, "Not enough memory available to complete the operation.") \
    X(0xE0000021u, KESTATUS_NO_RESOURCES, "Not enough resources available to complete the operation.") \
    X(0xE0000022u, KESTATUS_NO_MORE_ITEMS, "There is no more data available.") \
    X(0xE0000023u, KESTATUS_NO_DEVICES, "There are no devices available in the system.") \
    X(0xE0000024u, KESTATUS_NO_DATA, "There is no data available.") \
    X(0xE0000025u, KESTATUS_NO_ADDRESS, "There is no address available.") \
    X(0xE0000026u, KESTATUS_NO_SPACE, "There is no free space available.") \
    X(0xE0000027u, KESTATUS_NO_MATCH, "No match found.") \
    X(0xE0000028u, KESTATUS_MORE_DATA_REQUIRED, "More data is required.") \
    X(0xE0000030u, KESTATUS_NOT_SUPPORTED, "The operation is not supported.") \
    X(0xE0000031u, KESTATUS_NOT_POSSIBLE, "The operation cannot be executed.") \
    X(0xE0000032u, KESTATUS_NOT_ALLOWED, "There is no permission to execute the operation.") \
    X(0xE0000033u, KESTATUS_NOT_OPENED, "The device or object was not opened.") \
    X(0xE0000034u, KESTATUS_NOT_AVAILABLE, "The specified resource or object is not available.") \
    X(0xE0000035u, KESTATUS_INSTANCE_NOT_AVAILABLE, "The specified instance is not available.") \
    X(0xE0000036u, KESTATUS_NOT_INITIALIZED, "The module or object was not initialized.") \
    X(0xE0000037u, KESTATUS_FORMAT_NOT_SUPPORTED, "The data format is not supported.") \
    X(0xE0000038u, KESTATUS_NOT_PRESENT, "The object or data is not present.") \
    X(0xE0000039u, KESTATUS_NOT_FOUND, "The object or data was not found.") \
    X(0xE000003Au, KESTATUS_NOT_ENABLED, "The operation is not enabled.") \
    X(0xE000003Bu, KESTATUS_CONVERSION_FAILED, "Data conversion operation failed.") \
    X(0xE000003Cu, KESTATUS_NOT_HANDLED, "The operation was not executed by this function.") \
    X(0xE000003Du, KESTATUS_DUPLICATE, "The object already exists.") \
    X(0xE000003Eu, KESTATUS_NOT_COMPATIBLE, "The given data is not compatible.") \
    X(0xE0000040u, KESTATUS_INVALID_IOCTL, "The specified IOCTL code is invalid.") \
    X(0xE0000041u, KESTATUS_INVALID_PARAMETER, "An invalid parameter was passed to the function.") \
    X(0xE0000042u, KESTATUS_INVALID_LENGTH, "An invalid length was specified.") \
    X(0xE0000043u, KESTATUS_INVALID_BUFFER_SIZE, "An invalid buffer size was specified.") \
    X(0xE0000044u, KESTATUS_INVALID_INBUF_SIZE, "An invalid input buffer size was specified.") \
    X(0xE0000045u, KESTATUS_INVALID_OUTBUF_SIZE, "An invalid output buffer size was specified.") \
    X(0xE0000046u, KESTATUS_INVALID_TYPE, "An invalid type was specified.") \
    X(0xE0000047u, KESTATUS_INVALID_INDEX, "An invalid index was specified.") \
    X(0xE0000048u, KESTATUS_INVALID_HANDLE, "An invalid handle was specified.") \
    X(0xE0000049u, KESTATUS_INVALID_DEVICE_STATE, "The operation cannot be performed in the current state of the device.") \
    X(0xE000004Au, KESTATUS_INVALID_DEVICE_CONFIG, "An invalid device configuration was detected.") \
    X(0xE0000050u, KESTATUS_INVALID_DESCRIPTOR, "Invalid descriptor.") \
    X(0xE0000051u, KESTATUS_INVALID_FORMAT, "An invalid format was specified.") \
    X(0xE0000052u, KESTATUS_INVALID_CONFIGURATION, "An invalid configuration was specified.") \
    X(0xE0000053u, KESTATUS_INVALID_MODE, "An invalid mode was specified.") \
    X(0xE0000054u, KESTATUS_INVALID_COMMAND, "An invalid command was specified.") \
    X(0xE0000055u, KESTATUS_INVALID_FILE, "An invalid file was specified.") \
    X(0xE0000056u, KESTATUS_INVALID_EP_INTERVAL, "Invalid endpoint polling interval (not supported by MS).") \
    X(0xE0000057u, KESTATUS_INVALID_DATA, "Invalid data was given.") \
    X(0xE0000058u, KESTATUS_INVALID_ADDRESS, "An invalid address was given.") \
    X(0xE0000059u, KESTATUS_INVALID_SIZE, "An invalid size was specified.") \
    X(0xE0000060u, KESTATUS_VERSION_MISMATCH, "The version numbers of software modules do not match.") \
    X(0xE0000061u, KESTATUS_LENGTH_MISMATCH, "An unexpected length was detected.") \
    X(0xE0000062u, KESTATUS_MAGIC_MISMATCH, "An unexpected marker was detected.") \
    X(0xE0000063u, KESTATUS_VALUE_UNKNOWN, "The specified value is unknown.") \
    X(0xE0000064u, KESTATUS_UNEXPECTED_DEVICE_RESPONSE, "An unexpected response was received from the device.") \
    X(0xE0000065u, KESTATUS_USB_STALL, "The device returned STALL.") \
    X(0xE0000066u, KESTATUS_UNEXPECTED_RESULT, "A function returned an unexpected result.") \
    X(0xE0000067u, KESTATUS_OUT_OF_RANGE, "A value is not within the valid range of the underlying type.") \
    X(0xE0000068u, KESTATUS_TRANSACTION_ERROR, "A transaction failed.") \
    X(0xE0000069u, KESTATUS_CHECKSUM_ERROR, "A checksum error has been detected.") \
    X(0xE0000070u, KESTATUS_ENUM_REQUIRED, "Device enumeration must be performed again.") \
    X(0xE0000071u, KESTATUS_DEVICE_REMOVED, "The device has been removed from the system.") \
    X(0xE0000072u, KESTATUS_DEVICES_EXIST, "One or more device instances exist in the system.") \
    X(0xE0000073u, KESTATUS_WRONG_DEVICE_STATE, "The device is not in the expected state.") \
    X(0xE0000074u, KESTATUS_BUFFER_TOO_SMALL, "The specified buffer is too small.") \
    X(0xE0000080u, KESTATUS_REGISTRY_ACCESS_FAILED, "Unable to access the system registry.") \
    X(0xE0000081u, KESTATUS_OBJECT_NOT_FOUND, "The specified object was not found.") \
    X(0xE0000082u, KESTATUS_NOT_IN_HIGH_SPEED_MODE, "The device is not operating in USB high-speed mode.") \
    X(0xE0000083u, KESTATUS_WRONG_DIRECTION, "An unexpected direction argument was specified.") \
    X(0xE0000084u, KESTATUS_PARAMETER_REJECTED, "A parameter cannot be accepted.") \
    X(0xE0000085u, KESTATUS_ALREADY_OPEN, "The device or object is already opened.") \
    X(0xE0000086u, KESTATUS_HARDWARE_ACCESS_FAILED, "Unable to access the hardware.") \
    X(0xE0000087u, KESTATUS_HARDWARE_ERROR, "The hardware reported an error.") \
    X(0xE0000090u, KESTATUS_OPEN_FILE_FAILED, "Unable to open the specified file.") \
    X(0xE0000091u, KESTATUS_READ_FILE_FAILED, "A file read operation failed.") \
    X(0xE0000092u, KESTATUS_WRITE_FILE_FAILED, "A file write operation failed.") \
    X(0xE0000093u, KESTATUS_IS_READ_ONLY, "The operation failed because the object is read-only.") \
    X(0xE0000094u, KESTATUS_SYSTEM_IS_OWNER, "The operation failed because the object belongs to the system.") \
    X(0xE0000095u, KESTATUS_PENDING_FILE_DELETION, "The operation failed since deletion of files not yet completed.") \
    X(0xE0000100u, KESTATUS_DEFERRED_DATA_STAGE, "The data stage is to be completed at a later point in time.") \
    X(0xE0000101u, KESTATUS_FRAME_NUMBER_NOT_RCV, "The frame number was not received.") \
    X(0xE0000102u, KESTATUS_EP_DISABLE, "The endpoint has been disabled (because of unconfigure, USB reset, etc.).") \
    X(0xE0000103u, KESTATUS_EP_RESET, "The operation was canceled because a reset pipe request (CLEAR_FEATURE endpoint stall) was received.") \
    X(0xE0000110u, KESTATUS_ADMIN_PRIVILEGES_REQUIRED, "The operation requires administrator privileges.") \
    X(0xE0000111u, KESTATUS_NOT_ALLOWED_IN_WOW64, "The operation is performed in the WOW64 environment, which is not allowed.") \
    X(0xE0001001u, KESTATUS_INCOMPATIBLE_PROTOCOL_VERSION, "The protocol version of the device is incompatible.") \
    X(0xE0001002u, KESTATUS_MESSAGE_BUFFER_TOO_SMALL, "The message buffer is too small to hold the desired message.") \
    X(0xE0001003u, KESTATUS_WAITING_FOR_TX_COMPLETION, "Another thread is currently waiting for TX completion.") \
    X(0xE0001004u, KESTATUS_NO_FRAME_SENT, "No frame was sent to the device.") \
    X(0xE0001005u, KESTATUS_FRAME_NOT_PENDING, "The frame is currently not pending in the device.") \
    X(0xE0001100u, KESTATUS_RESPONSE_STATUS_BASE, "Base value for the status code generated from a 1 byte response status.") \
    X(0xE0002001u, KESTATUS_APP_ERROR1, "Error 1 occurred.") \
    X(0xE0002002u, KESTATUS_APP_ERROR2, "Error 2 occurred.") \
    X(0xE0010001u, KESTATUS_LINUX_EPERM, "Operation not permitted.") \
    X(0xE0010002u, KESTATUS_LINUX_ENOENT, "No such file or directory.") \
    X(0xE0010003u, KESTATUS_LINUX_ESRCH, "No such process.") \
    X(0xE0010004u, KESTATUS_LINUX_EINTR, "Interrupted system call.") \
    X(0xE0010005u, KESTATUS_LINUX_EIO, "I/O error.") \
    X(0xE0010006u, KESTATUS_LINUX_ENXIO, "No such device or address.") \
    X(0xE0010007u, KESTATUS_LINUX_E2BIG, "Argument list too long.") \
    X(0xE0010008u, KESTATUS_LINUX_ENOEXEC, "Exec format error.") \
    X(0xE0010009u, KESTATUS_LINUX_EBADF, "Bad file number.") \
    X(0xE001000Au, KESTATUS_LINUX_ECHILD, "No child processes.") \
    X(0xE001000Bu, KESTATUS_LINUX_EAGAIN, "Try again.") \
    X(0xE001000Cu, KESTATUS_LINUX_ENOMEM, "Out of memory.") \
    X(0xE001000Du, KESTATUS_LINUX_EACCES, "Permission denied.") \
    X(0xE001000Eu, KESTATUS_LINUX_EFAULT, "Bad address.") \
    X(0xE001000Fu, KESTATUS_LINUX_ENOTBLK, "Block device required.") \
    X(0xE0010010u, KESTATUS_LINUX_EBUSY, "Device or resource busy.") \
    X(0xE0010011u, KESTATUS_LINUX_EEXIST, "File exists.") \
    X(0xE0010012u, KESTATUS_LINUX_EXDEV, "Cross-device link.") \
    X(0xE0010013u, KESTATUS_LINUX_ENODEV, "No such device.") \
    X(0xE0010014u, KESTATUS_LINUX_ENOTDIR, "Not a directory.") \
    X(0xE0010015u, KESTATUS_LINUX_EISDIR, "Is a directory.") \
    X(0xE0010016u, KESTATUS_LINUX_EINVAL, "Invalid argument.") \
    X(0xE0010017u, KESTATUS_LINUX_ENFILE, "File table overflow.") \
    X(0xE0010018u, KESTATUS_LINUX_EMFILE, "Too many open files.") \
    X(0xE0010019u, KESTATUS_LINUX_ENOTTY, "Not a typewriter.") \
    X(0xE001001Au, KESTATUS_LINUX_ETXTBSY, "Text file busy.") \
    X(0xE001001Bu, KESTATUS_LINUX_EFBIG, "File too large.") \
    X(0xE001001Cu, KESTATUS_LINUX_ENOSPC, "No space left on device.") \
    X(0xE001001Du, KESTATUS_LINUX_ESPIPE, "Illegal seek.") \
    X(0xE001001Eu, KESTATUS_LINUX_EROFS, "Read-only file system.") \
    X(0xE001001Fu, KESTATUS_LINUX_EMLINK, "Too many links.") \
    X(0xE0010020u, KESTATUS_LINUX_EPIPE, "Broken pipe.") \
    X(0xE0010021u, KESTATUS_LINUX_EDOM, "Math argument out of domain of func.") \
    X(0xE0010022u, KESTATUS_LINUX_ERANGE, "Math result not representable.")
// clang-format on

#endif
