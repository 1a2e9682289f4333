// What the user's keys and signals do while a command runs, and what they leave behind. Each test runs in a
// process of its own on a terminal of its own; where a process has to die or to stop, its parent reports.

#include "commands/StopRequest.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "KEPosixTerminal.h"
#include "TerminalChild.h"
#include "WaitUntil.h"

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;

namespace {

using Reporter = TerminalChild::Reporter;

int WaitingBytes() {
    int count = 0;
    return ioctl(STDIN_FILENO, FIONREAD, &count) == 0 ? count : -1;
}

void ReportModes(const Reporter& reporter) {
    reporter.Line("modes", KEPosixGetCanonicalMode() * 2 + KEPosixGetEchoMode());
}

// Runs body in a child of the calling process, which stays in the foreground with it, and returns how the
// child ended.
int WaitStatusOf(const std::function<void()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        const rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        alarm(60); // whatever goes wrong
        body();
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

// The sanitizers' handlers end the process in their own way.
void TakeAwayEarlierHandlers() {
    for (const int number : {SIGILL, SIGBUS, SIGFPE, SIGSEGV, SIGABRT, SIGTRAP}) {
        signal(number, SIG_DFL);
    }
}

void WithBlockedSignals(const std::function<void()>& body) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    body();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

// On another thread, which has no signals blocked.
void RunUnblocked(const std::function<void()>& body) {
    std::thread([&body] {
        sigset_t none;
        sigemptyset(&none);
        pthread_sigmask(SIG_SETMASK, &none, nullptr);
        body();
    }).join();
}

class StopRequestOnTerminalTest : public testing::TestWithParam<TerminalKind> {};

} // namespace

TEST_P(StopRequestOnTerminalTest, AKeyIsSeenAtOnceAndNotShown) {
    TerminalChild child(
        [](const Reporter& reporter) {
            {
                StopRequest stopRequest;
                ReportModes(reporter);
                reporter.Line("early", stopRequest.IsRequested());
                reporter.Line("requested", WaitUntil([&] { return stopRequest.IsRequested(); }));
                reporter.Line("still", stopRequest.IsRequested());
            }
            ReportModes(reporter);
        },
        GetParam());
    EXPECT_EQ(child.NextLine(), "modes=0");
    EXPECT_EQ(child.NextLine(), "early=0");
    child.Type("q");
    for (const char* line : {"requested=1", "still=1", "modes=3", "<end>"}) {
        EXPECT_EQ(child.NextLine(), line);
    }
    EXPECT_EQ(child.Shown(), "");
}

TEST_P(StopRequestOnTerminalTest, NothingIsLeftForTheNextReader) {
    TerminalChild child(
        [](const Reporter& reporter) {
            {
                StopRequest stopRequest;
                reporter.Line("ready");
                reporter.Line("typed", WaitUntil([] { return WaitingBytes() == 3; }));
                reporter.Line("requested", stopRequest.IsRequested());
                reporter.Line("left", WaitingBytes());
                // Keys that nobody asks for any more.
                reporter.Line("typed", WaitUntil([] { return WaitingBytes() == 4; }));
            }
            ReportModes(reporter);
            reporter.Line("left", KEPosixKbHit());
        },
        GetParam());
    EXPECT_EQ(child.NextLine(), "ready");
    child.Type("\x1b[A");
    EXPECT_EQ(child.NextLine(), "typed=1");
    EXPECT_EQ(child.NextLine(), "requested=1");
    EXPECT_EQ(child.NextLine(), "left=0");
    child.Type("more");
    for (const char* line : {"typed=1", "modes=3", "left=0", "<end>"}) {
        EXPECT_EQ(child.NextLine(), line);
    }
}

TEST_P(StopRequestOnTerminalTest, EverySignalThatEndsTheProcessRestoresTheTerminal) {
    TerminalChild child(
        [](const Reporter& reporter) {
            for (int number = 1; number <= SIGRTMAX; ++number) {
                // Killed at once, stopped or ignored by default, or kept by the thread library.
                constexpr int cOthers[] = {SIGKILL, SIGSTOP, SIGTSTP,  SIGTTIN, SIGTTOU, SIGCHLD,
                                           SIGCONT, SIGURG,  SIGWINCH, 32,      33};
                bool isOther = number == SIGINT || number == SIGTERM || number == SIGHUP;
                for (const int other : cOthers) {
                    isOther = isOther || number == other;
                }
                if (isOther) {
                    continue;
                }
                const int status = WaitStatusOf([number] {
                    TakeAwayEarlierHandlers();
                    const StopRequest stopRequest;
                    if (!KEPosixGetCanonicalMode()) {
                        kill(getpid(), number);
                        pause();
                    }
                });
                const std::string name = std::to_string(number) + " ends";
                reporter.Line(name, WIFSIGNALED(status) ? WTERMSIG(status) : -1);
                ReportModes(reporter);
            }
        },
        GetParam());
    int count = 0;
    for (std::string line = child.NextLine(); line != "<end>"; line = child.NextLine(), ++count) {
        const std::string number = line.substr(0, line.find(' '));
        EXPECT_EQ(line, number + " ends=" + number);
        ASSERT_EQ(child.NextLine(), "modes=3") << "after signal " << number;
    }
    EXPECT_GE(count, 18 + 31); // the ordinary and the real-time ones
}

INSTANTIATE_TEST_SUITE_P(Terminals, StopRequestOnTerminalTest,
                         testing::Values(TerminalKind::Controlling, TerminalKind::NotControlling),
                         [](const testing::TestParamInfo<TerminalKind>& param) {
                             return param.param == TerminalKind::Controlling ? "Controlling"
                                                                             : "NotControlling";
                         });

TEST(StopRequestTest, AFaultRestoresTheTerminalAndGoesOnToItsEarlierHandler) {
    TerminalChild child([](const Reporter& reporter) {
        static void* sForbidden = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        const int status = WaitStatusOf([] {
            struct sigaction action {};
            action.sa_flags = SA_SIGINFO;
            action.sa_sigaction = [](int, siginfo_t* info, void*) {
                const bool isRestored = KEPosixGetCanonicalMode() && KEPosixGetEchoMode();
                _exit(isRestored && info->si_addr == sForbidden ? 42 : 43);
            };
            sigaction(SIGSEGV, &action, nullptr);
            const StopRequest stopRequest;
            // Not on the thread that the object is on.
            std::thread([] { *static_cast<volatile char*>(sForbidden) = 1; }).join();
        });
        reporter.Line("exit", WIFEXITED(status) ? WEXITSTATUS(status) : -1);
        ReportModes(reporter);
    });
    for (const char* line : {"exit=42", "modes=3", "<end>"}) {
        EXPECT_EQ(child.NextLine(), line);
    }
}

// The owner has signals blocked just then, so it would not come to restore the terminal.
TEST(StopRequestTest, AThreadThatAbortsRestoresTheTerminalItself) {
    TerminalChild child([](const Reporter& reporter) {
        const int status = WaitStatusOf([] {
            TakeAwayEarlierHandlers();
            const StopRequest stopRequest;
            WithBlockedSignals([] { RunUnblocked([] { std::abort(); }); });
        });
        reporter.Line("ends", WIFSIGNALED(status) ? WTERMSIG(status) : -1);
        ReportModes(reporter);
    });
    EXPECT_EQ(child.NextLine(), "ends=" + std::to_string(SIGABRT));
    EXPECT_EQ(child.NextLine(), "modes=3");
}

TEST(StopRequestTest, WhatWasThereBeforeComesBack) {
    TerminalChild child([](const Reporter& reporter) {
        struct sigaction mine {};
        mine.sa_handler = [](int) {};
        mine.sa_flags = SA_NODEFER;
        constexpr int cSignals[] = {SIGINT, SIGSEGV, SIGABRT, SIGUSR1, SIGTSTP};
        for (const int number : cSignals) {
            sigaction(number, &mine, nullptr);
        }
        constexpr int cIgnored[] = {SIGHUP, SIGQUIT, SIGXFSZ};
        for (const int number : cIgnored) {
            signal(number, SIG_IGN);
        }
        const auto countIgnored = [&] {
            int count = 0;
            for (const int number : cIgnored) {
                struct sigaction now {};
                sigaction(number, nullptr, &now);
                count += now.sa_handler == SIG_IGN;
            }
            return count;
        };
        const auto countMine = [&] {
            int count = 0;
            for (const int number : cSignals) {
                struct sigaction now {};
                sigaction(number, nullptr, &now);
                count += now.sa_handler == mine.sa_handler && (now.sa_flags & SA_NODEFER) != 0;
            }
            return count;
        };
        {
            const StopRequest stopRequest;
            reporter.Line("ignored", countIgnored());
            reporter.Line("mine", countMine()); // not those of SIGINT and SIGSEGV
        }
        reporter.Line("ignored", countIgnored());
        reporter.Line("mine", countMine());
        struct sigaction now {};
        sigaction(SIGTERM, nullptr, &now);
        reporter.Line("default", now.sa_handler == SIG_DFL);
    });
    for (const char* line : {"ignored=3", "mine=3", "ignored=3", "mine=5", "default=1", "<end>"}) {
        EXPECT_EQ(child.NextLine(), line);
    }
}

TEST(StopRequestTest, AHandlerThatWasSetMeanwhileStays) {
    TerminalChild child([](const Reporter& reporter) {
        struct sigaction theirs {};
        theirs.sa_handler = [](int) {};
        {
            const StopRequest stopRequest;
            sigaction(SIGUSR1, &theirs, nullptr);
        }
        struct sigaction now {};
        sigaction(SIGUSR1, nullptr, &now);
        reporter.Line("theirs", now.sa_handler == theirs.sa_handler);
    });
    EXPECT_EQ(child.NextLine(), "theirs=1");
}

TEST(StopRequestTest, TheFirstSignalIsARequestAndALaterOneEndsTheProcess) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(number);
        TerminalChild child([number](const Reporter& reporter) {
            const int status = WaitStatusOf([&] {
                StopRequest stopRequest;
                reporter.Line("early", stopRequest.IsRequested());
                // Two at the same time are one request.
                WithBlockedSignals([number] {
                    RunUnblocked([number] { raise(number); });
                    raise(SIGTERM);
                });
                reporter.Line("requested", WaitUntil([&] { return stopRequest.IsRequested(); }));
                usleep(600'000);
                raise(number);
                reporter.Line("still there");
            });
            reporter.Line("ends", WIFSIGNALED(status) ? WTERMSIG(status) : -1);
            ReportModes(reporter);
        });
        for (const char* line : {"early=0", "requested=1"}) {
            EXPECT_EQ(child.NextLine(), line);
        }
        EXPECT_EQ(child.NextLine(), "ends=" + std::to_string(number));
        EXPECT_EQ(child.NextLine(), "modes=3");
    }
}

