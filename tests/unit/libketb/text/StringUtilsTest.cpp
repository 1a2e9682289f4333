// The bounded string operations, for both character widths from one table each.
#include "text/KEStringUtils.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <string>
#include <vector>

using namespace kestrelon;

namespace {

template <typename charT>
std::basic_string<charT> Text(const std::string& narrow) {
    return std::basic_string<charT>(narrow.begin(), narrow.end());
}

template <typename charT>
class StringUtilsTest : public testing::Test {
protected:
    using String = std::basic_string<charT>;

    // Applies an in-place operation to a copy of the text.
    template <typename Operation>
    static String Changed(const std::string& text, Operation operation) {
        String buffer = Text<charT>(text);
        buffer.push_back(charT{});
        buffer.push_back(charT{'#'});
        operation(buffer.data());
        EXPECT_EQ(buffer.back(), charT{'#'}) << "written past the text";
        return String(buffer.c_str());
    }
};

using CharacterTypes = testing::Types<char, wchar_t>;
TYPED_TEST_SUITE(StringUtilsTest, CharacterTypes);

struct CopyCase {
    std::size_t size;
    const char* text;
    std::size_t count;
};
constexpr CopyCase cCopies[] = {
    {0, nullptr, 0}, {1, "", 0},      {2, "a", 1},      {3, "ab", 2},
    {4, "abc", 3},   {6, "abcde", 5}, {7, "abcdef", 6}, {8, "abcdef", 6},
};

template <typename charT, typename srcT>
void ExpectCopies() {
    for (const CopyCase& test : cCopies) {
        const auto source = Text<srcT>("abcdef");
        std::basic_string<charT> buffer(12, charT{'#'});
        EXPECT_EQ(KEStringNCopy(buffer.data(), test.size, source.c_str()), test.count) << test.size;
        std::basic_string<charT> expected;
        if (test.text) {
            expected = Text<charT>(test.text) + charT{};
        }
        expected.resize(buffer.size(), charT{'#'});
        EXPECT_EQ(buffer, expected) << test.size;

        std::basic_string<charT> other(12, charT{'#'});
        charT* const end = KEStringLCopy(other.data(), other.data() + test.size, source.c_str());
        EXPECT_EQ(end, other.data() + test.count) << "the terminator's place";
        EXPECT_EQ(other, expected);
    }
}

TYPED_TEST(StringUtilsTest, CopyAcrossWidths) {
    ExpectCopies<TypeParam, char>();
    ExpectCopies<TypeParam, wchar_t>();
    ExpectCopies<TypeParam, char16_t>();
    ExpectCopies<char16_t, TypeParam>();
}

struct CatCase {
    std::size_t size;
    const char* text;
    std::size_t appended;
};
constexpr CatCase cCats[] = {
    {0, "xy", 0}, {1, "xy", 0},  {2, "xy", 0}, // no terminator within the size: left alone
    {3, "xy", 0}, {4, "xya", 1}, {5, "xyab", 2}, {6, "xyabc", 3}, {9, "xyabc", 3},
};

template <typename charT, typename srcT>
void ExpectCats() {
    for (const CatCase& test : cCats) {
        const auto source = Text<srcT>("abc");
        std::basic_string<charT> expected = Text<charT>(test.text) + charT{};
        expected.resize(12, charT{'#'});

        std::basic_string<charT> buffer =
            Text<charT>("xy") + charT{} + std::basic_string<charT>(9, charT{'#'});
        EXPECT_EQ(KEStringNCat(buffer.data(), test.size, source.c_str()), test.appended) << test.size;
        EXPECT_EQ(buffer, expected) << test.size;

        std::basic_string<charT> other =
            Text<charT>("xy") + charT{} + std::basic_string<charT>(9, charT{'#'});
        charT* const end = KEStringLCat(other.data(), other.data() + test.size, source.c_str());
        EXPECT_EQ(end - other.data(), static_cast<std::ptrdiff_t>(std::min(test.size, 2 + test.appended)));
        EXPECT_EQ(other, expected);
    }
}

TYPED_TEST(StringUtilsTest, AppendAcrossWidths) {
    ExpectCats<TypeParam, char>();
    ExpectCats<TypeParam, wchar_t>();
    ExpectCats<TypeParam, char16_t>();
}

TYPED_TEST(StringUtilsTest, CopiedCharactersAreNotDecoded) {
    TypeParam buffer[4];
    EXPECT_EQ(KEStringNCopy(buffer, 4, "\xc3\xa4"), 2u);
    EXPECT_EQ(buffer[0], static_cast<TypeParam>(0xC3)) << "a narrow character counts as unsigned";
    EXPECT_EQ(buffer[1], static_cast<TypeParam>(0xA4));
    EXPECT_EQ(KEStringNCopy(buffer, 4, L"\u0141"), 1u);
    EXPECT_EQ(buffer[0], static_cast<TypeParam>(0x141)) << "cut to the width";
}

TYPED_TEST(StringUtilsTest, Length) {
    EXPECT_EQ(KEStringLen(Text<TypeParam>("").c_str()), 0u);
    EXPECT_EQ(KEStringLen(Text<TypeParam>("abc").c_str()), 3u);
}

TYPED_TEST(StringUtilsTest, Equality) {
    const struct {
        const char* a;
        const char* b;
        bool equal;
        bool equalIgnoringCase;
    } cases[] = {
        {"", "", true, true},        {"abc", "abc", true, true},     {"abc", "abd", false, false},
        {"abc", "ab", false, false}, {"ab", "abc", false, false},    {"", "a", false, false},
        {"aBc", "AbC", false, true}, {"Z", "z", false, true},        {"@", "`", false, false},
        {"[", "{", false, false},    {"\xc4", "\xe4", false, false}, // no letters of ASCII
    };
    for (const auto& test : cases) {
        const auto a = Text<TypeParam>(test.a);
        const auto b = Text<TypeParam>(test.b);
        EXPECT_EQ(KEStringEqual(a.c_str(), b.c_str()), test.equal) << test.a << " " << test.b;
        EXPECT_EQ(KEStringEqualIgnoreCase(a.c_str(), b.c_str()), test.equalIgnoringCase)
            << test.a << " " << test.b;
    }
}

TYPED_TEST(StringUtilsTest, FindingCharacters) {
    const auto text = Text<TypeParam>("abcabc");
    const TypeParam* const str = text.c_str();
    EXPECT_EQ(KEFindCharInString(str, 'b'), str + 1);
    EXPECT_EQ(KEReverseFindCharInString(str, 'b'), str + 4);
    EXPECT_EQ(KEFindCharInString(str, 'a'), str);
    EXPECT_EQ(KEReverseFindCharInString(str, 'c'), str + 5);
    EXPECT_EQ(KEFindCharInString(str, 'x'), nullptr);
    EXPECT_EQ(KEReverseFindCharInString(str, 'x'), nullptr);
    EXPECT_EQ(KEFindCharInString(str, TypeParam{}), nullptr);
    TypeParam changeable[] = {'a', 'b', 0};
    *KEFindCharInString(changeable, 'b') = 'c';
    EXPECT_EQ(changeable[1], TypeParam{'c'});
}

TYPED_TEST(StringUtilsTest, Replacing) {
    const auto set = Text<TypeParam>("-_");
    EXPECT_EQ(this->Changed("a-b-c",
                            [](TypeParam* s) { KEReplaceCharInString(s, TypeParam{'-'}, TypeParam{'+'}); }),
              Text<TypeParam>("a+b+c"));
    EXPECT_EQ(
        this->Changed("", [](TypeParam* s) { KEReplaceCharInString(s, TypeParam{'-'}, TypeParam{'+'}); }),
        Text<TypeParam>(""));
    EXPECT_EQ(
        this->Changed("-a_b-", [&](TypeParam* s) { KEReplaceCharsInString(s, set.c_str(), TypeParam{' '}); }),
        Text<TypeParam>(" a b "));
    EXPECT_EQ(this->Changed("ab",
                            [](TypeParam* s) {
                                KEReplaceCharsInString(s, Text<TypeParam>("").c_str(), TypeParam{' '});
                            }),
              Text<TypeParam>("ab"));
}

TYPED_TEST(StringUtilsTest, TrimmingWhiteSpace) {
    const struct {
        const char* text;
        const char* begin;
        const char* end;
        const char* both;
    } cases[] = {
        {"", "", "", ""},
        {"a", "a", "a", "a"},
        {" \t\r\n\v\f", "", "", ""},
        {" \t a b \r\n", "a b \r\n", " \t a b", "a b"},
        {"\v\fa", "a", "\v\fa", "a"},
        {"a\v\f", "a\v\f", "a", "a"},
        {"\x01 a \x01", "\x01 a \x01", "\x01 a \x01", "\x01 a \x01"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(this->Changed(test.text, [](TypeParam* s) { KEStringTrimBegin(s); }),
                  Text<TypeParam>(test.begin));
        EXPECT_EQ(this->Changed(test.text, [](TypeParam* s) { KEStringTrimEnd(s); }),
                  Text<TypeParam>(test.end));
        EXPECT_EQ(this->Changed(test.text, [](TypeParam* s) { KEStringTrimBeginEnd(s); }),
                  Text<TypeParam>(test.both));
    }
}

TYPED_TEST(StringUtilsTest, TrimmingASet) {
    const auto set = Text<TypeParam>("xy");
    EXPECT_EQ(this->Changed("xyaxbyx", [&](TypeParam* s) { KEStringTrimBegin(s, set.c_str()); }),
              Text<TypeParam>("axbyx"));
    EXPECT_EQ(this->Changed("xyaxbyx", [&](TypeParam* s) { KEStringTrimEnd(s, set.c_str()); }),
              Text<TypeParam>("xyaxb"));
    EXPECT_EQ(this->Changed("xyaxbyx", [&](TypeParam* s) { KEStringTrimBeginEnd(s, set.c_str()); }),
              Text<TypeParam>("axb"));
    EXPECT_EQ(this->Changed(" x ", [&](TypeParam* s) { KEStringTrimBeginEnd(s, set.c_str()); }),
              Text<TypeParam>(" x "))
        << "white space is not in this set";
}

TYPED_TEST(StringUtilsTest, Case) {
    EXPECT_EQ(this->Changed("aZ@[`{0\xe4", [](TypeParam* s) { KEStringToUpperCase(s); }),
              Text<TypeParam>("AZ@[`{0\xe4"));
    EXPECT_EQ(this->Changed("AzZ@[`{0\xc4", [](TypeParam* s) { KEStringToLowerCase(s); }),
              Text<TypeParam>("azz@[`{0\xc4"));
    EXPECT_EQ(KEToUpperCaseChar(TypeParam{'z'}), TypeParam{'Z'});
    EXPECT_EQ(KEToUpperCaseChar(TypeParam{'{'}), TypeParam{'{'});
    EXPECT_EQ(KEToLowerCaseChar(TypeParam{'A'}), TypeParam{'a'});
    EXPECT_TRUE(KEIsUpperCaseChar(TypeParam{'A'}) && KEIsUpperCaseChar(TypeParam{'Z'}));
    EXPECT_FALSE(KEIsUpperCaseChar(TypeParam{'@'}) || KEIsUpperCaseChar(TypeParam{'['}) ||
                 KEIsUpperCaseChar(TypeParam{'a'}));
    EXPECT_TRUE(KEIsLowerCaseChar(TypeParam{'a'}) && KEIsLowerCaseChar(TypeParam{'z'}));
    EXPECT_FALSE(KEIsLowerCaseChar(TypeParam{'`'}) || KEIsLowerCaseChar(TypeParam{'{'}) ||
                 KEIsLowerCaseChar(TypeParam{'A'}));
}

TYPED_TEST(StringUtilsTest, RemovingQuotes) {
    const struct {
        const char* text;
        const char* result;
        bool removed;
    } cases[] = {
        {"'x'", "x", true}, {"''", "", true},          {"'a b'", "a b", true}, {"'''", "'", true},
        {"'", "'", false},  {"", "", false},           {"'x", "'x", false},    {"x'", "x'", false},
        {"x", "x", false},  {"\"x\"", "\"x\"", false},
    };
    for (const auto& test : cases) {
        bool removed = !test.removed;
        EXPECT_EQ(this->Changed(test.text,
                                [&](TypeParam* s) { removed = KEStringRemoveQuotes(s, TypeParam{'\''}); }),
                  Text<TypeParam>(test.result));
        EXPECT_EQ(removed, test.removed) << test.text;
    }
}

TYPED_TEST(StringUtilsTest, SkippingLeadingZeros) {
    const struct {
        const char* text;
        std::size_t skipped;
    } cases[] = {
        {"", 0},   {"0", 0},  {"00", 1},  {"000", 2}, {"007", 2}, {"0x1", 0}, {"00x1", 1},
        {"10", 0}, {"0a", 0}, {"-01", 0}, {" 01", 0}, {"09", 1},  {"0:", 0},  {"0/", 0},
    };
    for (const auto& test : cases) {
        const auto text = Text<TypeParam>(test.text);
        EXPECT_EQ(KEStringSkipLeadingZeros(text.c_str()), text.c_str() + test.skipped) << test.text;
    }
}

TYPED_TEST(StringUtilsTest, Spaces) {
    for (std::size_t count = 0; count <= 100; ++count) {
        EXPECT_EQ(std::basic_string<TypeParam>(KESpacesStr<TypeParam>(count)),
                  std::basic_string<TypeParam>(std::min<std::size_t>(count, 63), TypeParam{' '}));
    }
    EXPECT_EQ(KEStringLen(KESpacesStr<TypeParam>(SIZE_MAX)), 63u);
}

std::string ViaVaList(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = KEStdStringVPrintf(format, args);
    va_end(args);
    return text;
}

TEST(StdStringPrintfTest, Narrow) {
    EXPECT_EQ(KEStdStringPrintf("%s %05d %%", "a", 42), "a 00042 %");
    EXPECT_EQ(KEStdStringPrintf("%s", ""), "");
    EXPECT_EQ(KEStdStringPrintf("%s", std::string(10000, 'x').c_str()), std::string(10000, 'x'));
    EXPECT_EQ(ViaVaList("%d-%s", 1, "b"), "1-b");
    EXPECT_EQ(KEStdStringPrintf("%c%c", 'a', 0), std::string("a\0", 2));
}

TEST(StdStringPrintfTest, NarrowFailureIsEmpty) {
    const wchar_t invalid[] = {static_cast<wchar_t>(0x110000), 0};
    EXPECT_EQ(KEStdStringPrintf("text %ls", invalid), "");
}

TEST(StdStringPrintfTest, Wide) {
    EXPECT_EQ(KEStdStringPrintf(L"%ls %05d", L"a", 42), L"a 00042");
    EXPECT_EQ(KEStdStringPrintf(L"%ls", L""), L"");
    for (const std::size_t length : {254u, 255u, 256u, 257u, 10000u}) {
        const std::wstring text(length, L'x');
        EXPECT_EQ(KEStdStringPrintf(L"%ls", text.c_str()), text) << length;
    }
}

} // namespace
