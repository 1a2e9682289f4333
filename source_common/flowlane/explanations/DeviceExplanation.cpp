#include "explanations/DeviceExplanation.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "explanations/DeviceFileExplanation.h"
#include "explanations/DeviceInspection.h"
#include "explanations/DeviceName.h"
#include "explanations/Explain.h"
#include "explanations/MessageText.h"
#include "explanations/StatusWords.h"
#include "explanations/WordMatch.h"

namespace flowlane {

namespace {

using Selection = DeviceInspection::Selection;

// The longest path in a command. A longer line would be cut, and the command would do something else.
constexpr std::size_t cMaxCommandPath = 300;
constexpr std::size_t cMaxFilePath = 200; // it stands in the line twice

// What an environment variable is set to; empty as if it were not.
std::string Environment(const char* name) {
    const char* const value = std::getenv(name);
    return value ? value : "";
}

// The path of this program as a word of the shell. Empty when it is not known, or too long for a line.
std::string OwnProgram() {
    std::error_code error;
    const std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error || access(path.c_str(), F_OK) != 0) { // it may have been replaced since
        return "";
    }
    const std::string word = ShellWord(path);
    return word.size() <= cMaxCommandPath ? word : "";
}

// A failure to open a device, and what the devices look like now.
class FailedOpening {
public:
    FailedOpening(KESTATUS st, const WantedDevice& wanted) : mStatus(st), mWanted(wanted) {}
    void Print() const;

private:
    bool IsByName() const { return mWanted.name; }
    unsigned WantedIndex() const;
    std::string Subject(unsigned index) const;
    std::string ListWithStates() const;
    std::string ListWithIndexes() const;
    unsigned FailedIndex() const;
    void ExplainNoDevices() const;
    void ExplainUnknownName() const;
    void ExplainInvalidIndex() const;
    void ExplainInUse(unsigned index) const;
    void ExplainPrivilege() const;
    void ExplainOther() const;

