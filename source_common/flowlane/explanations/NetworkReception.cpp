#include "explanations/NetworkReception.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <vector>

#include "explanations/MessageText.h"

namespace flowlane {

namespace {

std::string Counted(std::uint64_t count, const char* one, const char* several) {
    return std::to_string(count) + " " + (count == 1 ? one : several);
}

// Why frames were not forwarded, with their numbers.
std::string Reasons(const AvtpSource::Statistics& stats) {
    struct Reason {
        std::uint64_t count;
        const char* words;
    };
    std::vector<Reason> reasons = {{stats.infOtherDestination, "for another receiver"},
                                   {stats.infOtherSender, "not from the sender of -m"},
                                   {stats.infOtherUniqueId, "without the ID of -u"},
                                   {stats.infOtherProtocol, "of other protocols"},
                                   {stats.infOtherFormat, "without a transport stream"},
                                   {stats.errFramesDamaged, "damaged"}};
    const std::uint64_t known =
        std::accumulate(reasons.begin(), reasons.end(), std::uint64_t{0},
                        [](std::uint64_t sum, const Reason& reason) { return sum + reason.count; });
    reasons.push_back(
        {stats.infFramesTaken - std::min(known, stats.infFramesTaken), "without a whole packet"});
    std::vector<std::string> texts;
    for (const Reason& reason : reasons) {
        if (reason.count != 0) {
            texts.push_back(std::to_string(reason.count) + " " + reason.words);
        }
    }
    return JoinedBy(", ", texts);
}

} // namespace

std::string WordsForNothingForwarded(const AvtpSource::Statistics& stats, const std::string& deviceName) {
    if (stats.infTsPacketsDelivered != 0) {
        return "";
    }
    const std::string device = deviceName.empty() ? "the device" : "the device " + Quoted(deviceName);
    if (stats.infFramesTaken == 0) {
        return "No frame has come to " + device + ". Check the sender, or choose another device with -n.";
    }
    return "No stream for this receiver has come to " + device + ". Of " +
           Counted(stats.infFramesTaken, "frame", "frames") + ": " + Reasons(stats) + ".";
}

std::string WordsForGaps(const AvtpSource::Statistics& stats) {
    if (stats.errGaps == 0 || stats.infTsPacketsDelivered == 0) {
        return "";
    }
    return "The received stream has " + Counted(stats.errGaps, "gap", "gaps") +
           ": frames were lost on the way, the sender has started again, or streams are mixed (choose one "
           "with -m or -u).";
}

std::string WordsForDamage(const AvtpSource::Statistics& stats) {
    if (stats.errFramesDamaged == 0 || stats.infTsPacketsDelivered == 0) {
        return "";
    }
    return Counted(stats.errFramesDamaged, "damaged frame was", "damaged frames were") +
           " left out of the stream.";
}

} // namespace flowlane
