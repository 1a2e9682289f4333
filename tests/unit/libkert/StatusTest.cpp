// The status codes: their values, names and texts, and the mapping of other errors.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "StatusTable.h"
#include "kestatus_util.h"

using namespace kestrelon;

namespace {

struct Row {
    KESTATUS value;
    const char* nameA;
    const wchar_t* nameW;
    const char* textA;
    const wchar_t* textW;
};

#define WIDE(text) L##text
#define ROW(value, name, text) {value, #name, WIDE(#name), text, WIDE(text)},
constexpr Row cTable[] = {STATUS_TABLE(ROW)};

#define CHECK_CONSTANT(value, name, text) static_assert((name) == (value));
STATUS_TABLE(CHECK_CONSTANT)

TEST(StatusTest, TableHasAllRows) {
    EXPECT_EQ(std::size(cTable), 137u);
}

TEST(StatusTest, EveryRowIsFoundNarrow) {
    for (const Row& row : cTable) {
        EXPECT_STREQ(KEStatusStringA(row.value), row.nameA);
        EXPECT_STREQ(KEStatusStringImplA(row.value), row.nameA);
        EXPECT_STREQ(KEStringForStatusCode(row.value), row.nameA);
        EXPECT_STREQ(KEStatusTextA(row.value), row.textA) << row.nameA;
        EXPECT_STREQ(KEStatusTextImplA(row.value), row.textA) << row.nameA;
    }
}

TEST(StatusTest, EveryRowIsFoundWide) {
    for (const Row& row : cTable) {
        EXPECT_STREQ(KEStatusStringW(row.value), row.nameW);
        EXPECT_STREQ(KEStatusStringImplW(row.value), row.nameW);
        EXPECT_STREQ(KEStatusTextW(row.value), row.textW) << row.nameA;
        EXPECT_STREQ(KEStatusTextImplW(row.value), row.textW) << row.nameA;
    }
}

TEST(StatusTest, EveryTextEndsWithAPeriod) {
    for (const Row& row : cTable) {
        EXPECT_EQ(std::string(KEStatusTextA(row.value)).back(), '.') << row.nameA;
    }
}

TEST(StatusTest, LookupsGiveTheSamePointerEachTime) {
    EXPECT_EQ(KEStatusStringA(KESTATUS_TIMEOUT), KEStatusStringA(KESTATUS_TIMEOUT));
    EXPECT_EQ(KEStatusTextW(KESTATUS_TIMEOUT), KEStatusTextW(KESTATUS_TIMEOUT));
}

void ExpectUnknown(KESTATUS value) {
    EXPECT_EQ(KEStatusStringImplA(value), nullptr) << std::hex << value;
    EXPECT_EQ(KEStatusStringImplW(value), nullptr) << std::hex << value;
    EXPECT_EQ(KEStatusTextImplA(value), nullptr) << std::hex << value;
    EXPECT_EQ(KEStatusTextImplW(value), nullptr) << std::hex << value;
    EXPECT_STREQ(KEStatusStringA(value), "unknown") << std::hex << value;
    EXPECT_STREQ(KEStatusStringW(value), L"unknown") << std::hex << value;
    EXPECT_STREQ(KEStatusTextA(value), "unknown") << std::hex << value;
    EXPECT_STREQ(KEStatusTextW(value), L"unknown") << std::hex << value;
    EXPECT_STREQ(KEStringForStatusCode(value), "unknown") << std::hex << value;
}

// Every value without a row in and around each family.
TEST(StatusTest, UnassignedSlotsAreUnknown) {
    std::map<KESTATUS, const char*> assigned;
    for (const Row& row : cTable) {
        assigned[row.value] = row.nameA;
    }
    const struct {
        KESTATUS first;
        KESTATUS last;
    } ranges[] = {
        {0x00000000, 0x00000200}, {0xDFFFFF00, 0xE0000200}, {0xE0000F00, 0xE0001240},
        {0xE0001F00, 0xE0002100}, {0xE000FF00, 0xE0010200}, {0xE001FF00, 0xE0020100},
        {0xFFFFFF00, 0xFFFFFFFE},
    };
    for (const auto& range : ranges) {
        for (KESTATUS value = range.first; value <= range.last; ++value) {
            if (!assigned.contains(value)) {
                ExpectUnknown(value);
            }
        }
    }
    ExpectUnknown(0xFFFFFFFF);
}

TEST(StatusTest, Borders) {
    for (const KESTATUS value :
         {0x00000001u, 0xE0000000u, 0xE000000Bu, 0xE0000112u, 0xE0001000u, 0xE0001006u, 0xE00010FFu,
          0xE0001101u, 0xE0002000u, 0xE0002003u, 0xE0010000u, 0xE0010023u}) {
        ExpectUnknown(value);
    }
}

TEST(StatusTest, TwoCodesShareATextOnPurpose) {
    EXPECT_STREQ(KEStatusTextA(KESTATUS_REJECTED), KEStatusTextA(KESTATUS_NOT_POSSIBLE));
    EXPECT_STRNE(KEStatusStringA(KESTATUS_REJECTED), KEStatusStringA(KESTATUS_NOT_POSSIBLE));
}

TEST(StatusTest, FromErrno) {
    EXPECT_EQ(KEStatusFromErrno(1), 0xE0010001u);
    EXPECT_EQ(KEStatusFromErrno(34), KESTATUS_LINUX_ERANGE);
    EXPECT_EQ(KEStatusFromErrno(110), 0xE001006Eu);
    EXPECT_EQ(KEStatusFromErrno(0xFFFF), 0xE001FFFFu);
    EXPECT_EQ(KEStatusFromErrno(0x12345), 0xE0012345u) << "only the low 16 bits count";
    EXPECT_EQ(KEStatusFromErrno(-1), 0xE001FFFFu);
}

TEST(StatusTest, FromStdErrorCodeTakesTheValueOfAnyCategory) {
    EXPECT_EQ(KEStatusFromStdErrorCode(std::error_code(ENOENT, std::system_category())), 0xE0010002u);
    EXPECT_EQ(KEStatusFromStdErrorCode(std::error_code(ENOENT, std::generic_category())), 0xE0010002u);
    EXPECT_EQ(KEStatusFromStdErrorCode(std::error_code(0x54321, std::generic_category())), 0xE0014321u);
    EXPECT_EQ(KEStatusFromStdErrorCode(std::error_code()), 0xE0010000u);
}

TEST(StatusTest, FromStdFilesystemErrorTakesItsCode) {
    const std::filesystem::filesystem_error error("what", std::error_code(EACCES, std::generic_category()));
    EXPECT_EQ(KEStatusFromStdFilesystemError(error), KESTATUS_LINUX_EACCES);
}

} // namespace
