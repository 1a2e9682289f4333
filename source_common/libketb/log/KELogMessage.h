// The buffer of one log message, on the stack of the thread that logs; no other thread uses it. It has an
// area for the prefix, which every target writes anew, and behind it an area for the text. Sizes are in
// bytes. Nothing here fails: overlong texts are cut.
#ifndef KESTRELON_KELOGMESSAGE_H
#define KESTRELON_KELOGMESSAGE_H

#include <cstddef>

#include "log/KELogMsgMetaData.h"
#include "log/KELogMsgPrefixLayout.h"
#include "text/KEFormatter.h"

namespace kestrelon {

class KELogger;

// A text in front of a message, such as the name of a class or the signature of a function. Not copied.
struct KELogMsgHeaderTag {
    const char* mText;
};

// How a call site wants its message emitted.
struct KELogFunctionParams {
    const KELogger& logger;
    KELogLevel level;
    const KELogMsgHeaderTag* hd1 = nullptr; // optional headers: "hd1:hd2: ", "hd1: " or "hd2: "
    const KELogMsgHeaderTag* hd2 = nullptr;
    const char* hdText = nullptr; // optional text behind the headers
};

class KELogMessage {
public:
    static constexpr std::size_t PrefixSize = 80; // a prefix has at most 79 characters
    static constexpr std::size_t TextSize = 512;  // a text has at most 511
    static constexpr const char* NewlineChar = "\n";

    KELogMessage() noexcept { Reset(); }

    // Empties prefix and text, then copies the headers to the text.
    void ResetMsg(const KELogFunctionParams& params) noexcept;

    // Formats to the end of the text.
    void AppendFormatted(const char* format, const fmtimpl::ArgumentHolder* args, std::size_t count) noexcept;

    // Copies to the end of the text.
    void AppendText(const char* text) noexcept;

    // Builds the prefix that layout asks for. A prefix of more than 79 characters is cut, which is reported
    // to the system log. logger may be null.
    void CreatePrefix(const KELogMsgPrefixLayout& layout, const KELogger* logger,
                      const KELogMsgMetaData& metaData) noexcept;

    // Moves the prefix so that it ends right before the text; returns the start of the whole line, which is
    // valid until the next CreatePrefix.
    char* CompactMessage() noexcept;

    // Adds a newline unless the text ends with one; in a full text it takes the last character's place.
    // Returns whether it added one.
    bool AppendNewline() noexcept;
    // Removes one newline at the end of the text; returns whether there was one.
    bool RemoveNewline() noexcept;

    const char* Prefix() const noexcept { return mPrefix; }
    const char* Text() const noexcept { return mStrBuf + PrefixSize; }
    std::size_t TextLength() const noexcept { return static_cast<std::size_t>(mTextWritePtr - Text()); }

private:
    void Reset() noexcept;
    char* TextEnd() noexcept { return mStrBuf + PrefixSize + TextSize - 1; } // kept for the terminator

    char mStrBuf[PrefixSize + TextSize];
    char* mTextWritePtr; // the next free character of the text
    char* mPrefix;       // where the prefix begins
};

} // namespace kestrelon

#endif