TEST(StopRequestTest, ASecondObjectBeginsAnew) {
    TerminalChild child([](const Reporter& reporter) {
        {
            StopRequest stopRequest;
            raise(SIGTERM);
            reporter.Line("requested", stopRequest.IsRequested());
        }
        StopRequest stopRequest;
        reporter.Line("requested", stopRequest.IsRequested());
    });
    EXPECT_EQ(child.NextLine(), "requested=1");
    EXPECT_EQ(child.NextLine(), "requested=0");
}

namespace {

// Runs a command that suspend stops, and reports the modes while it is stopped and when it goes on.
void SuspendAndContinue(const Reporter& reporter, const std::function<void()>& suspend) {
    const pid_t command = fork();
    if (command == 0) {
        alarm(60); // whatever goes wrong
        StopRequest stopRequest;
        suspend();
        _exit(WaitUntil([&] { return stopRequest.IsRequested(); }) ? 0 : 1);
    }
    int status = 0;
    waitpid(command, &status, WUNTRACED);
    reporter.Line("stopped", WIFSTOPPED(status) ? WSTOPSIG(status) : -1);
    ReportModes(reporter);
    kill(command, SIGCONT);
    reporter.Line("direct again",
                  WaitUntil([] { return !KEPosixGetCanonicalMode() && !KEPosixGetEchoMode(); }));
    kill(command, SIGTERM);
    waitpid(command, &status, 0);
    reporter.Line("exit", WIFEXITED(status) ? WEXITSTATUS(status) : -1);
}

// Between the command and the leader of the session, so that the command is not in an orphaned group, which
// nothing can suspend.
void InAnotherGroup(const std::function<void()>& body) {
    const pid_t group = fork();
    if (group == 0) {
        setpgid(0, 0);
        signal(SIGTTOU, SIG_IGN);
        tcsetpgrp(STDIN_FILENO, getpid());
        signal(SIGTTOU, SIG_DFL);
        body();
        _exit(0);
    }
    waitpid(group, nullptr, 0);
}

} // namespace

