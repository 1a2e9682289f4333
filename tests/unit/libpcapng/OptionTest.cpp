// Options: the bytes they are stored as, and the values read from them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

#include "ByteList.h"
#include "LogExpect.h"
#include "PcapNgOption.h"

namespace {

using namespace flowlane;
using namespace kestrelon;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;

class OptionTest : public testing::Test {
protected:
    ByteList Encoded() const {
        KEBufferBlock buffer;
        EXPECT_EQ(mOption.AddToBuffer(buffer), KESTATUS_SUCCESS);
        return Contents(buffer);
    }

    LogCapture mLog;
    DebugOutputCapture mDiagnostics;
    PcapNgOption mOption;
};

TEST_F(OptionTest, NewOptionHasNothing) {
    EXPECT_FALSE(mOption.IsValid());
    EXPECT_EQ(mOption.TotalLength(), 0u);
    EXPECT_THAT(Encoded(), IsEmpty());
}

TEST_F(OptionTest, ValueIsPaddedToAMultipleOfFour) {
    for (const std::size_t length : {0u, 1u, 2u, 3u, 4u, 5u, 7u, 8u, 65532u, 65533u, 65535u}) {
        SCOPED_TRACE(length);
        const ByteList value = Counting(length);
        ASSERT_EQ(mOption.CreateOption(0x1234, View(value)), KESTATUS_SUCCESS);
        const std::size_t padding = (4 - length % 4) % 4;
        const ByteList expected =
            Concat({LE16(0x1234), LE16(static_cast<unsigned>(length)), value, ByteList(padding, 0)});
        EXPECT_EQ(Encoded(), expected);
        EXPECT_TRUE(mOption.IsValid());
        EXPECT_EQ(mOption.OptionCode(), 0x1234);
        EXPECT_EQ(mOption.OptionLength(), length);
        EXPECT_EQ(mOption.OptionHeader(), length << 16 | 0x1234);
        EXPECT_EQ(mOption.TotalLength(), expected.size());
        EXPECT_EQ(Contents(mOption.Value()), value);
    }
    EXPECT_EQ(Encoded().size(), 65540u);
}

TEST_F(OptionTest, FiveBytesTakeTwelve) {
    ASSERT_EQ(mOption.CreateOption(2, View({1, 2, 3, 4, 5})), KESTATUS_SUCCESS);
    EXPECT_EQ(Encoded(), (ByteList{2, 0, 5, 0, 1, 2, 3, 4, 5, 0, 0, 0}));
}

TEST_F(OptionTest, LongerValueIsRefused) {
    ASSERT_EQ(mOption.CreateOption(2, View({1})), KESTATUS_SUCCESS);
    const ByteList tooLong(65536, 7);
    EXPECT_EQ(mOption.CreateOption(3, View(tooLong)), KESTATUS_INVALID_PARAMETER);
    EXPECT_EQ(Encoded(), (ByteList{2, 0, 1, 0, 1, 0, 0, 0}));
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "CreateOption", "data length 65536 exceeds max. 65535")));
}

TEST_F(OptionTest, ShorterValueLeavesNothingOfTheLongerOne) {
    ASSERT_EQ(mOption.CreateOption(2, View(ByteList(20, 0xFF))), KESTATUS_SUCCESS);
    ASSERT_EQ(mOption.CreateOption(3, View({9})), KESTATUS_SUCCESS);
    EXPECT_EQ(Encoded(), (ByteList{3, 0, 1, 0, 9, 0, 0, 0}));
    ASSERT_EQ(mOption.CreateOption(3, View(ByteList(40, 0xEE))), KESTATUS_SUCCESS);
    EXPECT_EQ(Encoded().size(), 44u);
}

TEST_F(OptionTest, TextHasNoTerminator) {
    ASSERT_EQ(mOption.CreateStringOption(2, "lane-1"), KESTATUS_SUCCESS);
    EXPECT_EQ(Encoded(), Concat({LE16(2), LE16(6), Text("lane-1"), {0, 0}}));
    ASSERT_EQ(mOption.CreateStringOption(2, ""), KESTATUS_SUCCESS);
    EXPECT_EQ(Encoded(), (ByteList{2, 0, 0, 0}));
    ASSERT_EQ(mOption.CreateStringOption(2, "ab\0cd"), KESTATUS_SUCCESS);
    EXPECT_EQ(mOption.OptionLength(), 2u);
}

