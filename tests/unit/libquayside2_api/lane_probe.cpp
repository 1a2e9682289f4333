// lane-probe: does one thing with a device that a test cannot do in its own process.
//
//   hold LANE KIND        opens (control, tx, rx), prints "ready" and sleeps until it is killed
//   try LANE KIND         opens, prints the status as 0x%08x, closes
//   folder OPTIONS LANE   with a file system of its own in place of /dev/shm, mounted with these options
//                         (size=... or ro): prints the status of asking for the lane's state, then as
//                         "try" for tx; then how many files are in the file system
//   fill LANE             opens to send, submits 3 frames without sending, prints "ready" and sleeps
#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "quayside2_api.h"

namespace {

KESTATUS Open(unsigned lane, const std::string& kind, QBXDeviceHandle& device) {
    QBXEnumerationHandle list = 0;
    std::uint32_t count = 0;
    KESTATUS st = QBX_EnumerateDevices(QBXDeviceType_any, &list, &count);
    if (st != KESTATUS_SUCCESS) {
        return st;
    }
    if (kind == "tx") {
        st = QBX_OpenRawTxDevice(list, lane - 1, 0, QBXRawHeaderType_None, &device, 0);
    } else if (kind == "rx") {
        st = QBX_OpenRawRxDevice(list, lane - 1, 0, QBXRawHeaderType_2, &device, 0);
        if (st == KESTATUS_SUCCESS) {
            st = QBX_EnableRawRx(device);
        }
    } else {
        st = QBX_OpenControlDevice(list, lane - 1, &device);
    }
    QBX_CloseEnumeration(list);
    return st;
}

void Say(const std::string& line) {
    std::puts(line.c_str());
    std::fflush(stdout);
}

void SayStatus(KESTATUS st) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", st);
    Say(text);
}

// The status of asking for a lane's state without taking it.
KESTATUS StateOf(unsigned lane) {
    setenv("QUAYSIDE2_INSPECT", "1", 1);
    QBXDeviceHandle device = 0;
    KESTATUS st = Open(lane, "control", device);
    unsetenv("QUAYSIDE2_INSPECT");
    if (st == KESTATUS_SUCCESS) {
        char text[QBX_PROPERTY_STRING_SIZE];
        st = QBX_GetDevicePropertyString(device, QBX_PROPERTY_STATE, text, sizeof text);
        QBX_CloseDevice(device);
    }
    return st;
}

bool WriteFile(const char* path, const std::string& text) {
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    const bool written =
        file >= 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(file);
    return written;
}

// A mount namespace of its own, with the help of a user namespace where it needs one.
bool Unshare() {
    if (unshare(CLONE_NEWNS) == 0) {
        return true;
    }
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 &&
           WriteFile("/proc/self/uid_map", user + " " + user + " 1") &&
           WriteFile("/proc/self/setgroups", "deny") &&
           WriteFile("/proc/self/gid_map", group + " " + group + " 1");
}

int TryWithFolder(const std::string& options, unsigned lane) {
    const bool readOnly = options == "ro";
    if (!Unshare() || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", "/dev/shm", "tmpfs", readOnly ? MS_RDONLY : 0, readOnly ? "" : options.c_str()) != 0) {
        Say(std::string("cannot mount: ") + std::strerror(errno));
        return 1;
    }
    QBXDeviceHandle device = 0;
    SayStatus(StateOf(lane));
    SayStatus(Open(lane, "tx", device));
    int files = 0;
    DIR* const folder = opendir("/dev/shm");
    while (const dirent* const entry = folder ? readdir(folder) : nullptr) {
        files += entry->d_name[0] != '.' ? 1 : 0;
    }
    if (folder) {
        closedir(folder);
    }
    Say(std::to_string(files) + " files");
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "";
    if (argc == 4 && command == "folder") {
        return TryWithFolder(argv[2], static_cast<unsigned>(std::strtoul(argv[3], nullptr, 10)));
    }
    if (argc < 3) {
        return 2;
    }
    const auto lane = static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10));
    QBXDeviceHandle device = 0;
    const KESTATUS st = Open(lane, argc > 3 ? argv[3] : "tx", device);
    if (command == "try") {
        SayStatus(st);
        return QBX_CloseDevice(device) == KESTATUS_SUCCESS ? 0 : 1;
    }
    if (st != KESTATUS_SUCCESS) {
        SayStatus(st);
        return 1;
    }
    if (command == "fill") {
        const std::uint8_t frame[60] = {};
        for (int i = 0; i < 3; ++i) {
            QBX_SubmitRawFrame(device, frame, sizeof frame, nullptr);
        }
    }
    Say("ready");
    for (;;) {
        pause();
    }
}
