// The program's global objects. They stand in one file because their order of construction matters: the
// settings and command words first, then what prints messages.

#include "CmdLine.h"
#include "Commands.h"
#include "LogCons.h"
#include "LogTargetObjects.h"

namespace flowlane {

CmdLine gCmdLine;

const Commands gCommands;

LogTargetObjects gLogTargets;

} // namespace flowlane

namespace kestrelon::logger {

KELogger Cons("Cons", KEINFO);

} // namespace kestrelon::logger
