// What one packet costs in the ts2av pipeline: reading and timing a file, packing into AVTP frames, and both
// together. The device takes every frame and does nothing.
//
// usage: pipeline_bench [options of the benchmark library]

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "streaming/AvtpSink.h"
#include "streaming/TSFileSource.h"

using namespace flowlane;

namespace {

constexpr unsigned cPacketsAhead = 10000;

// A file of 20000 packets, 40 ms between PCRs at about 10 Mbit/s; removed at the end.
class SyntheticFile {
public:
    SyntheticFile() {
        const int descriptor = mkstemp(mPath.data());
        std::FILE* file = descriptor < 0 ? nullptr : fdopen(descriptor, "wb");
        if (!file) {
            Fail();
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
            if (std::fwrite(packet, sizeof packet, 1, file) != 1) {
                Fail();
            }
        }
        if (std::fclose(file) != 0) {
            Fail();
        }
    }
    ~SyntheticFile() { unlink(mPath.c_str()); }
    SyntheticFile(const SyntheticFile&) = delete;
    SyntheticFile& operator=(const SyntheticFile&) = delete;

    const char* Path() const { return mPath.c_str(); }

private:
    [[noreturn]] static void Fail() {
        std::perror("cannot write the stream");
        std::exit(1);
    }

    std::string mPath = std::filesystem::temp_directory_path() / "pipeline-bench-XXXXXX";
};

class NullSink final : public SinkBase {
public:
    KESTATUS StartSink() override { return KESTATUS_SUCCESS; }
    void StopSink() override {}
    KESTATUS DeliverTSPacket(const TSPacket& packet) override {
        TSPacketTimePoint time = packet.mDeliverTime;
        benchmark::DoNotOptimize(time);
        return KESTATUS_SUCCESS;
    }
    KESTATUS SendDeliveredPackets() override { return KESTATUS_SUCCESS; }
};

void Check(KESTATUS st) {
    if (st != KESTATUS_SUCCESS) {
        std::fprintf(stderr, "pipeline_bench: unexpected status 0x%08x\n", st);
        std::exit(1);
    }
}

struct DeviceAndSink {
    QuaysideEnumerator mEnumerator;
    QuaysideDevice mDevice;
    AvtpSink mSink;

    DeviceAndSink() {
        unsigned count = 0;
        Check(mEnumerator.EnumerateDevices(QBXDeviceType_any, count));
        Check(mDevice.OpenRawTxDevice(mEnumerator, 0, 0, QBXRawHeaderType_None, 0));
        Check(mSink.CreateAvtpSink(mDevice, {{1, 2, 3, 4, 5, 6}}, 1, 0x6002, 0));
        Check(mSink.StartSink());
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
    Check(source.StartSource());
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
            Check(output.mSink.DeliverTSPacket(packet));
        }
        Check(output.mSink.SendDeliveredPackets());
    }
    state.SetItemsProcessed(state.iterations() * packetsPerBatch);
}
BENCHMARK(PackFrames)->Arg(1)->Arg(7)->Arg(66);

void FileToFrames(benchmark::State& state) {
    DeviceAndSink output;
    Play(state, output.mSink);
}
BENCHMARK(FileToFrames);

} // namespace

BENCHMARK_MAIN();
