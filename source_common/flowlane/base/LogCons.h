// The logger for what the user sees on the console. Safe from any thread. It is declared in the lowest layer
// so that every layer can log to it; program/Globals.cpp defines it.
#ifndef FLOWLANE_LOGCONS_H
#define FLOWLANE_LOGCONS_H

#include "log/KELogging.h"

namespace kestrelon::logger {

extern KELogger Cons;

} // namespace kestrelon::logger

#endif
