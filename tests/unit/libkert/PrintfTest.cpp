// The printf-style functions with a status: buffers of every size, both character widths, failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <cwchar>
#include <string>

#include "LibraryCallFaults.h"
#include "kert_string.h"
#include "text/KEStringUtils.h"

using namespace kestrelon;
using testsupport::PrintfFault;

namespace {

// A buffer of any size between two guards.
template <typename charT>
class GuardedBuffer {
public:
    GuardedBuffer() { std::char_traits<charT>::assign(mChars, std::size(mChars), charT{'#'}); }
    charT* Data() { return mChars + 1; }
    bool IsUntouchedFrom(std::size_t size) const {
        return mChars[0] == charT{'#'} && std::all_of(mChars + 1 + size, mChars + std::size(mChars),
                                                      [](charT c) { return c == charT{'#'}; });
    }

private:
    charT mChars[32];
};

struct SizeCase {
    std::size_t size;
    KESTATUS status;
    const char* text;
    const wchar_t* wideText;
};

constexpr SizeCase cSizeCases[] = {
    {6, KESTATUS_SUCCESS, "abc", L"abc"},      {5, KESTATUS_SUCCESS, "abc", L"abc"},
    {4, KESTATUS_SUCCESS, "abc", L"abc"},      {3, KESTATUS_BUFFER_TOO_SMALL, "ab", L"ab"},
    {2, KESTATUS_BUFFER_TOO_SMALL, "a", L"a"}, {1, KESTATUS_BUFFER_TOO_SMALL, "", L""},
};

TEST(StringPrintfTest, NarrowAtEverySize) {
    for (const SizeCase& test : cSizeCases) {
        GuardedBuffer<char> buffer;
        EXPECT_EQ(KEStringPrintfA(buffer.Data(), test.size, "%s", "abc"), test.status) << test.size;
        EXPECT_STREQ(buffer.Data(), test.text);
        EXPECT_TRUE(buffer.IsUntouchedFrom(test.size)) << test.size;
    }
}

TEST(StringPrintfTest, WideAtEverySize) {
    for (const SizeCase& test : cSizeCases) {
        GuardedBuffer<wchar_t> buffer;
        EXPECT_EQ(KEStringPrintfW(buffer.Data(), test.size, L"%ls", L"abc"), test.status) << test.size;
        EXPECT_STREQ(buffer.Data(), test.wideText);
        EXPECT_TRUE(buffer.IsUntouchedFrom(test.size)) << test.size;
    }
}

TEST(StringPrintfTest, OverloadsFollowTheWidth) {
    char narrow[8];
    wchar_t wide[8];
    EXPECT_EQ(KEStringPrintf(narrow, std::size(narrow), "%d-%d", 12, 34), KESTATUS_SUCCESS);
    EXPECT_STREQ(narrow, "12-34");
    EXPECT_EQ(KEStringPrintf(wide, std::size(wide), L"%d-%d", 12, 34), KESTATUS_SUCCESS);
    EXPECT_STREQ(wide, L"12-34");
    EXPECT_EQ(KEStringPrintf(narrow, 3, "%d", 1234), KESTATUS_BUFFER_TOO_SMALL);
    EXPECT_STREQ(narrow, "12");
    EXPECT_EQ(KEStringPrintf(wide, 3, L"%d", 1234), KESTATUS_BUFFER_TOO_SMALL);
    EXPECT_STREQ(wide, L"12");
}

TEST(StringPrintfTest, EmptyResultFitsIntoOneCharacter) {
    char narrow[] = "x";
    wchar_t wide[] = L"x";
    EXPECT_EQ(KEStringPrintfA(narrow, 1, "%s", ""), KESTATUS_SUCCESS);
    EXPECT_STREQ(narrow, "");
    EXPECT_EQ(KEStringPrintfW(wide, 1, L"%ls", L""), KESTATUS_SUCCESS);
    EXPECT_STREQ(wide, L"");
}

TEST(StringPrintfTest, SizeZeroOrNoBufferIsTooSmall) {
    char narrow[] = "x";
    wchar_t wide[] = L"x";
    EXPECT_EQ(KEStringPrintfA(narrow, 0, "%s", ""), KESTATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(KEStringPrintfW(wide, 0, L"%ls", L""), KESTATUS_BUFFER_TOO_SMALL);
    EXPECT_STREQ(narrow, "x");
    EXPECT_STREQ(wide, L"x");
    EXPECT_EQ(KEStringPrintfA(nullptr, 10, "%s", "a"), KESTATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(KEStringPrintfW(nullptr, 10, L"%ls", L"a"), KESTATUS_BUFFER_TOO_SMALL);
}

TEST(StringPrintfTest, OldErrnoHasNoEffect) {
    wchar_t wide[3];
    errno = EINVAL;
    EXPECT_EQ(KEStringPrintfW(wide, std::size(wide), L"%ls", L"abc"), KESTATUS_BUFFER_TOO_SMALL);
    EXPECT_STREQ(wide, L"ab");
}

struct ErrorCase {
    int err;
    KESTATUS narrow;
    KESTATUS wide;
};

// C libraries report a buffer that is too short for the wide call with different values of errno.
constexpr ErrorCase cErrorCases[] = {
    {EINVAL, KESTATUS_INVALID_PARAMETER, KESTATUS_INVALID_PARAMETER},
    {EILSEQ, 0xE0010054, 0xE0010054},
    {ENOMEM, KESTATUS_LINUX_ENOMEM, KESTATUS_LINUX_ENOMEM},
    {EOVERFLOW, 0xE001004B, KESTATUS_BUFFER_TOO_SMALL},
    {E2BIG, KESTATUS_LINUX_E2BIG, KESTATUS_BUFFER_TOO_SMALL},
    {0, KESTATUS_FAILED, KESTATUS_BUFFER_TOO_SMALL},
};

TEST(StringPrintfTest, FailuresOfTheLibraryCall) {
    for (const ErrorCase& test : cErrorCases) {
        const PrintfFault fault(test.err);
        char narrow[4] = {'#', '#', '#', '#'};
        wchar_t wide[4] = {L'#', L'#', L'#', L'#'};
        EXPECT_EQ(KEStringPrintfA(narrow, std::size(narrow), "%d", 1), test.narrow) << test.err;
        EXPECT_EQ(narrow[3], '\0') << "terminated after a failure, too";
        EXPECT_EQ(KEStringPrintfW(wide, std::size(wide), L"%d", 1), test.wide) << test.err;
        EXPECT_EQ(wide[3], L'\0');
        EXPECT_EQ(KEStringPrintf(narrow, std::size(narrow), "%d", 1), test.narrow) << test.err;
        EXPECT_EQ(KEStringPrintf(wide, std::size(wide), L"%d", 1), test.wide) << test.err;
    }
}

// The wide call does not report how much room it needs, so larger and larger buffers are tried, unless more
// room would not help.
TEST(StringPrintfTest, WideStringsGiveUpAtOnceWhenRoomIsNotTheMatter) {
    for (const int err : {EILSEQ, EINVAL, ENOMEM}) {
        const PrintfFault fault(err);
        EXPECT_EQ(KEStdStringPrintf(L"%d", 1), L"");
        EXPECT_EQ(fault.Failures(), 1u) << err;
    }
    for (const int err : {0, E2BIG, EOVERFLOW}) {
        const PrintfFault fault(err);
        EXPECT_EQ(KEStdStringPrintf(L"%d", 1), L"");
        EXPECT_EQ(fault.Failures(), 9u) << err << ": from 256 characters to 16 million";
    }
}

TEST(StringPrintfTest, UnconvertibleCharacterOfTheRealLibrary) {
    char narrow[16];
    const wchar_t invalid[] = {static_cast<wchar_t>(0x110000), 0};
    EXPECT_EQ(KEStringPrintfA(narrow, std::size(narrow), "%ls", invalid), 0xE0010054u);
}

KESTATUS ViaVaList(char* buf, std::size_t size, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const KESTATUS st = KEStringVPrintfA(buf, size, format, args);
    va_end(args);
    return st;
}

KESTATUS ViaVaListW(wchar_t* buf, std::size_t size, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    const KESTATUS st = KEStringVPrintfW(buf, size, format, args);
    va_end(args);
    return st;
}

TEST(StringPrintfTest, VaListWorkers) {
    char narrow[8];
    wchar_t wide[8];
    EXPECT_EQ(ViaVaList(narrow, std::size(narrow), "%03u/%c", 7u, 'x'), KESTATUS_SUCCESS);
    EXPECT_STREQ(narrow, "007/x");
    EXPECT_EQ(ViaVaListW(wide, std::size(wide), L"%03u/%c", 7u, 'x'), KESTATUS_SUCCESS);
    EXPECT_STREQ(wide, L"007/x");
}

} // namespace
