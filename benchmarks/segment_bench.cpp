// How fast the virtual segment carries frames between two processes, and how soon a sleeping receiver wakes.
//
// usage: segment_bench [ROUNDS [FRAMES]]. Uses a segment of its own, which it removes.

#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "quayside2_api.h"

namespace {

constexpr std::uint32_t cLatencyFrames = 2000;
constexpr std::size_t cStampOffset = 16;
constexpr std::size_t cLastOffset = 24; // not 0 in the last frame of a run

struct Result {
    std::uint64_t frames = 0;
    std::uint64_t lost = 0;
    double cpuSeconds = 0;
    double p50 = 0; // microseconds
    double p99 = 0;
};

[[noreturn]] void Fail(const char* what, KESTATUS st) {
    std::fprintf(stderr, "segment_bench: %s failed, status 0x%08x\n", what, st);
    std::_Exit(1);
}

void Check(const char* what, KESTATUS st) {
    if (st != KESTATUS_SUCCESS) {
        Fail(what, st);
    }
}

std::uint64_t Now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000000u + static_cast<std::uint64_t>(now.tv_nsec);
}

double CpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           1e-6 * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

QBXDeviceHandle Open(std::uint32_t index, bool transmit) {
    QBXEnumerationHandle enumeration = 0;
    std::uint32_t count = 0;
    QBXDeviceHandle device = 0;
    Check("EnumerateDevices", QBX_EnumerateDevices(QBXDeviceType_any, &enumeration, &count));
    Check("open", transmit ? QBX_OpenRawTxDevice(enumeration, index, 0, QBXRawHeaderType_None, &device, 0)
                           : QBX_OpenRawRxDevice(enumeration, index, 0, QBXRawHeaderType_2, &device, 0));
    QBX_CloseEnumeration(enumeration);
    return device;
}

// Receives until the last frame of a run.
Result Receive(QBXDeviceHandle device, bool latency) {
    Result result;
    std::vector<double> latencies;
    latencies.reserve(cLatencyFrames + 1);
    std::uint32_t expected = 0;
    const double cpuAtStart = CpuSeconds();
    for (bool last = false; !last;) {
        Check("WaitForRawFrame", QBX_WaitForRawFrame(device, 10000));
        std::uint8_t buffer[1538];
        std::uint32_t length = 0;
        while (QBX_GetReceivedRawFrame(device, nullptr, buffer, sizeof buffer, &length) == KESTATUS_SUCCESS) {
            const std::uint8_t* const frame = buffer + QBX_RAW_HEADER_2_SIZE;
            std::uint32_t sequence = 0;
            std::memcpy(&sequence, buffer + QBX_RAW_HEADER_2_SEQUENCE_OFFSET, sizeof sequence);
            result.lost += sequence - expected;
            expected = sequence + 1;
            ++result.frames;
            if (latency) {
                std::uint64_t sent = 0;
                std::memcpy(&sent, frame + cStampOffset, sizeof sent);
                latencies.push_back(static_cast<double>(Now() - sent) / 1000.0);
            }
            last = last || frame[cLastOffset] != 0;
        }
    }
    result.cpuSeconds = CpuSeconds() - cpuAtStart;
    if (!latencies.empty()) {
        std::sort(latencies.begin(), latencies.end());
        result.p50 = latencies[latencies.size() / 2];
        result.p99 = latencies[latencies.size() * 99 / 100];
    }
    return result;
}

void Submit(QBXDeviceHandle device, std::vector<std::uint8_t>& frame, bool last) {
    frame[cLastOffset] = last ? 1 : 0;
    const auto length = static_cast<std::uint32_t>(frame.size());
    KESTATUS st = QBX_CheckSubmitRawFrame(device, length);
    if (st == KESTATUS_NO_SPACE) {
        Check("SendRawFrames", QBX_SendRawFrames(device));
        st = QBX_CheckSubmitRawFrame(device, length);
    }
    Check("CheckSubmitRawFrame", st);
    Check("SubmitRawFrame", QBX_SubmitRawFrame(device, frame.data(), length, nullptr));
}

struct Run {
    std::uint32_t length;
    std::uint32_t batch;
    std::uint64_t frames;
    std::uint32_t gapMicroseconds = 0; // 0: as fast as possible
};

