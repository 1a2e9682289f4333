// How the user ends a running command: with any key, or with SIGINT, SIGTERM or SIGHUP.
//
// While an object lives, the terminal delivers single keys at once and without echo, and the first of these
// signals only sets a flag, so that the command can end in good order. Signals within the next half second
// belong to it; a later one ends the process at once. Keys that were not read are discarded at the end, so
// that they do not reach the next program that reads the terminal.
//
// The terminal's modes are restored by the destructor, before the process stops for Ctrl-Z, and by any signal
// that ends the process and can be handled: not by SIGKILL, and not when the stack is exhausted. They are set
// again when the process comes back to the foreground.
//
// A signal that was ignored before stays ignored. An earlier handler stays too, except those of the three
// stop signals and of faults (SIGSEGV, SIGBUS, SIGFPE, SIGILL). After a fault the terminal is restored, then
// the earlier handler runs. The destructor restores all earlier actions.
//
// One object at a time, on the main thread, since signals and the terminal belong to the process. Construct
// it before any work that takes time, so that a stop during that work is seen. Without a terminal, or where
// the system refuses a step, the rest still works; nothing is reported.
#ifndef FLOWLANE_STOPREQUEST_H
#define FLOWLANE_STOPREQUEST_H

namespace flowlane {

class StopRequest {
public:
    StopRequest();
    ~StopRequest();
    StopRequest(const StopRequest&) = delete;
    StopRequest& operator=(const StopRequest&) = delete;

    // True once the user has asked for the end. Takes a key that was pressed from the input: all of its bytes
    // on a terminal, one byte elsewhere. Standard input that is closed, at its end or missing is no request.
    bool IsRequested();

private:
    bool mIsKeyPressed = false;
};

} // namespace flowlane

#endif
