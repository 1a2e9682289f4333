#include "program/VerboseTarget.h"

#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cstdio>
#include <limits>

#include "base/LogCons.h"
#include "log/KELogging.h"

namespace flowlane {

using namespace kestrelon;

namespace {

constexpr std::int64_t cSecond = 1'000'000; // microseconds

bool IsDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

// Behind the number that begins here, decimal or hexadecimal.
const char* SkipNumber(const char* text) {
    text += text[0] == '0' && text[1] == 'x' ? 2 : 0;
    while (std::isxdigit(static_cast<unsigned char>(*text)) != 0) {
        ++text;
    }
    return text;
}

bool AreSameButForNumbers(const char* left, const char* right) {
    while (*left != '\0' && *right != '\0') {
        if (IsDigit(*left) && IsDigit(*right)) {
            left = SkipNumber(left);
            right = SkipNumber(right);
        } else if (*left++ != *right++) {
            return false;
        }
    }
    return *left == *right;
}

} // namespace

VerboseTarget::VerboseTarget() noexcept : KELogTargetConsole("Verbose", KEMAXLEVEL) {
    mPrefixLayout.SetPrefixOptions(KELogMsgPrefixLayout::LevelName);
}

VerboseTarget::~VerboseTarget() {
    EndKindsBefore(std::numeric_limits<std::int64_t>::max());
}

void VerboseTarget::OutputMessage(KELogMessage& message, const KELogger& logger,
                                  const KELogMsgMetaData& metaData) {
    const std::lock_guard lock(mMutex);
    EndKindsBefore(metaData.mTimestamp - cSecond + 1);
    if (&logger == &logger::Cons) {
        return;
    }
    Kind& kind = KindOf(message, metaData);
    if (kind.written < cMaxPerSecond) {
        ++kind.written;
        KELogTargetConsole::OutputMessage(message, logger, metaData);
    } else {
        ++kind.suppressed;
    }
}

VerboseTarget::Kind& VerboseTarget::KindOf(const KELogMessage& message, const KELogMsgMetaData& metaData) {
    auto found = std::find_if(mKinds.begin(), mKinds.end(), [&](const Kind& kind) {
        return kind.isUsed && kind.level == metaData.mMsgLevel &&
               AreSameButForNumbers(kind.text, message.Text());
    });
    if (found == mKinds.end()) {
        // A free one, or else the oldest.
        found = std::min_element(mKinds.begin(), mKinds.end(), [](const Kind& left, const Kind& right) {
            return left.isUsed != right.isUsed ? right.isUsed : left.start < right.start;
        });
        End(*found);
        *found = {.isUsed = true, .start = metaData.mTimestamp, .level = metaData.mMsgLevel};
    }
    std::copy_n(message.Text(), message.TextLength() + 1, found->text);
    return *found;
}

// Ends the kinds whose second began before this time.
void VerboseTarget::EndKindsBefore(std::int64_t time) {
    for (Kind& kind : mKinds) {
        if (kind.isUsed && kind.start < time) {
            End(kind);
        }
    }
}

void VerboseTarget::End(Kind& kind) {
    if (kind.isUsed && kind.suppressed != 0) {
        // As with every console line, a failure is ignored.
        static_cast<void>(std::fprintf(stderr, "%s: %" PRIu64 " more within a second, the last one: %s\n",
                                       KEGetLogLevelName(kind.level), kind.suppressed, kind.text));
        static_cast<void>(std::fflush(stderr));
    }
    kind.isUsed = false;
}

} // namespace flowlane
