// How the user ends a running command: with any key, or with SIGINT, SIGTERM or SIGHUP.
//
// While an object lives, the terminal delivers single keys at once and without echo, and the first of these
// signals only sets a flag, so that the command can end in good order. Signals within half a second after it
// belong to it; a later one ends the process at once. Keys that nobody has taken are thrown away at the end,
// so that they do not reach whoever reads the terminal next.
//
// The terminal's modes are restored by the destructor, before the process stops for Ctrl-Z, and by any signal
// that ends the process and can be handled: not by SIGKILL, and not when the stack is exhausted. They are set
// anew when the process comes to the foreground again.
//
// A signal that was ignored before stays ignored. A handler that was there before stays too, except those of
// the three stop signals and of faults (SIGSEGV, SIGBUS, SIGFPE, SIGILL): a fault goes on to its earlier
// handler when the terminal is restored. The destructor puts all earlier actions back.
//
// One object at a time, on the main thread, since signals and the terminal belong to the process. Construct
// it before what may take long, so that a stop that comes meanwhile is seen.
#ifndef FLOWLANE_STOPREQUEST_H
#define FLOWLANE_STOPREQUEST_H

namespace flowlane {

class StopRequest {
public:
    StopRequest();
    ~StopRequest();
    StopRequest(const StopRequest&) = delete;
    StopRequest& operator=(const StopRequest&) = delete;

    // True once the user has asked for the end. A key that was pressed is taken from the input: all of its
    // bytes on a terminal, one byte elsewhere. Standard input that is at its end, closed or not there asks
    // for nothing.
    bool IsRequested();

private:
    bool mIsKeyPressed = false;
};

} // namespace flowlane

#endif
