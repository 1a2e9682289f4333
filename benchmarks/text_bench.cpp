// What the program's most frequent messages cost to format, side by side with the fmt library, and what a
// message costs that nobody gets.
//
// Each message is formatted with the arguments and types of its call site. Ours and Fmt make a string;
// OursBuffer and FmtBuffer write to a buffer on the stack, as the logging does. fmt reads the format strings
// at run time too.
//
// usage: text_bench [options of the benchmark library]. Build with `cmake --build <folder> --target
// text_bench`.

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <tuple>

#include "kestatus.h"
#include "kestatus_util.h"
#include "log/KELogging.h"
#include "text/KEFormatter.h"

using namespace kestrelon;

template <>
struct fmt::formatter<KEFormatArgKEStatus> {
    static constexpr auto parse(format_parse_context& context) { return context.begin(); }
    static auto format(const KEFormatArgKEStatus& status, format_context& context) {
        return format_to(context.out(), runtime("{:#010x}({})"), status.mStatus,
                         KEStringForStatusCode(status.mStatus));
    }
};

namespace {

template <typename... Args>
struct Message {
    const char* mFormat;
    std::tuple<Args...> mArgs;
};

template <typename... Args>
Message<Args...> MakeMessage(const char* format, Args... args) {
    return {format, {args...}};
}

std::uint64_t Count(std::uint64_t count) {
    return count;
}

const std::string cDevice = "segment0(0)";
const std::string cHost = "receiver.example.org";

// Once per second each.
auto Ts2AvStatistics() {
    return MakeMessage("TS packets sent: {}, AVTP packets sent: {}, AVTP packets discarded: {}",
                       Count(1234567), Count(176366), Count(0));
}
auto Av2RtpStatistics() {
    return MakeMessage("AVTP packets received: {}, TS packets sent: {}, UDP packets sent: {}", Count(176366),
                       Count(1234567), Count(176366));
}
auto PcapStatistics() {
    return MakeMessage("{} frames successfully written, {} frames dropped", Count(81274501), Count(0));
}
auto PlayPcapStatistics() {
    return MakeMessage("{} frames successfully sent, {} errors occured", Count(81274501), Count(0));
}
// Up to once per packet, with -v.
auto SequenceMismatch() {
    return MakeMessage("sequence number mismatch, got {}, exp. {}", std::uint8_t{212}, std::uint8_t{209});
}
auto FailedDatagram() {
    return MakeMessage("SendUdpPacket failed, st={}", KEFormatArgKEStatus(KESTATUS_TIMEOUT));
}
// With each start.
auto ApiVersion() {
    return MakeMessage("Quayside library API Version {}.{:02}.", std::uint16_t{2}, std::uint16_t{20});
}
auto FoundDevices() {
    return MakeMessage("Found {} Quayside device(s)", 3u);
}
auto StartOnDevice() {
    return MakeMessage("Start AVTP source on device {}...", cDevice);
}
auto RtpSink() {
    return MakeMessage("Create RTP sink, host name='{}', port={}...", cHost, std::uint16_t{5004});
}

// Only what prints the same is compared.
void CheckEqual(const std::string& ours, const std::string& theirs) {
    if (ours != theirs) {
        std::fprintf(stderr, "text_bench: \"%s\" differs from fmt's \"%s\"\n", ours.c_str(), theirs.c_str());
        std::exit(1);
    }
}

template <auto MakeMessage>
void Ours(benchmark::State& state) {
    auto message = MakeMessage();
    std::apply(
        [&](const auto&... args) {
            CheckEqual(KEStdStringFormat(message.mFormat, args...),
                       fmt::format(fmt::runtime(message.mFormat), args...));
            for (auto _ : state) {
                benchmark::DoNotOptimize(message);
                benchmark::DoNotOptimize(KEStdStringFormat(message.mFormat, args...));
            }
        },
        message.mArgs);
}

template <auto MakeMessage>
void Fmt(benchmark::State& state) {
    auto message = MakeMessage();
    std::apply(
        [&](const auto&... args) {
            for (auto _ : state) {
                benchmark::DoNotOptimize(message);
                benchmark::DoNotOptimize(fmt::format(fmt::runtime(message.mFormat), args...));
            }
        },
        message.mArgs);
}

template <auto MakeMessage>
void OursBuffer(benchmark::State& state) {
    auto message = MakeMessage();
    std::apply(
        [&](const auto&... args) {
            for (auto _ : state) {
                benchmark::DoNotOptimize(message);
                char buffer[KELogMessage::TextSize];
                const fmtimpl::ArgumentArray holders(args...);
                KEFormatter(buffer, sizeof buffer)
                    .FormatArgs(message.mFormat, holders.mHolders, holders.cCount);
                benchmark::DoNotOptimize(buffer);
            }
        },
        message.mArgs);
}

template <auto MakeMessage>
void FmtBuffer(benchmark::State& state) {
    auto message = MakeMessage();
    std::apply(
        [&](const auto&... args) {
            for (auto _ : state) {
                benchmark::DoNotOptimize(message);
                char buffer[KELogMessage::TextSize];
                *fmt::format_to_n(buffer, sizeof buffer - 1, fmt::runtime(message.mFormat), args...).out =
                    '\0';
                benchmark::DoNotOptimize(buffer);
            }
        },
        message.mArgs);
}

#define BENCHMARK_MESSAGE(MakeMessage)                                                                       \
    BENCHMARK(Ours<MakeMessage>)->Name(#MakeMessage "/Ours");                                                \
    BENCHMARK(Fmt<MakeMessage>)->Name(#MakeMessage "/Fmt");                                                  \
    BENCHMARK(OursBuffer<MakeMessage>)->Name(#MakeMessage "/OursBuffer");                                    \
    BENCHMARK(FmtBuffer<MakeMessage>)->Name(#MakeMessage "/FmtBuffer")

BENCHMARK_MESSAGE(Ts2AvStatistics);
BENCHMARK_MESSAGE(Av2RtpStatistics);
BENCHMARK_MESSAGE(PcapStatistics);
BENCHMARK_MESSAGE(PlayPcapStatistics);
BENCHMARK_MESSAGE(SequenceMismatch);
BENCHMARK_MESSAGE(FailedDatagram);
BENCHMARK_MESSAGE(ApiVersion);
BENCHMARK_MESSAGE(FoundDevices);
BENCHMARK_MESSAGE(StartOnDevice);
BENCHMARK_MESSAGE(RtpSink);

// A target is attached, but the logger's level does not admit the message.
void FilteredOut(benchmark::State& state) {
    KELogTarget target("bench");
    KELogger logger("bench", KEINFO);
    if (logger.AttachTarget(target) != KESTATUS_SUCCESS) {
        state.SkipWithError("cannot attach the target");
        return;
    }
    std::uint8_t number = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(number);
        KEOutputLogMessage(logger, KEVERBOSE, "sequence number mismatch, got {}, exp. {}", number, number);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(FilteredOut);

// The level admits the message, but no target is attached.
void WithoutTarget(benchmark::State& state) {
    const KELogger logger("bench", KEINFO);
    std::uint8_t number = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(number);
        KEOutputLogMessage(logger, KEWARN, "sequence number mismatch, got {}, exp. {}", number, number);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(WithoutTarget);

void FailureWithoutTarget(benchmark::State& state) {
    const KELogger logger("bench", KEINFO);
    KESTATUS st = KESTATUS_TIMEOUT;
    for (auto _ : state) {
        benchmark::DoNotOptimize(st);
        KEOutputFailure(logger, "SendUdpPacket failed, st={}", st);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(FailureWithoutTarget);

} // namespace

BENCHMARK_MAIN();
