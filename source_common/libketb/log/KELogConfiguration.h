// A source of settings for loggers and targets. This base has none: every read answers
// KESTATUS_NOT_AVAILABLE, so that the compiled-in defaults stay in force. A reader leaves the result
// argument alone unless it answers KESTATUS_SUCCESS.
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
    // Whatever a target of the same application may want to know; null when there is nothing.
    virtual const void* GetLogTargetContextInfo();
};

} // namespace kestrelon

#endif
