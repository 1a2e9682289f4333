// The console target, and messages from several threads.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "log/KELogTargetConsole.h"
#include "log/KELogging.h"
#include "log/RecordingTarget.h"

using namespace kestrelon;
using testsupport::LogCapture;
using testsupport::ModuleName;

namespace {

// Sends a stream through a pipe while it lives, so that what has been flushed can be told from what has not.
class StreamPipe {
public:
    StreamPipe(std::FILE* stream, int fd) : mStream(stream), mFd(fd), mOld(dup(fd)) {
        std::fflush(stream);
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_NONBLOCK), 0);
        mReadEnd = ends[0];
        EXPECT_EQ(dup2(ends[1], fd), fd);
        close(ends[1]);
    }
    ~StreamPipe() {
        std::fflush(mStream);
        dup2(mOld, mFd);
        close(mOld);
        close(mReadEnd);
    }
    StreamPipe(const StreamPipe&) = delete;
    StreamPipe& operator=(const StreamPipe&) = delete;

    std::string Take() const {
        char buffer[4096];
        const ssize_t length = read(mReadEnd, buffer, sizeof buffer);
        return length > 0 ? std::string(buffer, static_cast<std::size_t>(length)) : std::string();
    }

private:
    std::FILE* mStream;
    int mFd;
    int mOld;
    int mReadEnd = -1;
};

class LogConsoleTest : public testing::Test {
protected:
    LogConsoleTest() { EXPECT_EQ(mLogger.AttachTarget(mConsole), KESTATUS_SUCCESS); }

    KELogger mLogger{"Console.Test", KEMAXLEVEL};
    KELogTargetConsole mConsole{"TestConsole", KEWARN};
};

TEST_F(LogConsoleTest, SevereLinesGoToStandardErrorAndAllAreFlushed) {
    const StreamPipe out(stdout, STDOUT_FILENO);
    const StreamPipe err(stderr, STDERR_FILENO);
    const struct {
        KELogLevel level;
        bool toStdErr;
    } cases[] = {
        {KEALWAYS, true},   {KEFATAL, true},  {KEERROR, true}, {KEWARN, true},      {KEINFO, false},
        {KEVERBOSE, false}, {KETRACE, false}, {KEDUMP, false}, {KEMAXLEVEL, false},
    };
    for (const auto& test : cases) {
        KEOutputLogMessage(mLogger, test.level, "level {}", static_cast<int>(test.level));
        const std::string line = "level " + std::to_string(test.level) + "\n";
        EXPECT_EQ(err.Take(), test.toStdErr ? line : "") << test.level;
        EXPECT_EQ(out.Take(), test.toStdErr ? "" : line) << test.level;
    }
}

TEST_F(LogConsoleTest, AnotherLimit) {
    KELogTargetConsole quiet("Quiet", KEFATAL);
    mLogger.DetachAllTargets();
    EXPECT_EQ(mLogger.AttachTarget(quiet), KESTATUS_SUCCESS);
    const StreamPipe out(stdout, STDOUT_FILENO);
    const StreamPipe err(stderr, STDERR_FILENO);
    KEOutputLogMessage(mLogger, KEERROR, "error");
    KEOutputLogMessage(mLogger, KEFATAL, "fatal");
    EXPECT_EQ(out.Take(), "error\n");
    EXPECT_EQ(err.Take(), "fatal\n");
}

TEST_F(LogConsoleTest, PrefixAndText) {
    const ModuleName module("mod");
    const StreamPipe err(stderr, STDERR_FILENO);
    KEOutputLogMessage(mLogger, KEWARN, "bare %s text");
    KESetPrefixOptionsForLogTarget(mConsole, 0x700);
    KEOutputLogMessage(mLogger, KEWARN, "text");
    EXPECT_EQ(err.Take(), "bare %s text\nmod: Console.Test: WARN: text\n");
}

TEST_F(LogConsoleTest, OverlongLine) {
    const StreamPipe out(stdout, STDOUT_FILENO);
    const std::string text(600, 'x');
    KEOutputLogMessage(mLogger, KEINFO, "{}", text);
    EXPECT_EQ(out.Take(), text.substr(0, 511) + "\n");
}

TEST_F(LogConsoleTest, EmptyLine) {
    const StreamPipe out(stdout, STDOUT_FILENO);
    KEOutputLogMessageImpl({mLogger, KEINFO});
    EXPECT_EQ(out.Take(), "\n");
}

constexpr int cThreads = 4;
constexpr int cMessagesPerThread = 200;

// Emits from several threads at once, while the level goes up and down above theirs.
void EmitFromThreads(KELogger& logger) {
    std::vector<std::thread> threads;
    threads.reserve(cThreads);
    for (int thread = 0; thread < cThreads; ++thread) {
        threads.emplace_back([&logger, thread] {
            for (int i = 0; i < cMessagesPerThread; ++i) {
                KEOutputLogMessage(logger, KEINFO, "thread {} message {} {}", thread, i,
                                   std::string(100, 'x'));
            }
        });
    }
    for (int i = 0; i < 1000; ++i) {
        logger.SetLevel(i % 2 == 0 ? KEINFO : KEMAXLEVEL);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

std::set<std::string> ExpectedTexts() {
    std::set<std::string> texts;
    for (int thread = 0; thread < cThreads; ++thread) {
        for (int i = 0; i < cMessagesPerThread; ++i) {
            texts.insert("thread " + std::to_string(thread) + " message " + std::to_string(i) + " " +
                         std::string(100, 'x'));
        }
    }
    return texts;
}

TEST_F(LogConsoleTest, LinesOfSeveralThreadsStayWhole) {
    testing::internal::CaptureStdout();
    EmitFromThreads(mLogger);
    std::istringstream captured(testing::internal::GetCapturedStdout());
    std::multiset<std::string> lines;
    for (std::string line; std::getline(captured, line);) {
        lines.insert(line);
    }
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(cThreads * cMessagesPerThread));
    EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()), ExpectedTexts());
}

TEST(LogThreadsTest, EveryTargetGetsEveryMessage) {
    KELogger logger("Threads", KEINFO);
    const LogCapture first(logger, KEINFO);
    const LogCapture second(logger, KEINFO);
    EmitFromThreads(logger);
    for (const LogCapture* capture : {&first, &second}) {
        const std::vector<std::string> texts = capture->Texts();
        EXPECT_EQ(texts.size(), static_cast<std::size_t>(cThreads * cMessagesPerThread));
        EXPECT_EQ(std::set<std::string>(texts.begin(), texts.end()), ExpectedTexts());
    }
}

} // namespace
