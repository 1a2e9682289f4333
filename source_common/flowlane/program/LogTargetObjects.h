// The log targets of the program. They are attached before other threads log; from then on they are safe from
// any thread.
#ifndef FLOWLANE_LOGTARGETOBJECTS_H
#define FLOWLANE_LOGTARGETOBJECTS_H

#include "log/KELogTargetConsole.h"

namespace flowlane {

struct LogTargetObjects {
    // Warnings and more severe messages go to standard error, all others to standard output.
    kestrelon::KELogTargetConsole Console{"Console", kestrelon::KEWARN};
};

extern LogTargetObjects gLogTargets;

} // namespace flowlane

#endif
