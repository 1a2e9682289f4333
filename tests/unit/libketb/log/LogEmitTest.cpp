// Emitting messages: levels, headers, arguments, what the targets get; hex dumps.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "LogCapture.h"
#include "log/KELogging.h"
#include "log/RecordingTarget.h"

using namespace kestrelon;
using testsupport::DebugOutputCapture;
using testsupport::ModuleName;
using testsupport::RecordingTarget;

namespace {

using Lines = std::vector<std::string>;

class LogEmitTest : public testing::Test {
protected:
    LogEmitTest() { EXPECT_EQ(mLogger.AttachTarget(mTarget), KESTATUS_SUCCESS); }

    Lines TakeLines() { return std::exchange(mTarget.mLines, {}); }

    KELogger mLogger{"Emitter", KEINFO};
    RecordingTarget mTarget;
};

TEST_F(LogEmitTest, AMessagePassesALoggerOfItsLevelOrAbove) {
    const KELogLevel levels[] = {KEALWAYS,  KEFATAL, KEERROR, KEWARN,    KEINFO,
                                 KEVERBOSE, KETRACE, KEDUMP,  KEMAXLEVEL};
    for (const KELogLevel loggerLevel : levels) {
        mLogger.SetLevel(loggerLevel);
        for (const KELogLevel level : levels) {
            KEOutputLogMessage(mLogger, level, "x");
            EXPECT_EQ(TakeLines().size(), level <= loggerLevel ? 1u : 0u) << level << " at " << loggerLevel;
        }
    }
}

TEST_F(LogEmitTest, AnOffLoggerPassesWhatIsAlwaysShown) {
    mLogger.SetLevel(KEOFF);
    KEOutputLogMessage(mLogger, KEALWAYS, "shown");
    KEOutputLogMessage(mLogger, KEFATAL, "not shown");
    EXPECT_EQ(TakeLines(), Lines{"shown"});
}

TEST_F(LogEmitTest, TheLevelIsCheckedAgainByTheLogger) {
    KELogMessage message;
    message.AppendText("x");
    mLogger.OutputMessage(KEVERBOSE, message);
    EXPECT_TRUE(mTarget.mLines.empty());
    mLogger.OutputMessage(KEINFO, message);
    EXPECT_EQ(TakeLines(), Lines{"x"});
}

struct Counting {
    int FormatObject(KEFormatterBase& fmt, const KEFormatSpec&) const {
        ++mCalls;
        fmt.PutString("counted");
        return 0;
    }
    mutable int mCalls = 0;
};

TEST_F(LogEmitTest, ArgumentsAreFormattedOnceAndOnlyWhenShown) {
    const Counting argument;
    KEOutputLogMessage(mLogger, KEVERBOSE, "{}", argument);
    EXPECT_EQ(argument.mCalls, 0);
    KEOutputLogMessage(mLogger, KEINFO, "{}", argument);
    EXPECT_EQ(argument.mCalls, 1);
    EXPECT_EQ(TakeLines(), Lines{"counted"});
}

TEST_F(LogEmitTest, HeadersAndArguments) {
    const KELogMsgHeaderTag first{"First"};
    const KELogMsgHeaderTag second{"{}Second"};
    KEOutputLogMessage(mLogger, KEINFO, "{} {}", 1, "a");
    KEOutputLogMessage(mLogger, KEINFO, first, "{} {}", 1, "a");
    KEOutputLogMessage(mLogger, KEINFO, first, second, "{} {}", 1, "a");
    KEOutputLogMessage(mLogger, KEINFO, first, "no arguments");
    EXPECT_EQ(TakeLines(), (Lines{"1 a", "First: 1 a", "First:{}Second: 1 a", "First: no arguments"}));
}

TEST_F(LogEmitTest, FilteredMessagesWithHeaders) {
    const KELogMsgHeaderTag tag{"T"};
    const Counting argument;
    KEOutputLogMessage(mLogger, KEVERBOSE, tag, "{}", argument);
    KEOutputLogMessage(mLogger, KEVERBOSE, tag, tag, "{}", argument);
    KEOutputLogMessageImpl({mLogger, KEVERBOSE, &tag});
    KEOutputLogMessageImpl({mLogger, KEVERBOSE, &tag}, "x");
    EXPECT_TRUE(TakeLines().empty());
    EXPECT_EQ(argument.mCalls, 0);
}

TEST_F(LogEmitTest, FunctionTagIsTheSignature) {
    KEOutputLogMessage(mLogger, KEERROR, KE_FUNCTION_TAG, "nanosleep failed, err={}", 22);
    ASSERT_EQ(mTarget.mLines.size(), 1u);
    EXPECT_NE(mTarget.mLines[0].find("TestBody()"), std::string::npos);
    EXPECT_TRUE(mTarget.mLines[0].ends_with(": nanosleep failed, err=22"));
}

TEST_F(LogEmitTest, AFailedStepIsAnErrorAndItsStatusIsReturned) {
    EXPECT_EQ(KEOutputFailure(mLogger, "Step failed, st={}", KESTATUS_TIMEOUT), KESTATUS_TIMEOUT);
    EXPECT_EQ(KEOutputFailure(mLogger, KELogMsgHeaderTag{"Tag"}, "Step failed, st={}.", KESTATUS_FAILED),
              KESTATUS_FAILED);
    const std::string failed = KEStdStringFormat("{}", KEFormatArgKEStatus(KESTATUS_FAILED));
    EXPECT_EQ(mTarget.mLines[1], "Tag: Step failed, st=" + failed + ".");
    ASSERT_EQ(mTarget.mMetaData.size(), 2u);
    EXPECT_EQ(mTarget.mMetaData[0].mMsgLevel, KEERROR);
    EXPECT_EQ(mTarget.mMetaData[1].mMsgLevel, KEERROR);
    EXPECT_THAT(mTarget.mLines[0], testing::AllOf(testing::StartsWith("Step failed, st="),
                                                  testing::HasSubstr("KESTATUS_TIMEOUT")));
}

TEST_F(LogEmitTest, HeadersAlone) {
    const KELogMsgHeaderTag tag{"Tag"};
    KEOutputLogMessageImpl({mLogger, KEINFO, &tag, nullptr, "header text"});
    KEOutputLogMessageImpl({mLogger, KEINFO});
    EXPECT_EQ(TakeLines(), (Lines{"Tag: header text", ""}));
}

TEST_F(LogEmitTest, ATextWithoutArgumentsIsAFormatStringAllTheSame) {
    const DebugOutputCapture output;
    KEOutputLogMessageImpl({mLogger, KEINFO}, "a {{b}} c");
    EXPECT_TRUE(output.Messages().empty());
    KEOutputLogMessageImpl({mLogger, KEINFO, nullptr, nullptr, "h"}, "a{}b");
    EXPECT_EQ(TakeLines(), (Lines{"a {b} c", "hab"}));
    ASSERT_EQ(output.Messages().size(), 2u);
    EXPECT_NE(output.Messages()[0].find(": No argument for {} replacement field."), std::string::npos);
    EXPECT_EQ(output.Messages()[1], "a{}b\n");
}

TEST_F(LogEmitTest, OverlongTexts) {
    const std::string text(600, 'x');
    const KELogMsgHeaderTag tag{"Tag"};
    KEOutputLogMessage(mLogger, KEINFO, "{}", text);
    KEOutputLogMessage(mLogger, KEINFO, tag, "{}", text);
    EXPECT_EQ(TakeLines(), (Lines{text.substr(0, 511), "Tag: " + text.substr(0, 506)}));
}

TEST_F(LogEmitTest, EachTargetHasItsOwnPrefix) {
    const ModuleName module("mod");
    RecordingTarget second;
    RecordingTarget third;
    EXPECT_EQ(mLogger.AttachTarget(second), KESTATUS_SUCCESS);
    EXPECT_EQ(mLogger.AttachTarget(third), KESTATUS_SUCCESS);
    mTarget.mPrefixLayout.mOptions = 0x700;
    third.mPrefixLayout.mOptions = 0x400;
    KEOutputLogMessage(mLogger, KEERROR, "text");
    EXPECT_EQ(mTarget.mLines, Lines{"mod: Emitter: ERROR: text"});
    EXPECT_EQ(second.mLines, Lines{"text"});
    EXPECT_EQ(third.mLines, Lines{"ERROR: text"});
}

std::int64_t MonotonicMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

TEST_F(LogEmitTest, MetaData) {
    const std::int64_t before = MonotonicMicroseconds();
    KEOutputLogMessage(mLogger, KEWARN, "x");
    const std::int64_t after = MonotonicMicroseconds();
    ASSERT_EQ(mTarget.mMetaData.size(), 1u);
    const KELogMsgMetaData& metaData = mTarget.mMetaData[0];
    EXPECT_GE(metaData.mTimestamp, before);
    EXPECT_LE(metaData.mTimestamp, after);
    EXPECT_EQ(metaData.mProcessID, getpid());
    EXPECT_EQ(metaData.mThreadID, gettid());
    EXPECT_EQ(metaData.mMsgLevel, KEWARN);
}

TEST_F(LogEmitTest, WithoutTargetsNothingIsFormatted) {
    const DebugOutputCapture output;
    const KELogMsgHeaderTag tag{"Tag"};
    const Counting argument;
    const auto logAll = [&] {
        KEOutputLogMessage(mLogger, KEFATAL, "{}", argument);
        KEOutputLogMessage(mLogger, KEFATAL, tag, "{}", argument);
        KEOutputLogMessage(mLogger, KEFATAL, tag, tag, "{}", argument);
        const fmtimpl::ArgumentHolder holder = fmtimpl::MakeArgument(argument);
        KEOutputLogMessageArgs({mLogger, KEALWAYS}, "{}", &holder, 1);
        KEOutputLogMessageImpl({mLogger, KEFATAL}, "a field without an argument: {}");
    };
    mLogger.DetachAllTargets();
    logAll();
    EXPECT_EQ(argument.mCalls, 0);
    EXPECT_TRUE(output.Messages().empty());
    EXPECT_TRUE(mTarget.mLines.empty());
    EXPECT_EQ(mLogger.AttachTarget(mTarget), KESTATUS_SUCCESS);
    logAll();
    EXPECT_EQ(argument.mCalls, 4);
    EXPECT_EQ(output.Messages().size(), 2u);
    EXPECT_EQ(mTarget.mLines.size(), 5u);
}

// --- Hex dumps -----------------------------------------------------------------------------------

class LogHexDumpTest : public LogEmitTest {
protected:
    Lines Dump(const void* data, std::size_t length, unsigned bytesPerLine = 16) {
        KEOutputHexDumpImpl({mLogger, KEINFO}, data, length, bytesPerLine);
        return TakeLines();
    }
};

TEST_F(LogHexDumpTest, NothingToDump) {
    EXPECT_EQ(Dump(nullptr, 5), Lines{"<<nullptr>>"});
    EXPECT_EQ(Dump(nullptr, 0), Lines{"<<nullptr>>"}) << "the null pointer is seen first";
    EXPECT_EQ(Dump("x", 0), Lines{"<<zero length>>"});
}

TEST_F(LogHexDumpTest, ShortLastLineIsFilledUp) {
    const std::string missing(12 * 3, ' ');
    const Lines expected = {
        "0000:41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50 ABCDEFGHIJKLMNOP",
        "0010:51 52 53 54 " + missing + "QRST",
    };
    EXPECT_EQ(Dump("ABCDEFGHIJKLMNOPQRST", 20), expected);
    EXPECT_EQ(Dump("ABCDEFGHIJKLMNOPQRST", 20, 0), expected) << "16 bytes a line are the default";
    EXPECT_EQ(Dump("ABCDEFGHIJKLMNOP", 16), Lines{expected[0]});
}

TEST_F(LogHexDumpTest, OtherBytesThan32To127AreDots) {
    const unsigned char bytes[] = {0x00, 0x1F, 0x20, 0x7B, 0x7D, 0x7E, 0x7F, 0x80, 0xFF};
    EXPECT_EQ(Dump(bytes, sizeof bytes, 9), Lines{"0000:00 1f 20 7b 7d 7e 7f 80 ff .. {}~\x7f.."});
}

TEST_F(LogHexDumpTest, BytesPerLine) {
    EXPECT_EQ(Dump("abcde", 5, 2), (Lines{"0000:61 62 ab", "0002:63 64 cd", "0004:65    e"}));
    EXPECT_EQ(Dump("abc", 3, 1), (Lines{"0000:61 a", "0001:62 b", "0002:63 c"}));
}

TEST_F(LogHexDumpTest, OverlongLinesAreCut) {
    const std::string data(200, 'a');
    const Lines lines = Dump(data.data(), data.size(), 200);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].size(), 511u);
    EXPECT_TRUE(lines[0].starts_with("0000:61 61 "));
}

