#include "segment/SegmentBackend.h"

#include <cstdlib>

#include "segment/SegmentRxDevice.h"
#include "segment/SegmentTxDevice.h"

namespace quayside2::segment {

namespace {

// A port opened for its properties only.
class SegmentControlDevice : public Device {
public:
    SegmentControlDevice(const DeviceProperties& properties, std::string path,
                         std::unique_ptr<SegmentPort> port)
        : mProperties(properties), mPath(std::move(path)), mPort(std::move(port)) {}
    const DeviceProperties& Properties() const noexcept override { return mProperties; }
    // Its holder asks, so nobody else has it.
    KESTATUS GetState(std::string& state) const override {
        state = "free";
        return KESTATUS_SUCCESS;
    }
    KESTATUS GetFile(std::string& path) const override {
        path = mPath;
        return KESTATUS_SUCCESS;
    }

private:
    const DeviceProperties mProperties;
    const std::string mPath;
    const std::unique_ptr<SegmentPort> mPort;
};

// The same without taking the port, which somebody else may hold.
class SegmentInspectDevice : public Device {
public:
    SegmentInspectDevice(const DeviceProperties& properties, std::string path, std::uint32_t port)
        : mProperties(properties), mPath(std::move(path)), mPort(port) {}
    const DeviceProperties& Properties() const noexcept override { return mProperties; }
    KESTATUS GetState(std::string& state) const override {
        bool isBusy = false;
        const KESTATUS st = SegmentFile::LookAtPort(mPath, mPort, isBusy);
        state = isBusy ? "in use" : "free";
        return st;
    }
    KESTATUS GetHolder(OpenMode::Kind, std::string& holder) const override {
        holder = SegmentFile::PortHolder(mPath, mPort);
        return holder.empty() ? KESTATUS_NOT_FOUND : KESTATUS_SUCCESS;
    }
    KESTATUS GetFile(std::string& path) const override {
        path = mPath;
        return KESTATUS_SUCCESS;
    }

private:
    const DeviceProperties mProperties;
    const std::string mPath;
    const std::uint32_t mPort;
};

class SegmentInstance : public DeviceInstance {
public:
    SegmentInstance(std::string path, std::uint32_t port, bool inspect)
        : mPath(std::move(path)), mPort(port), mInspect(inspect) {
        const std::uint32_t number = port + 1;
        mProperties.friendlyName = "lane-" + std::to_string(number);
        mProperties.product = "Virtual Ethernet segment";
        mProperties.macAddress = {0x02, 0x51, 0x42, 0x58, 0x00, static_cast<std::uint8_t>(number)};
    }

    const DeviceProperties& Properties() const noexcept override { return mProperties; }

    KESTATUS Open(const OpenMode& mode, std::unique_ptr<Device>& device) const override {
        if (mInspect && mode.kind == OpenMode::Kind::Control) {
            device = std::make_unique<SegmentInspectDevice>(mProperties, mPath, mPort);
            return KESTATUS_SUCCESS;
        }
        using Rings = SegmentPort::Rings;
        auto port = std::make_unique<SegmentPort>();
        const Rings rings = mode.kind == OpenMode::Kind::RawTx   ? Rings::Own
                            : mode.kind == OpenMode::Kind::RawRx ? Rings::All
                                                                 : Rings::None;
        const KESTATUS st = port->Open(mPath, mPort, rings);
        if (st != KESTATUS_SUCCESS) {
            return st;
        }
        switch (mode.kind) {
        case OpenMode::Kind::RawTx:
            device = std::make_unique<SegmentTxDevice>(mProperties, std::move(port));
            break;
        case OpenMode::Kind::RawRx:
            device = std::make_unique<SegmentRxDevice>(mProperties, mode.receiveHeader, std::move(port));
            break;
        case OpenMode::Kind::Control:
            device = std::make_unique<SegmentControlDevice>(mProperties, mPath, std::move(port));
            break;
        }
        return KESTATUS_SUCCESS;
    }

private:
    std::string mPath;
    std::uint32_t mPort;
    bool mInspect; // opening for control does not take the port
    DeviceProperties mProperties;
};

} // namespace

KESTATUS SegmentBackend::Enumerate(DeviceInstances& instances) const {
    const char* const set = std::getenv("QUAYSIDE2_SEGMENT");
    const std::string name = !set || *set == '\0' ? "default" : set;
    if (!IsValidSegmentName(name)) {
        return KESTATUS_INVALID_PARAMETER;
    }
    const char* const inspect = std::getenv("QUAYSIDE2_INSPECT");
    const bool isInspecting = inspect && *inspect != '\0';
    for (std::uint32_t port = 0; port < cPortCount; ++port) {
        instances.push_back(
            std::make_shared<SegmentInstance>(SegmentPath(mDirectory, name), port, isInspecting));
    }
    return KESTATUS_SUCCESS;
}

} // namespace quayside2::segment
