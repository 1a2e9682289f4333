/* Linked into the programs of a build with the thread sanitizer. */
#include <stddef.h>
#include <time.h>

/* The run-time of LLVM 14 makes what it keeps of a thread's signals when the thread first blocks, and loses a
   signal that arrives just then. So the main thread blocks once before a test can know of the program. */
__attribute__((constructor)) static void BlockOnce(void) {
    const struct timespec noTime = {0, 0};
    nanosleep(&noTime, NULL);
}
