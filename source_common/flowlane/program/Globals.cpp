// The global objects of the program. They are in one file because their order of construction matters: first
// the settings and the command words, then the objects that print messages.

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
