// Runs a piece of a test in a process of its own whose standard input is a pseudo-terminal, on which the test
// types the keys.
//
// The child reports lines of text. The test types keys, waits for lines and compares them. All waits end: a
// child that does not answer is killed, and the test fails.
#ifndef FLOWLANE_TESTS_TERMINALCHILD_H
#define FLOWLANE_TESTS_TERMINALCHILD_H

#include <gtest/gtest.h>
#include <sys/types.h>
#include <termios.h>

#include <functional>
#include <string>

namespace testsupport {

// Controlling: the child leads a session of its own, and the terminal controls it, as in a shell.
// NotControlling: the child has the terminal as standard input only, without job control.
enum class TerminalKind { Controlling, NotControlling };

class TerminalChild {
public:
    // The child's side.
    class Reporter {
    public:
        explicit Reporter(int descriptor) : mDescriptor(descriptor) {}
        void Line(const std::string& line) const;
        void Line(const std::string& name, int value) const { Line(name + "=" + std::to_string(value)); }

    private:
        int mDescriptor;
    };

    explicit TerminalChild(const std::function<void(const Reporter&)>& body,
                           TerminalKind kind = TerminalKind::Controlling);
    ~TerminalChild();
    TerminalChild(const TerminalChild&) = delete;
    TerminalChild& operator=(const TerminalChild&) = delete;

    void Type(const std::string& keys) const;
    // The next line that the child reports; "<end>" when it has ended, "<time-out>" when none comes.
    std::string NextLine();
    // Waits until condition is true for the terminal's modes.
    testing::AssertionResult WaitForModes(const std::function<bool(const termios&)>& condition) const;
    // All that the terminal has shown so far.
    std::string Shown() const;
    // Hangs up: the terminal is gone for the child.
    void HangUp();

private:
    pid_t mPid = -1;
    int mTerminal = -1; // the side of the keyboard and the screen
    int mReports = -1;
    std::string mBuffer;
};

} // namespace testsupport

#endif
