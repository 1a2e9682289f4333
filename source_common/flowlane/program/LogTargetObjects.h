// The program's log targets.
#ifndef FLOWLANE_LOGTARGETOBJECTS_H
#define FLOWLANE_LOGTARGETOBJECTS_H

#include "log/KELogTargetConsole.h"

namespace flowlane {

struct LogTargetObjects {
    // Warnings and worse go to standard error, everything else to standard output.
    kestrelon::KELogTargetConsole Console{"Console", kestrelon::KEWARN};
};

extern LogTargetObjects gLogTargets;

} // namespace flowlane

#endif
