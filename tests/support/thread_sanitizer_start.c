/* Linked into the programs of a build with the thread sanitizer. */
#include <stddef.h>
#include <time.h>

/* The run-time library of LLVM 14 sets up its handling of a thread's signals when the thread first blocks,
   and loses a signal that arrives at that moment. So the main thread blocks once before a test can send a
   signal. */
__attribute__((constructor)) static void BlockOnce(void) {
    const struct timespec noTime = {0, 0};
    nanosleep(&noTime, NULL);
}
