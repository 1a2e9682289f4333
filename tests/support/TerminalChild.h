// Runs a piece of a test in a process of its own whose standard input is a pseudo-terminal, on which the test
// types the keys.
//
// The child reports lines of text; the test types, waits for lines and compares. All waits are bounded:
// a child that does not answer is killed and the test fails.
#ifndef FLOWLANE_TESTS_TERMINALCHILD_H
#define FLOWLANE_TESTS_TERMINALCHILD_H

#include <gtest/gtest.h>
#include <sys/types.h>
#include <termios.h>

#include <functional>
#include <string>

namespace testsupport {

// Whether the child leads a session whose terminal it is, as a shell gives it, or has the terminal without
// job control, as other programs give it.
enum class TerminalKind { Controlling, NotControlling };

class TerminalChild {
public:
    // The child's side. Text behind a line of what happened is what the test waits for.
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
    // The next line the child reports; "<end>" when it has ended, "<time-out>" when it says nothing.
    std::string NextLine();
    // Waits until condition is true for the terminal's modes.
    testing::AssertionResult WaitForModes(const std::function<bool(const termios&)>& condition) const;
    // All that the terminal has shown so far.
    std::string Shown() const;
    // Hangs up: the terminal is gone for the child.
    void HangUp();

private:
    pid_t mPid = -1;
    int mTerminal = -1; // the keyboard's and screen's side
    int mReports = -1;
    std::string mBuffer;
};

} // namespace testsupport

#endif