TEST(StopRequestTest, SuspendingGivesTheTerminalBackUntilTheProcessGoesOn) {
    TerminalChild child([](const Reporter& reporter) {
        InAnotherGroup([&] { SuspendAndContinue(reporter, [] { raise(SIGTSTP); }); });
    });
    for (const std::string& line : {"stopped=" + std::to_string(SIGTSTP), std::string("modes=3"),
                                    std::string("direct again=1"), std::string("exit=0")}) {
        EXPECT_EQ(child.NextLine(), line);
    }
}

// The system gives a signal to any thread. The terminal must not change hands while the owner switches modes,
// which it does with signals blocked.
TEST(StopRequestTest, ASignalOnAnotherThreadWaitsForTheOwner) {
    TerminalChild child([](const Reporter& reporter) {
        InAnotherGroup([&] {
            SuspendAndContinue(reporter, [&] {
                WithBlockedSignals([&] {
                    RunUnblocked([] { raise(SIGTSTP); });
                    reporter.Line("not stopped yet");
                    ReportModes(reporter);
                });
            });
        });
    });
    for (const std::string& line :
         {std::string("not stopped yet"), std::string("modes=0"), "stopped=" + std::to_string(SIGTSTP),
          std::string("modes=3"), std::string("direct again=1"), std::string("exit=0")}) {
        EXPECT_EQ(child.NextLine(), line);
    }
}