// Sends a run from this process to another one and returns what that one saw.
Result Measure(const Run& run, double& seconds, double& cpuSeconds) {
    int ready[2];
    int done[2];
    if (pipe(ready) != 0 || pipe(done) != 0) {
        Fail("pipe", KESTATUS_FAILED);
    }
    const pid_t child = fork();
    if (child < 0) {
        Fail("fork", KESTATUS_FAILED);
    }
    if (child == 0) {
        const QBXDeviceHandle device = Open(1, false);
        Check("EnableRawRx", QBX_EnableRawRx(device));
        const char go = 1;
        if (write(ready[1], &go, 1) != 1) {
            std::_Exit(1);
        }
        const Result result = Receive(device, run.gapMicroseconds != 0);
        QBX_CloseDevice(device);
        std::_Exit(write(done[1], &result, sizeof result) == sizeof result ? 0 : 1);
    }
    close(done[1]);
    char go = 0;
    if (read(ready[0], &go, 1) != 1) {
        Fail("receiver", KESTATUS_FAILED);
    }
    const QBXDeviceHandle device = Open(0, true);
    std::vector<std::uint8_t> frame(run.length, 0x5A);
    const double cpuAtStart = CpuSeconds();
    const std::uint64_t start = Now();
    for (std::uint64_t i = 1; i <= run.frames; ++i) {
        if (run.gapMicroseconds != 0) {
            usleep(run.gapMicroseconds);
            const std::uint64_t now = Now();
            std::memcpy(frame.data() + cStampOffset, &now, sizeof now);
        }
        Submit(device, frame, i == run.frames);
        if (i % run.batch == 0 || i == run.frames) {
            const KESTATUS st = QBX_SendRawFrames(device);
            if (st != KESTATUS_NO_DATA) {
                Check("SendRawFrames", st);
            }
        }
    }
    cpuSeconds = CpuSeconds() - cpuAtStart;
    Result result;
    if (read(done[0], &result, sizeof result) != sizeof result) {
        Fail("receiver", KESTATUS_FAILED);
    }
    seconds = static_cast<double>(Now() - start) / 1e9; // until the receiver had everything
    QBX_CloseDevice(device);
    waitpid(child, nullptr, 0);
    close(ready[0]);
    close(ready[1]);
    close(done[0]);
    return result;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// A row of the table (table.py).
void PrintRow(const std::string& name, const char* unit, double value, const char* better) {
    std::printf("{\"group\": \"between two processes on the segment\", \"name\": \"%s\", \"unit\": \"%s\", "
                "\"ours\": %g, \"peers\": {}, \"goal\": null, \"better\": \"%s\"}\n",
                name.c_str(), unit, value, better);
}

void Throughput(unsigned rounds, std::uint64_t frames) {
    std::uint64_t lost = 0;
    std::uint64_t sent = 0;
    for (const std::uint32_t length : {128u, 1514u}) {
        for (const std::uint32_t batch : {1u, 64u}) {
            std::vector<double> rates;
            std::vector<double> costs;
            const Run run = {.length = length, .batch = batch, .frames = frames};
            for (unsigned round = 0; round < rounds; ++round) {
                double seconds = 0;
                double cpu = 0;
                const Result result = Measure(run, seconds, cpu);
                rates.push_back(static_cast<double>(frames) / seconds);
                costs.push_back(1e9 * (cpu + result.cpuSeconds) / static_cast<double>(frames));
                lost += result.lost;
                sent += frames;
            }
            const std::string name = std::to_string(length) + " bytes, sent by " + std::to_string(batch);
            PrintRow(name, "frames/s", Median(rates), "higher");
            PrintRow(name + ": CPU of both ends", "ns per frame", Median(costs), "lower");
        }
    }
    PrintRow("lost in all", "%", 100 * static_cast<double>(lost) / static_cast<double>(sent), "lower");
}

void WakeUp(unsigned rounds) {
    std::vector<double> p50;
    std::vector<double> p99;
    for (unsigned round = 0; round < rounds; ++round) {
        double seconds = 0;
        double cpu = 0;
        const Result result = Measure(
            {.length = 512, .batch = 1, .frames = cLatencyFrames, .gapMicroseconds = 1000}, seconds, cpu);
        p50.push_back(result.p50);
        p99.push_back(result.p99);
    }
    PrintRow("wake-up of a sleeping receiver, p50", "us", Median(p50), "lower");
    PrintRow("wake-up of a sleeping receiver, p99", "us", Median(p99), "lower");
}

} // namespace

int main(int argc, char** argv) {
    const unsigned long rounds = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 5;
    const unsigned long frames = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 2000000;
    if (rounds == 0 || frames == 0) {
        std::fputs("usage: segment_bench [ROUNDS [FRAMES]]\n", stderr);
        return 2;
    }
    const std::string name = "bench-" + std::to_string(getpid());
    setenv("QUAYSIDE2_SEGMENT", name.c_str(), 1);
    unsetenv("QUAYSIDE2_DEVICES");
    Throughput(static_cast<unsigned>(rounds), frames);
    WakeUp(static_cast<unsigned>(rounds));
    const std::string path = "/dev/shm/quayside2-" + std::to_string(geteuid()) + "-" + name;
    unlink(path.c_str());
    return 0;
}
