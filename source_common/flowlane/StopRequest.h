// How the user ends a running command: with any key, or with SIGINT, SIGTERM or SIGHUP.
//
// While an object lives, the terminal delivers single keys at once and without echo, and the first of
// these signals only sets a flag, so that the command can end in good order. A second signal ends the
// process at once. A signal that was ignored when the program started stays ignored. The terminal's
// modes are restored by the destructor, before the process stops for Ctrl-Z, and by whatever signal ends
// the process; they are set anew when it comes to the foreground again.
//
// One object at a time, on the main thread, since signals and the terminal belong to the process.
#ifndef FLOWLANE_STOPREQUEST_H
#define FLOWLANE_STOPREQUEST_H

namespace flowlane {

class StopRequest {
public:
    StopRequest();
    ~StopRequest();
    StopRequest(const StopRequest&) = delete;
    StopRequest& operator=(const StopRequest&) = delete;

    // True once the user has asked for the end. A key that was pressed is taken from the input. Standard
    // input that is at its end, closed or not there asks for nothing.
    bool IsRequested();

private:
    bool mIsKeyPressed = false;
};

} // namespace flowlane

#endif