TEST_F(LogHexDumpTest, ALineOfAnyLengthIsWrittenAtOnce) {
    const Lines lines = Dump("abc", 3, 0xFFFFFFFF);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "0000:61 62 63 " + std::string(511 - 14, ' '));
}

TEST_F(LogHexDumpTest, OffsetsHaveFourDigitsUpTo64KiB) {
    const std::vector<unsigned char> data(0x10000, 0x2E);
    const Lines lines = Dump(data.data(), data.size());
    ASSERT_EQ(lines.size(), 4096u);
    const std::string bytes = "2e 2e 2e 2e 2e 2e 2e 2e 2e 2e 2e 2e 2e 2e 2e 2e ................";
    EXPECT_EQ(lines.front(), "0000:" + bytes);
    EXPECT_EQ(lines[0xABC], "abc0:" + bytes);
    EXPECT_EQ(lines.back(), "fff0:" + bytes);
}

TEST_F(LogHexDumpTest, OffsetsHaveEightDigitsBeyond64KiB) {
    std::vector<unsigned char> data(0x10001, 0x2E);
    data.back() = 0x5A;
    const Lines lines = Dump(data.data(), data.size());
    ASSERT_EQ(lines.size(), 4097u);
    const std::string bytes = "2e 2e 2e 2e 2e 2e 2e 2e 2e 2e 2e 2e 2e 2e 2e 2e ................";
    EXPECT_EQ(lines.front(), "00000000:" + bytes);
    EXPECT_EQ(lines[4095], "0000fff0:" + bytes);
    EXPECT_EQ(lines.back(), "00010000:5a " + std::string(15 * 3, ' ') + "Z");
}

TEST_F(LogHexDumpTest, EveryLineHasTheHeaders) {
    const KELogMsgHeaderTag tag{"Tag"};
    KEOutputHexDumpImpl({mLogger, KEWARN, &tag}, "ab", 2, 1);
    EXPECT_EQ(TakeLines(), (Lines{"Tag: 0000:61 a", "Tag: 0001:62 b"}));
    for (const KELogMsgMetaData& metaData : mTarget.mMetaData) {
        EXPECT_EQ(metaData.mMsgLevel, KEWARN);
    }
}

TEST_F(LogHexDumpTest, FilteredDump) {
    KEOutputHexDumpImpl({mLogger, KEVERBOSE}, "ab", 2, 16);
    KEOutputHexDumpImpl({mLogger, KEVERBOSE}, nullptr, 2, 16);
    EXPECT_TRUE(TakeLines().empty());
}

} // namespace
