#include "streaming/PacingOracle.h"

#include <algorithm>
#include <set>

namespace testsupport {

namespace {

constexpr std::int64_t cMs = 1000000;
constexpr std::int64_t cSecond = 1000 * cMs;
constexpr std::int64_t cWakePeriod = 10 * cMs;

// Nine ticks are exactly 100000 ns; the fraction is cut off.
std::int64_t Nanoseconds(std::uint64_t ticks) {
    return static_cast<std::int64_t>(ticks / 9 * 100000 + ticks % 9 * 100000 / 9);
}

struct ValidPacket {
    std::uint32_t ordinal;
    std::optional<std::uint64_t> pcr;
};

// The messages of one pass, in the order of the stream.
std::vector<CapturedMessage> ExpectMessages(const TSStream& stream) {
    std::vector<CapturedMessage> messages;
    std::optional<std::uint64_t> lastPcr;
    for (const StreamPacket& packet : stream.Packets()) {
        if (!packet.hasSyncByte) {
            messages.push_back({kestrelon::KEWARN, "ignore invalid TS packet"});
        } else if (packet.pcr) {
            const std::int64_t span = lastPcr ? Nanoseconds(*packet.pcr) - Nanoseconds(*lastPcr) : 0;
            if (span >= cSecond) {
                messages.push_back({kestrelon::KEERROR, "unexpected timeDiff " + std::to_string(span) + " (" +
                                                            std::to_string(span / 1000) + " us)"});
            }
            lastPcr = packet.pcr;
        }
    }
    return messages;
}

} // namespace

ExpectedPlayback ExpectPlayback(const TSStream& stream, std::int64_t startTime, unsigned passes) {
    std::vector<ValidPacket> valid;
    std::vector<std::size_t> references; // positions in valid
    for (std::size_t i = 0; i < stream.Packets().size(); ++i) {
        const StreamPacket& packet = stream.Packets()[i];
        if (packet.hasSyncByte) {
            if (packet.pcr) {
                references.push_back(valid.size());
            }
            valid.push_back({static_cast<std::uint32_t>(i), packet.pcr});
        }
    }

    ExpectedPlayback expected;
    std::int64_t lastTime = 0;
    for (unsigned pass = 0; pass < passes; ++pass) {
        if (references.empty()) {
            break;
        }
        const std::int64_t base = pass == 0 ? startTime + 500 * cMs : lastTime + 100 * cMs;
        const std::int64_t origin = Nanoseconds(*valid[references.front()].pcr);
        for (std::size_t r = 0; r + 1 < references.size(); ++r) {
            const std::size_t first = references[r];
            const std::size_t next = references[r + 1];
            const std::int64_t from = Nanoseconds(*valid[first].pcr);
            const std::int64_t span = Nanoseconds(*valid[next].pcr) - from;
            if (span >= cSecond) {
                continue;
            }
            const auto packets = static_cast<std::int64_t>(next - first + 1);
            for (std::size_t i = first; i < next; ++i) {
                lastTime = base + (from - origin) + static_cast<std::int64_t>(i - first) * (span / packets);
                expected.deliveries.push_back({valid[i].ordinal, lastTime, 0});
            }
        }
    }

    // Packets are handed over in order, each at the first wake-up at which it and all before it are due.
    std::int64_t wakeTime = startTime;
    for (Delivery& delivery : expected.deliveries) {
        const std::int64_t sinceStart = std::max<std::int64_t>(delivery.deliverTime - startTime, 0);
        wakeTime = std::max(wakeTime, startTime + (sinceStart + cWakePeriod - 1) / cWakePeriod * cWakePeriod);
        delivery.wakeTime = wakeTime;
    }

    expected.messages = ExpectMessages(stream);
    return expected;
}

std::vector<std::size_t> GatherInFrames(std::vector<Delivery>& deliveries, std::int64_t startTime,
                                        std::size_t packetsPerFrame) {
    std::vector<std::size_t> frames;
    std::int64_t wakeTime = startTime;
    for (std::size_t sent = 0; sent < deliveries.size();) {
        const std::size_t limit = std::min(sent + packetsPerFrame, deliveries.size());
        std::int64_t full = 0;
        for (std::size_t i = sent; i < limit; ++i) {
            full = std::max(full, deliveries[i].deliverTime);
        }
        wakeTime = std::max(wakeTime, std::min(full, deliveries[sent].deliverTime + 10 * cMs));
        while (sent < limit && deliveries[sent].deliverTime <= wakeTime) {
            deliveries[sent++].wakeTime = wakeTime;
        }
        frames.push_back(sent);
    }
    return frames;
}

std::size_t CountBatches(const std::vector<Delivery>& deliveries) {
    std::set<std::int64_t> wakeTimes;
    for (const Delivery& delivery : deliveries) {
        wakeTimes.insert(delivery.wakeTime);
    }
    return wakeTimes.size();
}

} // namespace testsupport
