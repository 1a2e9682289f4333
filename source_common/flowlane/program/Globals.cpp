// The program's global objects. They stand in one file because their order of construction matters: the
// settings and command words first, then what prints messages.

#include "base/LogCons.h"
#include "commands/CmdLine.h"
#include "commands/Commands.h"
#include "program/LogTargetObjects.h"

namespace flowlane {

CmdLine gCmdLine;

const Commands gCommands;

LogTargetObjects gLogTargets;

} // namespace flowlane

namespace kestrelon::logger {

KELogger Cons("Cons", KEINFO);

} // namespace kestrelon::logger
