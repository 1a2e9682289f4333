#include "streaming/RebasedPacingOracle.h"

#include <cstddef>
#include <map>
#include <optional>

#include "streaming/PacingOracle.h"

namespace testsupport {

namespace {

constexpr std::int64_t cRange = std::int64_t{1} << 33;
constexpr std::int64_t cSecond = 90000; // ticks
constexpr std::int64_t cPause = 100000000;

struct ValidPacket {
    std::uint32_t ordinal;
    StreamPacket packet;
};

// A reference of the followed clock.
struct Reference {
    std::size_t position; // in the valid packets
    std::uint8_t pid;
    std::int64_t ticks;
    bool isBreak;
    std::int64_t distance; // ticks since the reference before, modulo the range
};

std::int64_t Modulo(std::int64_t ticks) {
    return (ticks % cRange + cRange) % cRange;
}

// How far the references of one PID advance, without its own breaks.
std::int64_t Advance(const std::vector<std::int64_t>& references) {
    std::int64_t sum = 0;
    for (std::size_t i = 1; i < references.size(); ++i) {
        const std::int64_t distance = Modulo(references[i] - references[i - 1]);
        sum += distance < cSecond ? distance : 0;
    }
    return sum;
}

std::optional<Reference> FindNext(const std::vector<ValidPacket>& valid, const Reference& last) {
    std::map<std::uint8_t, std::vector<std::int64_t>> others;
    for (std::size_t i = last.position + 1; i < valid.size(); ++i) {
        const StreamPacket& packet = valid[i].packet;
        if (!packet.pcr) {
            continue;
        }
        const auto ticks = static_cast<std::int64_t>(*packet.pcr);
        const std::int64_t distance = Modulo(ticks - last.ticks);
        if (packet.pid == last.pid) {
            return Reference{i, packet.pid, ticks, packet.isDiscontinuous || distance >= cSecond, distance};
        }
        others[packet.pid].push_back(ticks);
        if (Advance(others[packet.pid]) >= cSecond) {
            return Reference{i, packet.pid, ticks, true, distance};
        }
    }
    return std::nullopt;
}

std::vector<Reference> FindReferences(const std::vector<ValidPacket>& valid) {
    std::vector<Reference> references;
    for (std::size_t i = 0; i < valid.size() && references.empty(); ++i) {
        const StreamPacket& packet = valid[i].packet;
        if (packet.pcr) {
            references.push_back({i, packet.pid, static_cast<std::int64_t>(*packet.pcr), false, 0});
        }
    }
    while (!references.empty()) {
        const std::optional<Reference> next = FindNext(valid, references.back());
        if (!next) {
            break;
        }
        references.push_back(*next);
    }
    return references;
}

// The time of each valid packet from the first reference on, with the first one at 0. step: the last one of
// the pass before, and of this pass afterwards.
std::vector<std::int64_t> TimesOf(const std::vector<Reference>& references, std::size_t validCount,
                                  std::int64_t& step) {
    std::vector<std::int64_t> times;
    std::int64_t start = 0;                  // of the part without a break
    std::int64_t from = references[0].ticks; // the same, counted on over wraps
    std::int64_t to = from;
    for (std::size_t r = 0; r < references.size(); ++r) {
        const bool isLast = r + 1 == references.size();
        const std::size_t end = isLast ? validCount : references[r + 1].position;
        const auto packets = static_cast<std::int64_t>(end - references[r].position);
        const auto elapsed = [&] {
            return Nanoseconds(static_cast<std::uint64_t>(to)) -
                   Nanoseconds(static_cast<std::uint64_t>(from));
        };
        const std::int64_t time = start + elapsed();
        if (!isLast && !references[r + 1].isBreak) {
            to += references[r + 1].distance;
            step = (start + elapsed() - time) / (packets + 1);
        }
        for (std::int64_t i = 0; i < packets; ++i) {
            times.push_back(time + i * step);
        }
        if (!isLast && references[r + 1].isBreak) {
            start = time + packets * step;
            from = references[r + 1].ticks;
            to = from;
        }
    }
    return times;
}

std::vector<ExpectedBreak> BreaksOf(const std::vector<ValidPacket>& valid,
                                    const std::vector<Reference>& references) {
    std::vector<ExpectedBreak> breaks;
    for (const Reference& reference : references) {
        if (reference.isBreak) {
            const std::int64_t distance = reference.distance;
            breaks.push_back({valid[reference.position].ordinal + 1u,
                              distance < cRange / 2 ? distance : distance - cRange});
        }
    }
    return breaks;
}

} // namespace

ExpectedRebasedPlayback ExpectRebasedPlayback(const TSStream& stream, std::int64_t startTime,
                                              std::int64_t firstTime, unsigned passes) {
    std::vector<ValidPacket> valid;
    for (std::size_t i = 0; i < stream.Packets().size(); ++i) {
        if (stream.Packets()[i].hasSyncByte) {
            valid.push_back({static_cast<std::uint32_t>(i), stream.Packets()[i]});
        }
    }
    const std::vector<Reference> references = FindReferences(valid);
    ExpectedRebasedPlayback expected;
    if (references.size() < 2) {
        return expected;
    }
    const std::vector<ExpectedBreak> breaks = BreaksOf(valid, references);
    std::int64_t step = 0;
    std::int64_t base = firstTime;
    for (unsigned pass = 0; pass < passes; ++pass) {
        const std::vector<std::int64_t> times = TimesOf(references, valid.size(), step);
        for (std::size_t i = 0; i < valid.size(); ++i) {
            const std::size_t first = references[0].position;
            expected.deliveries.push_back({valid[i].ordinal, base + (i < first ? 0 : times[i - first]), 0});
        }
        expected.breaks.insert(expected.breaks.end(), breaks.begin(), breaks.end());
        base = expected.deliveries.back().deliverTime + cPause;
    }
    SetWakeTimes(expected.deliveries, startTime);
    return expected;
}

} // namespace testsupport
