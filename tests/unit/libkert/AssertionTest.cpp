// A failed assertion. It parks its thread for good, so it runs in a child process that the test ends.
#include <gtest/gtest.h>

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "LibraryCallFaults.h"
#include "kert_debug.h"

using namespace kestrelon;

namespace {

constexpr int cReadTimeout = 60000; // ms
constexpr int cSleepsBeforeHalt = 3;

int sPipe[2];

void WriteToPipe(const char* text) {
    if (write(sPipe[1], text, std::strlen(text)) < 0) {
        _exit(2);
    }
}

// Passes without sleeping a few times, then lets the child stop.
void CountSleep(useconds_t microseconds) {
    static int sSleeps = 0;
    WriteToPipe(("sleep " + std::to_string(microseconds) + "\n").c_str());
    if (++sSleeps == cSleepsBeforeHalt) {
        WriteToPipe("end");
        for (;;) {
            pause();
        }
    }
}

std::string ReadUntil(const std::string& end) {
    std::string text;
    while (!text.ends_with(end)) {
        pollfd readable{sPipe[0], POLLIN, 0};
        char buffer[512];
        if (poll(&readable, 1, cReadTimeout) != 1) {
            return text + "<timeout>";
        }
        const ssize_t length = read(sPipe[0], buffer, sizeof buffer);
        if (length <= 0) {
            return text + "<closed>";
        }
        text.append(buffer, static_cast<std::size_t>(length));
    }
    return text;
}

TEST(AssertionFailedTest, ReportsAndParksItsThread) {
    ASSERT_EQ(pipe(sPipe), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(sPipe[0]);
        KESetModuleName("mod");
        KESetDebugOutputFunction(&WriteToPipe);
        testsupport::gUsleepFunction = &CountSleep;
        WriteToPipe((std::to_string(static_cast<int>(pthread_self())) + "\n").c_str());
        KEAssertionFailed("x > 0", "some/file.cpp", 99);
    }
    close(sPipe[1]);
    const std::string text = ReadUntil("end");
    close(sPipe[0]);

    const std::string thread = text.substr(0, text.find('\n'));
    const std::string halted = "mod: FATAL: Thread " + thread + " halted.";
    EXPECT_EQ(text, thread +
                        "\n\nmod: FATAL: ASSERTION FAILED: (x > 0)\n  some/file.cpp(99)\nsleep 3000000\n" +
                        halted + "sleep 3000000\n" + halted + "sleep 3000000\nend");

    int status = 0;
    EXPECT_EQ(waitpid(child, &status, WNOHANG), 0) << "the process lives on";
    EXPECT_EQ(kill(child, SIGKILL), 0);
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
}

} // namespace
