#include "kestatus_util.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace kestrelon {

namespace {

struct StatusRow {
    KESTATUS value;
    const char* nameA;
    const wchar_t* nameW;
    const char* textA;
    const wchar_t* textW;
};

#define WIDEN_LITERAL(text) L##text
#define STATUS_ROW(name, value, text) {value, #name, WIDEN_LITERAL(#name), text, WIDEN_LITERAL(text)},
constexpr StatusRow cRows[] = {KESTATUS_CODES(STATUS_ROW)};
#undef STATUS_ROW
#undef WIDEN_LITERAL

constexpr bool RowsAscend() {
    for (std::size_t i = 1; i < std::size(cRows); ++i) {
        if (cRows[i - 1].value >= cRows[i].value) {
            return false;
        }
    }
    return true;
}
static_assert(RowsAscend(), "the lookup is a binary search");

const StatusRow* FindRow(KESTATUS status) noexcept {
    const auto* row =
        std::lower_bound(std::begin(cRows), std::end(cRows), status,
                         [](const StatusRow& candidate, KESTATUS value) { return candidate.value < value; });
    return row != std::end(cRows) && row->value == status ? row : nullptr;
}

} // namespace

const char* KEStatusStringImplA(KESTATUS status) noexcept {
    const StatusRow* row = FindRow(status);
    return row ? row->nameA : nullptr;
}

const wchar_t* KEStatusStringImplW(KESTATUS status) noexcept {
    const StatusRow* row = FindRow(status);
    return row ? row->nameW : nullptr;
}

const char* KEStatusStringA(KESTATUS status) noexcept {
    const char* name = KEStatusStringImplA(status);
    return name ? name : "unknown";
}

const wchar_t* KEStatusStringW(KESTATUS status) noexcept {
    const wchar_t* name = KEStatusStringImplW(status);
    return name ? name : L"unknown";
}

const char* KEStatusTextImplA(KESTATUS status) noexcept {
    const StatusRow* row = FindRow(status);
    return row ? row->textA : nullptr;
}

const wchar_t* KEStatusTextImplW(KESTATUS status) noexcept {
    const StatusRow* row = FindRow(status);
    return row ? row->textW : nullptr;
}

const char* KEStatusTextA(KESTATUS status) noexcept {
    const char* text = KEStatusTextImplA(status);
    return text ? text : "unknown";
}

const wchar_t* KEStatusTextW(KESTATUS status) noexcept {
    const wchar_t* text = KEStatusTextImplW(status);
    return text ? text : L"unknown";
}

const char* KEStringForStatusCode(KESTATUS status) noexcept {
    return KEStatusStringA(status);
}

KESTATUS KEStatusFromStdErrorCode(const std::error_code& error) noexcept {
    return KEStatusFromErrno(error.value());
}

KESTATUS KEStatusFromStdFilesystemError(const std::filesystem::filesystem_error& error) noexcept {
    return KEStatusFromStdErrorCode(error.code());
}

} // namespace kestrelon
