#include "explanations/ReplayTexts.h"

#include <ctime>

#include "text/KEFormatter.h"

namespace flowlane {

using namespace kestrelon;

std::uint64_t LeftOutPackets::Count() const noexcept {
    return statistics.errPacketTruncated + statistics.errFrameBufferTooSmall + packets.otherLinkType +
           packets.otherTimeUnit + packets.withoutInterface + packets.withoutTime + packets.obsolete +
           statistics.errInvalidEnhPacket + statistics.errInvalidFrameLength;
}

// Damaged and short packets are in the summary, and nothing helps against them.
bool LeftOutPackets::IsWorthALine() const noexcept {
    return Count() != statistics.errInvalidEnhPacket + statistics.errInvalidFrameLength;
}

std::string LeftOutPackets::Reasons() const {
    std::string text;
    const auto add = [&text](std::uint64_t count, const std::string& reason) {
        if (count != 0) {
            text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + reason;
        }
    };
    add(statistics.errPacketTruncated, "cut short by the snap length of the capture");
    add(statistics.errFrameBufferTooSmall, "longer than " + std::to_string(frameSize) + " bytes");
    add(packets.otherLinkType, "not from an Ethernet interface");
    add(packets.otherTimeUnit, "with times in neither micro- nor nanoseconds");
    add(packets.withoutTime, "without a time");
    add(packets.obsolete, "in blocks of an obsolete type");
    add(packets.withoutInterface, "without a valid section and interface");
    add(statistics.errInvalidEnhPacket, "damaged");
    add(statistics.errInvalidFrameLength, "shorter than an Ethernet header");
    add(packets.triggers, "for external triggers");
    return text;
}

std::string TimeText(std::uint64_t nanoseconds) {
    constexpr std::uint64_t cPerSecond = 1'000'000'000;
    const auto seconds = static_cast<std::time_t>(nanoseconds / cPerSecond);
    std::tm parts{};
    char text[32] = {};
    if (!gmtime_r(&seconds, &parts) || std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts) == 0) {
        return std::to_string(nanoseconds) + " ns";
    }
    return KEStdStringFormat("{}.{:09}", text, nanoseconds % cPerSecond);
}

std::string UnsentText(std::uint64_t frames) {
    if (frames == 0) {
        return "";
    }
    return frames == 1 ? "; 1 frame that was read ahead was not sent"
                       : "; " + std::to_string(frames) + " frames that were read ahead were not sent";
}

} // namespace flowlane
