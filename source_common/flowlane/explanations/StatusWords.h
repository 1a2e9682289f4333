// A status in plain words.
#ifndef FLOWLANE_STATUSWORDS_H
#define FLOWLANE_STATUSWORDS_H

#include <string>

#include "kestatus.h"

namespace flowlane {

// The system's text for a status that is an errno, the toolbox's text for any other. Without a full stop at
// the end. Throws std::bad_alloc.
std::string StatusWords(KESTATUS st);

} // namespace flowlane

#endif
