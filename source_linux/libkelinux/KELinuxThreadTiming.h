// How exactly the kernel wakes a thread.
#ifndef KESTRELON_KELINUXTHREADTIMING_H
#define KESTRELON_KELINUXTHREADTIMING_H

namespace kestrelon {

// Makes the calling thread wake up as close to the end of its sleeps as the system allows: its timers are not
// joined with later ones (a slack of 1 ns), and it gets the lowest real-time priority. What the process has
// no right to stays as it is, without a message. Also uses 64 KiB of the stack once, so that they are there
// when they are needed. Never fails.
void KELinuxUsePreciseTiming() noexcept;

} // namespace kestrelon

#endif