// SIGSTOP cannot be handled: a shell sets its own modes, and the program its own when it goes on.
TEST(StopRequestTest, ModesThatOthersSetAreUsualFromThenOn) {
    TerminalChild child([](const Reporter& reporter) {
        {
            StopRequest stopRequest;
            static_cast<void>(KEPosixSwitchCanonicalMode(true)); // as a shell does; the modes below show it
            stopRequest.IsRequested();
            ReportModes(reporter);
        }
        ReportModes(reporter);
    });
    EXPECT_EQ(child.NextLine(), "modes=0");
    EXPECT_EQ(child.NextLine(), "modes=2");
}

TEST(StopRequestTest, LeavesTheTerminalAloneInTheBackground) {
    TerminalChild child([](const Reporter& reporter) {
        const pid_t background = fork();
        if (background == 0) {
            setpgid(0, 0);
            {
                StopRequest stopRequest;
                ReportModes(reporter);
                reporter.Line("requested", stopRequest.IsRequested());
            }
            ReportModes(reporter);
            _exit(0);
        }
        int status = 0;
        waitpid(background, &status, WUNTRACED);
        reporter.Line("exit", WIFEXITED(status) ? WEXITSTATUS(status) : -1);
        if (WIFSTOPPED(status)) {
            kill(background, SIGKILL);
            waitpid(background, &status, 0);
        }
    });
    for (const char* line : {"modes=3", "requested=0", "modes=3", "exit=0", "<end>"}) {
        EXPECT_EQ(child.NextLine(), line);
    }
}

// What else is in a pipe may be for somebody else.
TEST(StopRequestTest, TakesOneByteOfAPipe) {
    TerminalChild child([](const Reporter& reporter) {
        int ends[2];
        if (pipe(ends) != 0 || write(ends[1], "abc", 3) != 3 || dup2(ends[0], STDIN_FILENO) == -1) {
            return;
        }
        StopRequest stopRequest;
        reporter.Line("requested", stopRequest.IsRequested());
        reporter.Line("left", WaitingBytes());
    });
    EXPECT_EQ(child.NextLine(), "requested=1");
    EXPECT_EQ(child.NextLine(), "left=2");
}
