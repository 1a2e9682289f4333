// The scanner of format strings: it copies the text of a format string to a formatter and prints one argument
// per field. KEFormatter.h describes the format strings.
//
// Faults of a format string are reported to the system log, each followed by the format string; the scan goes
// on behind them. Nothing is thrown. A scanner belongs to one call of one thread.
#ifndef KESTRELON_KEFORMATSCANNER_H
#define KESTRELON_KEFORMATSCANNER_H

#include <cstddef>
#include <cstring>

#include "text/KEFormatSpec.h"
#include "text/KEFormatter.h"

namespace kestrelon {

namespace fmtimpl {

enum class FormatSpecError { Success = 0, UnsupportedType = 1, IncompleteSpec = 2 };

} // namespace fmtimpl

class KEFormatScanner {
public:
    // All arguments belong to the caller and outlive the scanner. function is the name that the diagnostics
    // give.
    KEFormatScanner(KEFormatterImplT<char>& formatter, const char* format,
                    const fmtimpl::ArgumentHolder* args, std::size_t count, const char* function) noexcept
        : mFormatter(formatter),
          mFunction(function),
          mFormat(format),
          mEnd(format + std::strlen(format)),
          mPosition(format),
          mArgs(args),
          mCount(count),
          mContext{formatter, {}} {}

    // Scans the whole format string. Once.
    void ScanFormat() noexcept;
    // After the scan: reports arguments that no field has used, and a field that was not closed.
    void ReportLeftovers() noexcept;
    // Whether a fault has been reported.
    bool HasFaults() const noexcept { return mHasFaults; }

    // Reads one format spec from the character behind the ":" on. position is left on the character that
    // ended it, or behind a type letter that is not supported.
    static fmtimpl::FormatSpecError ExtractFormatSpec(const char*& position, KEFormatSpec& spec) noexcept;

private:
    void ScanText() noexcept;
    void ScanStrayBracket() noexcept;
    void ScanField() noexcept;
    void ScanIndex() noexcept;
    void ScanSpec() noexcept;
    void ScanUnexpected() noexcept;
    void CloseField() noexcept;
    unsigned ArgumentCount() const noexcept { return static_cast<unsigned>(mCount); }
    // Writes the message and then the format string to the system log.
    void ReportFault(const char* message, ...) noexcept __attribute__((format(printf, 2, 3)));

    KEFormatterImplT<char>& mFormatter;
    const char* mFunction;
    const char* mFormat;
    const char* mEnd;      // of mFormat, where its terminator is
    const char* mPosition; // the next character of mFormat
    const fmtimpl::ArgumentHolder* mArgs;
    std::size_t mCount;              // of arguments
    std::size_t mAutomaticIndex = 0; // of the argument for the next field without an index
    std::size_t mUsedCount = 0;      // highest used index + 1
    bool mHasFaults = false;

    // The current field.
    KEFormatterContext mContext;
    std::size_t mIndex = 0;
    bool mAreDefaultsSet = false; // the argument's type has set its default flags
    bool mIsInField = false;
};

} // namespace kestrelon

#endif
