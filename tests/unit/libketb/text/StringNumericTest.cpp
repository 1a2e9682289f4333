// Numbers from text.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "text/KEStringUtils.h"

using namespace kestrelon;

namespace {

constexpr KESTATUS cInvalid = 0xE0000051;

std::wstring Widen(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

// Both widths; on failure the value must be left alone.
template <typename T>
void ExpectNumber(const char* text, int base, T expected) {
    T narrow = static_cast<T>(expected ^ 1);
    T wide = narrow;
    EXPECT_EQ(KEConvertStringToNumeric(narrow, text, base), KESTATUS_SUCCESS) << text;
    EXPECT_EQ(narrow, expected) << text;
    EXPECT_EQ(KEConvertStringToNumeric(wide, Widen(text).c_str(), base), KESTATUS_SUCCESS) << text;
    EXPECT_EQ(wide, expected) << text;
}

template <typename T>
void ExpectInvalid(const char* text, int base) {
    T narrow = 99;
    T wide = 99;
    EXPECT_EQ(KEConvertStringToNumeric(narrow, text, base), cInvalid) << text;
    EXPECT_EQ(narrow, T{99});
    EXPECT_EQ(KEConvertStringToNumeric(wide, Widen(text).c_str(), base), cInvalid) << text;
    EXPECT_EQ(wide, T{99});
}

template <typename T>
class StringToIntegerTest : public testing::Test {};
using IntegerTypes = testing::Types<int, unsigned int, long, unsigned long, short, unsigned short>;
TYPED_TEST_SUITE(StringToIntegerTest, IntegerTypes);

TYPED_TEST(StringToIntegerTest, CommonToAllTypes) {
    const struct {
        const char* text;
        int base;
        int value;
    } cases[] = {
        {"0", 0, 0},         {"0010", 0, 10}, {"0010", 10, 10}, {"0x10", 0, 16}, {"0X1f", 16, 31},
        {"12abc", 0, 12},    {"00", 0, 0},    {"000", 10, 0},   {"ff", 16, 255}, {"0ff", 16, 255},
        {"101", 2, 5},       {" 7", 0, 7},    {"+7", 0, 7},     {"08", 0, 8},    {"010", 8, 8},
        {" 010", 0, 8},      {"+010", 0, 8},  {"0x", 0, 0},     {"z", 36, 35},   {"1 2", 10, 1},
        {"32767", 0, 32767}, {"\t\n5", 0, 5}, {"0b11", 0, 0},   {"0B11", 2, 0},  {" +0b1", 0, 0},
        {"-0b1", 0, 0},      {"b1", 16, 177}, {"0b1", 16, 177},
    };
    for (const auto& test : cases) {
        ExpectNumber<TypeParam>(test.text, test.base, static_cast<TypeParam>(test.value));
    }
    for (const char* text : {"", "abc", " ", "-", "+", "x1", "-x", "."}) {
        ExpectInvalid<TypeParam>(text, 0);
    }
    ExpectInvalid<TypeParam>("9", 8);
    for (const int base : {-1, 1, 37}) {
        ExpectInvalid<TypeParam>("12", base);
        ExpectInvalid<TypeParam>("0012", base);
    }
}

TYPED_TEST(StringToIntegerTest, NegativeNumbersAreCutToTheType) {
    ExpectNumber<TypeParam>("-1", 0, static_cast<TypeParam>(-1));
    ExpectNumber<TypeParam>("-010", 0, static_cast<TypeParam>(-8)); // the zero behind a sign is not skipped
    ExpectNumber<TypeParam>("-32768", 10, static_cast<TypeParam>(-32768));
}

TEST(StringToIntegerRangeTest, CutWithoutACheck) {
    ExpectNumber<int>("2147483648", 0, std::numeric_limits<int>::min());
    ExpectNumber<int>("4294967297", 0, 1);
    ExpectNumber<unsigned int>("4294967295", 0, 4294967295u);
    ExpectNumber<unsigned int>("4294967296", 0, 0);
    ExpectNumber<short>("32768", 0, std::numeric_limits<short>::min());
    ExpectNumber<short>("65537", 0, 1);
    ExpectNumber<unsigned short>("65536", 0, 0);
    ExpectNumber<unsigned short>("65535", 0, 65535);
    ExpectNumber<long>("9223372036854775807", 0, std::numeric_limits<long>::max());
    ExpectNumber<unsigned long>("18446744073709551615", 0, std::numeric_limits<unsigned long>::max());
}

TEST(StringToIntegerRangeTest, BeyondTheWidestTypeItStaysAtTheLimit) {
    const char* const text = "99999999999999999999999";
    ExpectNumber<long>(text, 0, std::numeric_limits<long>::max());
    ExpectNumber<unsigned long>(text, 0, std::numeric_limits<unsigned long>::max());
    ExpectNumber<int>(text, 0, -1);
    ExpectNumber<unsigned int>(text, 0, 0xFFFFFFFFu);
    ExpectNumber<short>("-99999999999999999999999", 0, 0);
}

template <typename T>
class StringToFloatTest : public testing::Test {};
using FloatTypes = testing::Types<float, double>;
TYPED_TEST_SUITE(StringToFloatTest, FloatTypes);

TYPED_TEST(StringToFloatTest, Numbers) {
    const struct {
        const char* text;
        double value;
    } cases[] = {
        {"1.5", 1.5}, {"-0.25", -0.25}, {"007.5", 7.5}, {"1e3x", 1000},
        {" 2", 2},    {"0x10", 16},     {".5", 0.5},    {"1,5", 1},
    };
    for (const auto& test : cases) {
        TypeParam narrow = 99;
        TypeParam wide = 99;
        EXPECT_EQ(KEConvertStringToNumeric(narrow, test.text), KESTATUS_SUCCESS) << test.text;
        EXPECT_EQ(KEConvertStringToNumeric(wide, Widen(test.text).c_str()), KESTATUS_SUCCESS) << test.text;
        EXPECT_EQ(narrow, static_cast<TypeParam>(test.value)) << test.text;
        EXPECT_EQ(wide, static_cast<TypeParam>(test.value)) << test.text;
    }
}

TYPED_TEST(StringToFloatTest, NoNumber) {
    for (const char* text : {"", "abc", "-", ".", "e5"}) {
        TypeParam narrow = 99;
        TypeParam wide = 99;
        EXPECT_EQ(KEConvertStringToNumeric(narrow, text), cInvalid) << text;
        EXPECT_EQ(KEConvertStringToNumeric(wide, Widen(text).c_str()), cInvalid) << text;
        EXPECT_EQ(narrow, 99);
        EXPECT_EQ(wide, 99);
    }
}

TEST(StringToFloatRangeTest, TooLargeIsInfinite) {
    float value = 0;
    EXPECT_EQ(KEConvertStringToNumeric(value, "1e39"), KESTATUS_SUCCESS);
    EXPECT_TRUE(std::isinf(value));
}

} // namespace
