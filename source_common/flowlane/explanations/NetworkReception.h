// What was wrong with the stream that av2rtp has received. Each function returns a line for the user, or an
// empty text when nothing was wrong.
#ifndef FLOWLANE_NETWORKRECEPTION_H
#define FLOWLANE_NETWORKRECEPTION_H

#include <string>

#include "streaming/AvtpSource.h"

namespace flowlane {

// When nothing was forwarded: whether frames came at all, and why they were ignored. deviceName may be empty.
std::string WordsForNothingForwarded(const AvtpSource::Statistics& stats, const std::string& deviceName);

// Both are silent when nothing was forwarded, which the line above explains.
std::string WordsForGaps(const AvtpSource::Statistics& stats);
std::string WordsForDamage(const AvtpSource::Statistics& stats);

} // namespace flowlane

#endif
