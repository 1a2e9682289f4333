// Keys and modes of a terminal, in child processes on terminals of their own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <utility>

#include "KEPosixTerminal.h"
#include "KEPosixTime.h"
#include "LogCapture.h"
#include "TerminalChild.h"

using namespace kestrelon;
using namespace testsupport;
using testing::IsEmpty;

namespace {

using Reporter = TerminalChild::Reporter;

// Keys need a moment to pass the pseudo-terminal.
bool WaitForKey() {
    for (int waitedMs = 0; waitedMs < 20000; waitedMs += 5) {
        if (KEPosixKbHit()) {
            return true;
        }
        KEPosixSleep(5);
    }
    return false;
}

// Also shows whether a switch has worked, since the child ignores its status.
void ReportModes(const Reporter& reporter) {
    reporter.Line("canonical", KEPosixGetCanonicalMode());
    reporter.Line("echo", KEPosixGetEchoMode());
}

TEST(TerminalTest, SeesAKeyBeforeTheLineIsFinished) {
    TerminalChild child([](const Reporter& reporter) {
        reporter.Line("early", KEPosixKbHit());
        ReportModes(reporter);
        reporter.Line("hit", WaitForKey());
        reporter.Line("still", KEPosixKbHit()); // looking takes nothing away
        ReportModes(reporter);
        reporter.Line("key", KEPosixGetCh());
        reporter.Line("left", KEPosixKbHit());
        ReportModes(reporter);
    });
    EXPECT_EQ(child.NextLine(), "early=0");
    EXPECT_EQ(child.NextLine(), "canonical=1");
    EXPECT_EQ(child.NextLine(), "echo=1");
    child.Type("x");
    for (const char* line : {"hit=1", "still=1", "canonical=1", "echo=1", "key=120", "left=0", "canonical=1",
                             "echo=1", "<end>"}) {
        EXPECT_EQ(child.NextLine(), line);
    }
}

TEST(TerminalTest, TakesOneKeyAtATime) {
    TerminalChild child([](const Reporter& reporter) {
        for (int i = 0; i < 4; ++i) {
            reporter.Line("hit", WaitForKey());
            reporter.Line("key", KEPosixGetCh());
        }
        reporter.Line("left", KEPosixKbHit());
    });
    child.Type("a\xFFz\n");
    for (const char* line :
         {"hit=1", "key=97", "hit=1", "key=255", "hit=1", "key=122", "hit=1", "key=10", "left=0", "<end>"}) {
        EXPECT_EQ(child.NextLine(), line);
    }
}

TEST(TerminalTest, WaitsForAKeyWithoutShowingIt) {
    TerminalChild child([](const Reporter& reporter) {
        reporter.Line("key", KEPosixGetCh());
        ReportModes(reporter);
    });
    ASSERT_TRUE(
        child.WaitForModes([](const termios& modes) { return (modes.c_lflag & (ICANON | ECHO)) == 0; }));
    child.Type("y");
    EXPECT_EQ(child.NextLine(), "key=121");
    EXPECT_EQ(child.NextLine(), "canonical=1");
    EXPECT_EQ(child.NextLine(), "echo=1");
    EXPECT_EQ(child.Shown().find('y'), std::string::npos);
}

TEST(TerminalTest, ModesThatAreOffStayOff) {
    TerminalChild child([](const Reporter& reporter) {
        reporter.Line("off", KEPosixSwitchCanonicalMode(false) == KESTATUS_SUCCESS &&
                                 KEPosixSwitchEchoMode(false) == KESTATUS_SUCCESS);
        ReportModes(reporter);
        KEPosixKbHit();
        ReportModes(reporter);
        reporter.Line("on", KEPosixSwitchCanonicalMode(true) == KESTATUS_SUCCESS);
        ReportModes(reporter);
        reporter.Line("on", KEPosixSwitchEchoMode(true) == KESTATUS_SUCCESS);
        ReportModes(reporter);
    });
    for (const char* line : {"off=1", "canonical=0", "echo=0", "canonical=0", "echo=0", "on=1", "canonical=1",
                             "echo=0", "on=1", "canonical=1", "echo=1", "<end>"}) {
        EXPECT_EQ(child.NextLine(), line);
    }
}

// A terminal may have been set not to wait at all with canonical mode off.
TEST(TerminalTest, ReadsWaitForOneByteWithCanonicalModeOff) {
    TerminalChild child([](const Reporter& reporter) {
        termios modes{};
        tcgetattr(STDIN_FILENO, &modes);
        modes.c_cc[VMIN] = 0;
        modes.c_cc[VTIME] = 1; // a tenth of a second
        tcsetattr(STDIN_FILENO, TCSANOW, &modes);
        reporter.Line("ready");
        reporter.Line("key", KEPosixGetCh());
        tcgetattr(STDIN_FILENO, &modes);
        reporter.Line("min", modes.c_cc[VMIN]);
        reporter.Line("time", modes.c_cc[VTIME]);
    });
    EXPECT_EQ(child.NextLine(), "ready");
    ASSERT_TRUE(child.WaitForModes([](const termios& modes) {
        return (modes.c_lflag & ICANON) == 0 && modes.c_cc[VMIN] == 1 && modes.c_cc[VTIME] == 0;
    }));
    child.Type("k");
    for (const char* line : {"key=107", "min=0", "time=1", "<end>"}) {
        EXPECT_EQ(child.NextLine(), line);
    }
}

TEST(TerminalTest, TheModeObjectRestoresWhatItFound) {
    TerminalChild child([](const Reporter& reporter) {
        static_cast<void>(KEPosixSwitchEchoMode(false));
        {
            KEPosixTerminalMode outer;
            static_cast<void>(outer.SwitchEchoMode(true));
            {
                KEPosixTerminalMode inner;
                static_cast<void>(inner.SwitchCanonicalMode(false));
                static_cast<void>(inner.SwitchEchoMode(false));
                ReportModes(reporter);
                // Not a mode of the object, so it stays.
                termios modes{};
                tcgetattr(STDIN_FILENO, &modes);
                modes.c_lflag &= ~static_cast<tcflag_t>(ECHOCTL);
                tcsetattr(STDIN_FILENO, TCSANOW, &modes);
            }
            ReportModes(reporter);
        }
        ReportModes(reporter);
        termios modes{};
        tcgetattr(STDIN_FILENO, &modes);
        reporter.Line("echoctl", (modes.c_lflag & ECHOCTL) != 0);
    });
    for (const char* line :
         {"canonical=0", "echo=0", "canonical=1", "echo=1", "canonical=1", "echo=0", "echoctl=0", "<end>"}) {
        EXPECT_EQ(child.NextLine(), line);
    }
}

TEST(TerminalTest, TheModeObjectRestoresWhatOthersChanged) {
    TerminalChild child([](const Reporter& reporter) {
        {
            KEPosixTerminalMode mode;
            static_cast<void>(KEPosixSwitchEchoMode(false));
            static_cast<void>(KEPosixSwitchCanonicalMode(false));
        }
        ReportModes(reporter);
    });
    EXPECT_EQ(child.NextLine(), "canonical=1");
    EXPECT_EQ(child.NextLine(), "echo=1");
}

TEST(TerminalTest, DirectKeysAndBack) {
    TerminalChild child([](const Reporter& reporter) {
        termios found{};
        reporter.Line("switched", KEPosixSwitchToDirectKeys(found) == KESTATUS_SUCCESS);
        ReportModes(reporter);
        reporter.Line("found", (found.c_lflag & (ICANON | ECHO)) == (ICANON | ECHO));
        termios modes{};
        tcgetattr(STDIN_FILENO, &modes);
        modes.c_lflag &= ~static_cast<tcflag_t>(ECHOCTL); // not our business, so it stays
        tcsetattr(STDIN_FILENO, TCSANOW, &modes);
        reporter.Line("restored", KEPosixRestoreKeyModes(found) == KESTATUS_SUCCESS);
        ReportModes(reporter);
        tcgetattr(STDIN_FILENO, &modes);
        reporter.Line("echoctl", (modes.c_lflag & ECHOCTL) != 0);
        reporter.Line("min", modes.c_cc[VMIN] == found.c_cc[VMIN]);
    });
    for (const char* line : {"switched=1", "canonical=0", "echo=0", "found=1", "restored=1", "canonical=1",
                             "echo=1", "echoctl=0", "min=1", "<end>"}) {
        EXPECT_EQ(child.NextLine(), line);
    }
}

TEST(TerminalTest, DiscardsAllKeysThatWait) {
    TerminalChild child([](const Reporter& reporter) {
        reporter.Line("hit", WaitForKey());
        KEPosixDiscardKeys();
        reporter.Line("left", KEPosixKbHit());
    });
    child.Type("\x1b[A");
    for (const char* line : {"hit=1", "left=0", "<end>"}) {
        EXPECT_EQ(child.NextLine(), line);
    }
}

// A program that no shell has started has a terminal without job control. It is never in the background
// there.
TEST(TerminalTest, SeesAKeyOnATerminalThatIsNotTheControllingOne) {
    TerminalChild child(
        [](const Reporter& reporter) {
            reporter.Line("foreground", static_cast<int>(tcgetpgrp(STDIN_FILENO)));
            reporter.Line("hit", WaitForKey());
            reporter.Line("key", KEPosixGetCh());
            ReportModes(reporter);
            reporter.Line("off", KEPosixSwitchCanonicalMode(false) == KESTATUS_SUCCESS &&
                                     KEPosixSwitchEchoMode(false) == KESTATUS_SUCCESS);
            ReportModes(reporter);
            reporter.Line("hit", WaitForKey());
            KEPosixDiscardKeys();
            reporter.Line("left", KEPosixKbHit());
        },
        TerminalKind::NotControlling);
    EXPECT_EQ(child.NextLine(), "foreground=-1");
    child.Type("x");
    for (const char* line : {"hit=1", "key=120", "canonical=1", "echo=1", "off=1", "canonical=0", "echo=0"}) {
        EXPECT_EQ(child.NextLine(), line);
    }
    child.Type("y");
    for (const char* line : {"hit=1", "left=0", "<end>"}) {
        EXPECT_EQ(child.NextLine(), line);
    }
}

// With the shell's job control, the system would stop a process in the background that changes the modes or
// reads.
TEST(TerminalTest, LeavesTheTerminalAloneInTheBackground) {
    TerminalChild child([](const Reporter& reporter) {
        reporter.Line("foreground", WaitForKey());
        const pid_t background = fork();
        if (background == 0) {
            setpgid(0, 0);
            reporter.Line("hit", KEPosixKbHit());
            reporter.Line("key", KEPosixGetCh());
            reporter.Line("canonical refused", KEPosixSwitchCanonicalMode(false) == KESTATUS_NOT_POSSIBLE);
            reporter.Line("echo refused", KEPosixSwitchEchoMode(false) == KESTATUS_NOT_POSSIBLE);
            termios found{};
            reporter.Line("direct refused", KEPosixSwitchToDirectKeys(found) == KESTATUS_NOT_POSSIBLE);
            reporter.Line("nothing found", found.c_lflag == 0);
            KEPosixDiscardKeys();
            ReportModes(reporter);
            _exit(0);
        }
        int status = 0;
        waitpid(background, &status, WUNTRACED);
        reporter.Line("stopped", WIFSTOPPED(status));
        if (WIFSTOPPED(status)) {
            kill(background, SIGKILL);
            waitpid(background, &status, 0);
        }
        reporter.Line("key", KEPosixGetCh()); // the key is still ours
    });
    child.Type("k");
    for (const char* line :
         {"foreground=1", "hit=0", "key=-1", "canonical refused=1", "echo refused=1", "direct refused=1",
          "nothing found=1", "canonical=1", "echo=1", "stopped=0", "key=107", "<end>"}) {
        EXPECT_EQ(child.NextLine(), line);
    }
}

TEST(TerminalTest, ATerminalThatIsGoneHasNoKeys) {
    TerminalChild child([](const Reporter& reporter) {
        signal(SIGHUP, SIG_IGN);
        reporter.Line("ready");
        reporter.Line("key", KEPosixGetCh()); // ends with the terminal
        reporter.Line("hit", KEPosixKbHit());
        reporter.Line("canonical", KEPosixGetCanonicalMode());
    });
    EXPECT_EQ(child.NextLine(), "ready");
    child.HangUp();
    for (const char* line : {"key=-1", "hit=0", "canonical=0", "<end>"}) {
        EXPECT_EQ(child.NextLine(), line);
    }
}

TEST(TerminalTest, ASignalEndsTheWaitForAKey) {
    TerminalChild child([](const Reporter& reporter) {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGINT, &action, nullptr); // without SA_RESTART
        reporter.Line("key", KEPosixGetCh());
        ReportModes(reporter);
    });
    ASSERT_TRUE(child.WaitForModes([](const termios& modes) { return (modes.c_lflag & ICANON) == 0; }));
    child.Type("\x03"); // the key for SIGINT
    EXPECT_EQ(child.NextLine(), "key=-1");
    EXPECT_EQ(child.NextLine(), "canonical=1");
    EXPECT_EQ(child.NextLine(), "echo=1");
}