    const KESTATUS mStatus;
    const WantedDevice mWanted;
    const DeviceInspection mDevices{Selection::AsSet};
};

unsigned FailedOpening::WantedIndex() const {
    return IsByName() ? mDevices.Find(mWanted.name) : mWanted.index;
}

// "'eth0'", or "Device 3" when its name is not known.
std::string FailedOpening::Subject(unsigned index) const {
    const std::string name = mDevices.Name(index);
    if (!name.empty()) {
        return Quoted(name);
    }
    return IsByName() && index >= mDevices.Count() ? Quoted(mWanted.name) : "Device " + std::to_string(index);
}

std::string FailedOpening::ListWithStates() const {
    const std::vector<std::string> names = mDevices.Names();
    std::vector<std::string> items;
    for (const unsigned index : NearestFirst(names, mWanted.name)) {
        const std::string name =
            names[index].empty() ? "device " + std::to_string(index) : Printable(names[index]);
        items.push_back(name + (mDevices.IsInUse(index) ? " (in use)" : ""));
    }
    return JoinedList(items);
}

std::string FailedOpening::ListWithIndexes() const {
    std::vector<std::string> items;
    for (unsigned index = 0; index < mDevices.Count(); ++index) {
        const std::string name = mDevices.Name(index);
        items.push_back(std::to_string(index) + " = " + (name.empty() ? "unknown" : Printable(name)));
    }
    return JoinedList(items);
}

// The device whose opening has failed: a search by name also opens those before the wanted one. Count() when
// it cannot be told.
unsigned FailedOpening::FailedIndex() const {
    if (!IsByName()) {
        return mWanted.index;
    }
    unsigned index = 0;
    while (index < mDevices.Count() && mDevices.OpenStatus(index) != mStatus) {
        ++index;
    }
    return index < mDevices.Count() ? index : WantedIndex();
}

void FailedOpening::Print() const {
    switch (mStatus) {
    case KESTATUS_NO_DEVICES:
        ExplainNoDevices();
        return;
    case KESTATUS_NOT_FOUND:
        IsByName() ? ExplainUnknownName() : ExplainOther();
        return;
    case KESTATUS_INVALID_INDEX:
        ExplainInvalidIndex();
        return;
    case KESTATUS_IN_USE:
        ExplainInUse(WantedIndex());
        return;
    case KESTATUS_ADMIN_PRIVILEGES_REQUIRED:
        ExplainPrivilege();
        return;
    default:
        ExplainOther();
    }
}

void FailedOpening::ExplainNoDevices() const {
    const std::string selected = Environment("QUAYSIDE2_DEVICES");
    const DeviceInspection all(Selection::All);
    if (selected.empty() || all.Count() == 0) {
        Explain("The device library has found no device. Connect one, or check its driver.");
        return;
    }
    std::vector<std::string> names = all.Names();
    std::transform(names.begin(), names.end(), names.begin(),
                   [](const std::string& name) { return Printable(name); });
    Explain("QUAYSIDE2_DEVICES allows only '{}', and there is no such device. The devices are: {}",
            Printable(selected), JoinedList(names));
}

void FailedOpening::ExplainUnknownName() const {
    const std::string name = mWanted.name;
    const unsigned index = mDevices.Find(name);
    if (index < mDevices.Count()) {
        ExplainInUse(index);
        return;
    }
    const DeviceInspection all(Selection::All);
    if (all.Find(name) < all.Count()) {
        Explain("QUAYSIDE2_DEVICES allows only '{}'. Add '{}' to it, or unset it.",
                Printable(Environment("QUAYSIDE2_DEVICES")), Printable(name));
        return;
    }
    // Without a look at devices in use, one of them may have the name.
    const bool areAllNamed = mDevices.Find("") == mDevices.Count();
    Explain("No {}device is named '{}'. The devices are: {}", areAllNamed ? "" : "free ", Printable(name),
            ListWithStates());
}

void FailedOpening::ExplainInvalidIndex() const {
    const char* const allowed =
        Environment("QUAYSIDE2_DEVICES").empty() ? "" : " that QUAYSIDE2_DEVICES allows";
    if (mDevices.Count() == 1) {
        Explain("No device has the index {}. The only device{} is: {}", mWanted.index, allowed,
                ListWithIndexes());
    } else {
        Explain("No device has the index {}. The {} devices{} are: {}", mWanted.index, mDevices.Count(),
                allowed, ListWithIndexes());
    }
}

void FailedOpening::ExplainInUse(unsigned index) const {
    const std::string holder = mDevices.Text(index, mWanted.use == DeviceUse::Send ? QBX_PROPERTY_TX_HOLDER
                                                                                   : QBX_PROPERTY_RX_HOLDER);
    const std::string subject = Subject(index);
    if (!holder.empty()) {
        Explain("{} is in use by {}. End that program, or choose another device.", subject,
                Printable(holder));
    } else if (mDevices.Text(index, QBX_PROPERTY_STATE) == "free") {
        Explain("{} was in use, and is free now. Try again.", subject);
    } else {
        Explain("{} is in use by another program. End that program, or choose another device.", subject);
    }
}

void FailedOpening::ExplainPrivilege() const {
    const std::string subject = Subject(WantedIndex());
    if (geteuid() == 0) {
        Explain("{} needs the privilege CAP_NET_RAW, which root does not have here. Start the "
                "container or the service with it.",
                subject);
        return;
    }
    const std::string program = OwnProgram();
    if (program.empty()) {
        Explain("{} needs a privilege. Run this program as root.", subject);
        return;
    }
    Explain("{} needs a privilege. Run this program as root, or give it the privilege: "
            "sudo setcap cap_net_raw+ep {}",
            subject, program);
}

void FailedOpening::ExplainOther() const {
    if (mDevices.Status() != KESTATUS_SUCCESS) {
        const std::string segment = Environment("QUAYSIDE2_SEGMENT");
        if (mStatus == KESTATUS_INVALID_PARAMETER && !segment.empty()) {
            Explain("QUAYSIDE2_SEGMENT is '{}'. A segment's name has 1 to 64 letters, digits, "
                    "'-', '_' or '.'.",
                    Printable(segment));
        } else {
            Explain("The devices cannot be listed: {}.", StatusWords(mStatus));
        }
        return;
    }
    const unsigned index = FailedIndex();
    const std::string file = mDevices.Text(index, QBX_PROPERTY_FILE);
    if (mStatus == KESTATUS_DEVICE_REMOVED) {
        // Another device may have its index by now.
        Explain("{} was removed. Start again when it is back.",
                IsByName() ? Subject(index) : "Device " + std::to_string(index));
    } else if (!file.empty() && ShellWord(file).size() <= cMaxFilePath) {
        ExplainDeviceFile(mStatus, file);
    } else {
        Explain("{} cannot be opened: {}.", Subject(index), StatusWords(mStatus));
    }
}

} // namespace

void ExplainFailedOpening(KESTATUS st, const WantedDevice& wanted) noexcept {
    try {
        FailedOpening(st, wanted).Print();
    } catch (const std::exception&) { // no memory: the failure itself has been reported
    }
}

void ExplainLinkDown(const QuaysideDevice& device, DeviceUse use) noexcept {
    try {
        char state[QBX_PROPERTY_STRING_SIZE] = {};
        if (device.GetDevicePropertyString(QBX_PROPERTY_STATE, state, sizeof state) != KESTATUS_SUCCESS ||
            std::string(state) != "link down") {
            return;
        }
        const std::string name = DeviceName(device);
        Explain("The link of '{}' is down: nothing is {} until it is up. Check its cable, or type: "
                "ip link set {} up",
                Printable(name), use == DeviceUse::Send ? "sent" : "received", ShellWord(name));
    } catch (const std::exception&) { // no memory for the line
    }
}

void ExplainDeviceFailure(KESTATUS st, const QuaysideDevice& device) noexcept {
    try {
        const std::string name = DeviceName(device);
        const std::string subject = name.empty() ? "The device" : Quoted(name);
        if (st == KESTATUS_DEVICE_REMOVED) {
            Explain("{} was removed. Start again when it is back.", subject);
        }
    } catch (const std::exception&) { // no memory for the line
    }
}

} // namespace flowlane
