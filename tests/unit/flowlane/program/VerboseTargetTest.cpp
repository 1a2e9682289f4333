// The target of -v: what it writes to standard error, and how it tames floods. The times are the test's own.

#include "program/VerboseTarget.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/LogCons.h"
#include "log/KELogging.h"

namespace flowlane {
namespace {

using namespace kestrelon;

constexpr std::int64_t cSecond = 1'000'000; // microseconds

class VerboseTargetTest : public testing::Test {
protected:
    VerboseTargetTest() { testing::internal::CaptureStderr(); }

    void Log(std::int64_t time, const std::string& text, KELogLevel level = KEWARN,
             const KELogger& from = logger::Global) {
        KELogMessage message;
        message.AppendText(text.c_str());
        KELogMsgMetaData metaData;
        metaData.mTimestamp = time;
        metaData.mMsgLevel = level;
        mTarget->OutputMessage(message, from, metaData);
    }
    // All lines of the test. Ends the capture.
    std::vector<std::string> Lines() {
        std::vector<std::string> lines;
        const std::string text = testing::internal::GetCapturedStderr();
        for (std::size_t begin = 0, end = 0; (end = text.find('\n', begin)) != std::string::npos;
             begin = end + 1) {
            lines.push_back(text.substr(begin, end - begin));
        }
        return lines;
    }

    std::unique_ptr<VerboseTarget> mTarget = std::make_unique<VerboseTarget>();
};

TEST_F(VerboseTargetTest, WritesEachLevelWithItsName) {
    Log(0, "bad", KEERROR);
    Log(0, "odd", KEWARN);
    Log(0, "good", KEINFO);
    Log(0, "detail", KEDUMP);
    EXPECT_EQ(Lines(), (std::vector<std::string>{"ERROR: bad", "WARN: odd", "INFO: good", "INFO: detail"}));
}

TEST_F(VerboseTargetTest, WritesNothingOfCons) {
    Log(0, "statistics", KEINFO, logger::Cons);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(VerboseTargetTest, WritesTenOfAKindPerSecondAndCountsTheOthers) {
    for (int i = 0; i < 25; ++i) {
        Log(1000 + i, "ignore invalid TS packet");
    }
    Log(1000 + cSecond, "all is well", KEINFO);
    std::vector<std::string> expected(10, "WARN: ignore invalid TS packet");
    expected.push_back("WARN: 15 more within a second, the last one: ignore invalid TS packet");
    expected.push_back("INFO: all is well");
    EXPECT_EQ(Lines(), expected);
}

TEST_F(VerboseTargetTest, WritesExactlyTenWithoutACount) {
    for (int i = 0; i < 10; ++i) {
        Log(i, "no flood");
    }
    Log(cSecond, "next", KEINFO);
    std::vector<std::string> expected(10, "WARN: no flood");
    expected.push_back("INFO: next");
    EXPECT_EQ(Lines(), expected);
}

TEST_F(VerboseTargetTest, BeginsAnewEachSecond) {
    for (std::int64_t second = 0; second < 2; ++second) {
        for (int i = 0; i < 11; ++i) {
            Log(second * cSecond + i, "again");
        }
    }
    mTarget.reset();
    std::vector<std::string> expected(10, "WARN: again");
    expected.push_back("WARN: 1 more within a second, the last one: again");
    const std::vector<std::string> ofOneSecond = expected;
    expected.insert(expected.end(), ofOneSecond.begin(), ofOneSecond.end());
    EXPECT_EQ(Lines(), expected);
}

TEST_F(VerboseTargetTest, AMessageOfConsBringsTheCountThatIsDue) {
    for (int i = 0; i < 11; ++i) {
        Log(0, "flood");
    }
    Log(cSecond - 1, "statistics", KEINFO, logger::Cons);
    Log(cSecond - 1, "between", KEINFO);
    Log(cSecond, "statistics", KEINFO, logger::Cons);
    std::vector<std::string> expected(10, "WARN: flood");
    expected.push_back("INFO: between");
    expected.push_back("WARN: 1 more within a second, the last one: flood");
    EXPECT_EQ(Lines(), expected);
}

TEST_F(VerboseTargetTest, MessagesThatDifferInNumbersAreOfOneKind) {
    for (int i = 0; i < 12; ++i) {
        Log(0, "mismatch, got " + std::to_string(i) + ", st=0xe00" + std::to_string(i) + "f");
    }
    mTarget.reset();
    const std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), 11u);
    EXPECT_EQ(lines[9], "WARN: mismatch, got 9, st=0xe009f");
    EXPECT_EQ(lines[10], "WARN: 2 more within a second, the last one: mismatch, got 11, st=0xe0011f");
}

TEST_F(VerboseTargetTest, OtherTextsAndLevelsAreOtherKinds) {
    for (int i = 0; i < 10; ++i) {
        Log(0, "one");
        Log(0, "one", KEERROR);
        Log(0, "one more");
        Log(0, "on");
    }
    mTarget.reset();
    EXPECT_EQ(Lines().size(), 40u);
}

TEST_F(VerboseTargetTest, MoreKindsThanItKeepsAreWrittenAllTheSame) {
    for (char letter = 'a'; letter <= 'z'; ++letter) {
        Log(letter, std::string(1, letter));
    }
    for (int i = 0; i < 12; ++i) {
        Log(200 + i, "zz");
    }
    for (char letter = 'A'; letter <= 'Z'; ++letter) {
        Log(300 + letter, std::string(1, letter));
    }
    const std::vector<std::string> lines = Lines();
    // 26 letters twice, ten of the flood, and its count when its place is needed.
    EXPECT_EQ(lines.size(), 63u);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "WARN: 2 more within a second, the last one: zz"), 1);
}

TEST_F(VerboseTargetTest, ThreadsLoseNoMessage) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this] {
            for (int k = 0; k < 1000; ++k) {
                Log(k, "busy");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    mTarget.reset();
    EXPECT_EQ(Lines().back(), "WARN: 3990 more within a second, the last one: busy");
}

} // namespace
} // namespace flowlane
