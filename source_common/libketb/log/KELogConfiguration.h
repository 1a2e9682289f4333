// A source of settings for loggers and targets. This base has none: every read returns
// KESTATUS_NOT_AVAILABLE, so that the compiled-in defaults stay in force. A derived class sets the result
// argument only when it returns KESTATUS_SUCCESS. Only the thread that starts the logging uses it.
#ifndef KESTRELON_KELOGCONFIGURATION_H
#define KESTRELON_KELOGCONFIGURATION_H

#include <string>

#include "kestatus.h"
#include "log/KELogLevel.h"

namespace kestrelon {

class KELogConfiguration {
public:
    virtual ~KELogConfiguration() = default;

    [[nodiscard]] virtual KESTATUS ReadLogLevel(const char* loggerName, KELogLevel& level);
    [[nodiscard]] virtual KESTATUS ReadLogTargetParameter(const char* targetName, const char* parameterName,
                                                          int& value);
    [[nodiscard]] virtual KESTATUS ReadLogTargetParameter(const char* targetName, const char* parameterName,
                                                          std::string& value);
    // Data of the application for its own targets; null when there is none.
    virtual const void* GetLogTargetContextInfo();
};

} // namespace kestrelon

#endif