TEST_F(OptionTest, NumbersAreInNativeOrder) {
    ASSERT_EQ(mOption.CreateNumericOption<std::uint8_t>(9, 9), KESTATUS_SUCCESS);
    EXPECT_EQ(Encoded(), (ByteList{9, 0, 1, 0, 9, 0, 0, 0}));
    ASSERT_EQ(mOption.CreateNumericOption<std::uint64_t>(4, 0x0102030405060708), KESTATUS_SUCCESS);
    EXPECT_EQ(Encoded(), (ByteList{4, 0, 8, 0, 8, 7, 6, 5, 4, 3, 2, 1}));
}

TEST_F(OptionTest, NumbersComeBack) {
    std::uint8_t small = 0;
    ASSERT_EQ(mOption.CreateNumericOption<std::uint8_t>(9, 0x86), KESTATUS_SUCCESS);
    EXPECT_EQ(mOption.GetNumericValue(small), KESTATUS_SUCCESS);
    EXPECT_EQ(small, 0x86);
    std::uint64_t large = 0;
    ASSERT_EQ(mOption.CreateNumericOption<std::uint64_t>(4, ~std::uint64_t{5}), KESTATUS_SUCCESS);
    EXPECT_EQ(mOption.GetNumericValue(large), KESTATUS_SUCCESS);
    EXPECT_EQ(large, ~std::uint64_t{5});
    std::uint16_t medium = 0;
    ASSERT_EQ(mOption.CreateNumericOption<std::uint16_t>(4, 0xABCD), KESTATUS_SUCCESS);
    EXPECT_EQ(mOption.GetNumericValue(medium), KESTATUS_SUCCESS);
    EXPECT_EQ(medium, 0xABCD);
    EXPECT_THAT(mLog.Messages(), IsEmpty());
    EXPECT_THAT(mDiagnostics.Messages(), IsEmpty());
}

TEST_F(OptionTest, NumberOfAnotherStoredSize) {
    std::uint8_t value = 77;
    EXPECT_EQ(mOption.GetNumericValue(value), KESTATUS_INVALID_SIZE); // nothing at all
    ASSERT_EQ(mOption.CreateOption(9, View({})), KESTATUS_SUCCESS);
    EXPECT_EQ(mOption.GetNumericValue(value), KESTATUS_INVALID_SIZE);
    ASSERT_EQ(mOption.CreateOption(9, View({1, 2, 3, 4, 5})), KESTATUS_SUCCESS);
    EXPECT_EQ(mOption.GetNumericValue(value), KESTATUS_INVALID_SIZE);
    EXPECT_EQ(value, 77);
    EXPECT_THAT(
        mLog.Messages(),
        ElementsAre(IsMessageOf(KEERROR, "GetNumericValue", "size mismatch, requiredSize=8, DataLength=0"),
                    IsMessageOf(KEERROR, "GetNumericValue", "size mismatch, requiredSize=8, DataLength=4"),
                    IsMessageOf(KEERROR, "GetNumericValue", "size mismatch, requiredSize=8, DataLength=12")));
}

TEST_F(OptionTest, NumberOfTheSamePaddedSize) {
    std::uint8_t value = 77;
    ASSERT_EQ(mOption.CreateOption(9, View({1, 2})), KESTATUS_SUCCESS);
    EXPECT_EQ(mOption.GetNumericValue(value), KESTATUS_INVALID_LENGTH);
    EXPECT_EQ(value, 77);
    EXPECT_THAT(mLog.Messages(),
                ElementsAre(IsMessageOf(KEERROR, "GetNumericValue", "invalid optionLength 2, exp. ")));
    // One argument too many.
    EXPECT_THAT(mDiagnostics.Messages(),
                ElementsAre(testing::HasSubstr("More arguments"), "invalid optionLength {}, exp. \n"));
}

TEST_F(OptionTest, MovesAndAppends) {
    ASSERT_EQ(mOption.CreateOption(2, View({1})), KESTATUS_SUCCESS);
    PcapNgOption moved(std::move(mOption));
    KEBufferBlock buffer(4);
    buffer.mBuffer[0] = 0xAA;
    buffer.mDataLength = 1;
    EXPECT_EQ(moved.AddToBuffer(buffer), KESTATUS_SUCCESS);
    EXPECT_EQ(Contents(buffer), (ByteList{0xAA, 2, 0, 1, 0, 1, 0, 0, 0}));
    EXPECT_EQ(buffer.mBufferSize, 9u); // exactly what was needed
}

} // namespace