// Puts a descriptor in the place of standard input.
class StandardInput {
public:
    explicit StandardInput(int descriptor) : mSaved(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 10)) {
        if (descriptor == -1) {
            close(STDIN_FILENO);
        } else {
            dup2(descriptor, STDIN_FILENO);
            close(descriptor);
        }
    }
    ~StandardInput() {
        if (mSaved != -1) {
            dup2(mSaved, STDIN_FILENO);
            close(mSaved);
        } else {
            close(STDIN_FILENO);
        }
    }
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;

private:
    int mSaved;
};

constexpr int cNotAsked = -2;

struct InputCase {
    const char* name;
    int (*open)(); // gives the descriptor that becomes standard input
    bool hasKey;
    int key; // what KEPosixGetCh returns; cNotAsked where it would wait
};

int sOpenWriter = -1; // of the pipe that is standard input

int OpenPipe(const char* text, bool keepWriter) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0 || write(ends[1], text, std::char_traits<char>::length(text)) == -1) {
        return -1;
    }
    if (keepWriter) {
        sOpenWriter = ends[1];
    } else {
        close(ends[1]);
    }
    return ends[0];
}

int OpenFileWith(const char* text) {
    char name[] = "/tmp/keos_terminal_XXXXXX";
    const int file = mkstemp(name);
    unlink(name);
    return write(file, text, std::char_traits<char>::length(text)) != -1 && lseek(file, 0, SEEK_SET) == 0
               ? file
               : -1;
}

