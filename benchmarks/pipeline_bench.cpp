// The cost of the ts2av pipeline for one packet: reading and timing a file, packing into AVTP frames, and
// both together. The device is one that takes every frame and does nothing.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "streaming/AvtpSink.h"
#include "streaming/TSFileSource.h"

using namespace flowlane;

extern "C" {

KESTATUS QBX_EnumerateDevices(QBXDeviceType, QBXEnumerationHandle* enumeration, uint32_t* count) {
    *enumeration = 1;
    *count = 1;
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_CloseEnumeration(QBXEnumerationHandle) {
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_OpenControlDevice(QBXEnumerationHandle, uint32_t, QBXDeviceHandle* device) {
    *device = 1;
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_OpenRawTxDevice(QBXEnumerationHandle, uint32_t, uint32_t, QBXRawHeaderType,
                             QBXDeviceHandle* device, uint32_t) {
    *device = 1;
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_OpenRawRxDevice(QBXEnumerationHandle, uint32_t, uint32_t, QBXRawHeaderType,
                             QBXDeviceHandle* device, uint32_t) {
    *device = 1;
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_CloseDevice(QBXDeviceHandle) {
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_GetDevicePropertyString(QBXDeviceHandle, uint32_t, char* buffer, uint32_t) {
    *buffer = 0;
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_GetDevicePropertyBinary(QBXDeviceHandle, uint32_t, void* buffer, uint32_t size,
                                     uint32_t* returnedSize) {
    std::memset(buffer, 2, size);
    *returnedSize = size;
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_EnableRawRx(QBXDeviceHandle) {
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_DisableRawRx(QBXDeviceHandle) {
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_WaitForRawFrame(QBXDeviceHandle, int32_t) {
    return KESTATUS_TIMEOUT;
}
KESTATUS QBX_GetReceivedRawFrame(QBXDeviceHandle, QBXRawFrameType*, void*, uint32_t, uint32_t*) {
    return KESTATUS_NO_DATA;
}
KESTATUS QBX_CheckSubmitRawFrame(QBXDeviceHandle, uint32_t) {
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_WaitForTxResources(QBXDeviceHandle, uint32_t, int32_t) {
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_SubmitRawFrame(QBXDeviceHandle, const void* frame, uint32_t, uint32_t*) {
    benchmark::DoNotOptimize(frame);
    benchmark::ClobberMemory();
    return KESTATUS_SUCCESS;
}
KESTATUS QBX_SendRawFrames(QBXDeviceHandle) {
    return KESTATUS_SUCCESS;
}
}

namespace {

constexpr unsigned cPacketsAhead = 10000;

// A file of 20000 packets, 40 ms between PCRs at about 10 Mbit/s; removed at the end.
class SyntheticFile {
public:
    SyntheticFile() {
        const int descriptor = mkstemp(mPath);
        std::FILE* file = descriptor < 0 ? nullptr : fdopen(descriptor, "wb");
        if (!file) {
            std::perror("cannot write the stream");
            std::exit(1);
        }
        for (unsigned i = 0; i < 20000; ++i) {
            unsigned char packet[TSPacket::cSize] = {TSPacket::cSyncByte, 1, 0, 0x10};
            if (i % 266 == 0) {
                const unsigned ticks = i / 266 * 3600;
                packet[3] = 0x30;
                packet[4] = 7;
                packet[5] = 0x10;
                for (unsigned k = 0; k < 4; ++k) {
                    packet[6 + k] = static_cast<unsigned char>(ticks >> (25 - 8 * k));
                }
            }
            std::fwrite(packet, sizeof packet, 1, file);
        }
        std::fclose(file);
    }
    ~SyntheticFile() { unlink(mPath); }
    SyntheticFile(const SyntheticFile&) = delete;
    SyntheticFile& operator=(const SyntheticFile&) = delete;

    const char* Path() const { return mPath; }

private:
    char mPath[64] = "/tmp/pipeline-bench-XXXXXX";
};

class NullSink final : public SinkBase {
public:
    KESTATUS StartSink() override { return KESTATUS_SUCCESS; }
    void StopSink() override {}
    KESTATUS DeliverTSPacket(const TSPacket& packet) override {
        benchmark::DoNotOptimize(packet.mDeliverTime);
        return KESTATUS_SUCCESS;
    }
    KESTATUS SendDeliveredPackets() override { return KESTATUS_SUCCESS; }
};

struct DeviceAndSink {
    QuaysideEnumerator enumerator;
    QuaysideDevice device;
    AvtpSink sink;

    DeviceAndSink() {
        unsigned count = 0;
        enumerator.EnumerateDevices(QBXDeviceType_any, count);
        device.OpenRawTxDevice(enumerator, 0, 0, QBXRawHeaderType_None, 0);
        if (sink.CreateAvtpSink(device, {{1, 2, 3, 4, 5, 6}}, 1, 0x6002, 0) != KESTATUS_SUCCESS) {
            std::abort();
        }
        sink.StartSink();
    }
};

void Play(benchmark::State& state, SinkBase& sink) {
    const SyntheticFile file;
    TSFileSource source;
    if (source.CreateTSFileSource(file.Path(), sink, true, cPacketsAhead) != KESTATUS_SUCCESS) {
        state.SkipWithError("cannot open the stream");
        return;
    }
    std::uint64_t delivered = source.QuerryStatistics().infTsPacketsDelivered;
    const std::uint64_t before = delivered;
    while (state.KeepRunning()) {
        if (source.FillDeliverQueue() != KESTATUS_SUCCESS ||
            source.DeliverPackets(TSPacketTimePoint::max()) != KESTATUS_SUCCESS) {
            state.SkipWithError("playing failed");
            return;
        }
        delivered = source.QuerryStatistics().infTsPacketsDelivered;
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(delivered - before));
    // Give the waiting packets back.
    source.StartSource();
    source.StopSource();
}

void ReadAndTime(benchmark::State& state) {
    NullSink sink;
    Play(state, sink);
}
BENCHMARK(ReadAndTime);

void PackFrames(benchmark::State& state) {
    DeviceAndSink output;
    const auto packetsPerBatch = static_cast<unsigned>(state.range(0));
    const TSPacket packet;
    while (state.KeepRunning()) {
        for (unsigned i = 0; i < packetsPerBatch; ++i) {
            output.sink.DeliverTSPacket(packet);
        }
        output.sink.SendDeliveredPackets();
    }
    state.SetItemsProcessed(state.iterations() * packetsPerBatch);
}
BENCHMARK(PackFrames)->Arg(1)->Arg(7)->Arg(66);

void FileToFrames(benchmark::State& state) {
    DeviceAndSink output;
    Play(state, output.sink);
}
BENCHMARK(FileToFrames);

} // namespace

BENCHMARK_MAIN();
