// The logger for what the user sees on the console. It stands apart from the other global objects so
// that every stage can log to it without knowing the program around it.
#ifndef FLOWLANE_LOGCONS_H
#define FLOWLANE_LOGCONS_H

#include "log/KELogging.h"

namespace kestrelon::logger {

extern KELogger Cons;

} // namespace kestrelon::logger

#endif