class NoTerminalTest : public testing::TestWithParam<InputCase> {};

TEST_P(NoTerminalTest, HasAKeyWhenThereIsAByte) {
    const LogCapture log;
    bool hasKey[2];
    int key = -1;
    bool modes[2];
    KESTATUS st[2];
    {
        const StandardInput input(GetParam().open());
        hasKey[0] = KEPosixKbHit();
        hasKey[1] = KEPosixKbHit();
        if (GetParam().key != cNotAsked) {
            key = KEPosixGetCh();
        }
        modes[0] = KEPosixGetCanonicalMode();
        modes[1] = KEPosixGetEchoMode();
        st[0] = KEPosixSwitchCanonicalMode(false);
        st[1] = KEPosixSwitchEchoMode(true);
        KEPosixTerminalMode mode;
        EXPECT_NE(mode.SwitchCanonicalMode(false), KESTATUS_SUCCESS);
        EXPECT_NE(mode.SwitchEchoMode(false), KESTATUS_SUCCESS);
    }
    EXPECT_EQ(hasKey[0], GetParam().hasKey);
    EXPECT_EQ(hasKey[1], GetParam().hasKey);
    if (GetParam().key != cNotAsked) {
        EXPECT_EQ(key, GetParam().key);
    }
    EXPECT_FALSE(modes[0]);
    EXPECT_FALSE(modes[1]);
    EXPECT_GE(st[0], KESTATUS{0xE0010001});
    EXPECT_GE(st[1], KESTATUS{0xE0010001});
    EXPECT_THAT(log.Messages(), IsEmpty()); // it is asked once a second
    if (sOpenWriter != -1) {
        close(std::exchange(sOpenWriter, -1));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, NoTerminalTest,
    testing::Values(InputCase{"DevNull", [] { return open("/dev/null", O_RDONLY | O_CLOEXEC); }, false, -1},
                    InputCase{"Closed", [] { return -1; }, false, -1},
                    InputCase{"SilentPipe", [] { return OpenPipe("", true); }, false, cNotAsked},
                    InputCase{"PipeAtItsEnd", [] { return OpenPipe("", false); }, false, -1},
                    InputCase{"PipeWithAByte", [] { return OpenPipe("q", true); }, true, 'q'},
                    InputCase{"ClosedPipeWithBytes", [] { return OpenPipe("\xFE\n", false); }, true, 0xFE},
                    InputCase{"EmptyFile", [] { return OpenFileWith(""); }, false, -1},
                    InputCase{"FileWithBytes", [] { return OpenFileWith("text"); }, true, 't'}),
    [](const testing::TestParamInfo<InputCase>& param) { return std::string(param.param.name); });

} // namespace
