// An owning handle: closes what it holds when it goes away. Moves leave the source invalid.
#ifndef KESTRELON_KEUNIQUEHANDLE_H
#define KESTRELON_KEUNIQUEHANDLE_H

#include <utility>

namespace kestrelon {

// InvalidValue stands for "holds nothing" and is never closed. CloseFunction(handle) reports a failure by
// itself; the handle counts as closed either way.
template <typename Handle, Handle InvalidValue, auto CloseFunction>
class KEUniqueHandleT {
public:
    static constexpr Handle InvalidHandleValue = InvalidValue;

    KEUniqueHandleT() = default;
    explicit KEUniqueHandleT(Handle handle) noexcept : mHandle(handle) {}
    ~KEUniqueHandleT() { CloseHandle(); }

    KEUniqueHandleT(KEUniqueHandleT&& other) noexcept : mHandle(other.ReleaseHandle()) {}
    KEUniqueHandleT& operator=(KEUniqueHandleT&& other) noexcept {
        if (this != &other) {
            SetHandle(other.ReleaseHandle());
        }
        return *this;
    }
    KEUniqueHandleT(const KEUniqueHandleT&) = delete;
    KEUniqueHandleT& operator=(const KEUniqueHandleT&) = delete;

    bool IsValidHandle() const noexcept { return mHandle != InvalidHandleValue; }
    Handle GetHandle() const noexcept { return mHandle; }

    // Closes the handle held so far and takes over this one.
    void SetHandle(Handle handle) noexcept {
        CloseHandle();
        mHandle = handle;
    }
    // Gives the handle away without closing it.
    Handle ReleaseHandle() noexcept { return std::exchange(mHandle, InvalidHandleValue); }
    void CloseHandle() noexcept {
        // Invalid before the close function runs: what that logs may come back here.
        Handle handle = ReleaseHandle();
        if (handle != InvalidHandleValue) {
            CloseFunction(handle);
        }
    }

protected:
    Handle mHandle = InvalidHandleValue;
};

} // namespace kestrelon

#endif
