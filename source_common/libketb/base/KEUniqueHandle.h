// An owning handle: its destructor closes what it holds. A move leaves the source invalid. One thread at a
// time.
#ifndef KESTRELON_KEUNIQUEHANDLE_H
#define KESTRELON_KEUNIQUEHANDLE_H

#include <utility>

namespace kestrelon {

// InvalidValue means that nothing is held; it is never closed. CloseFunction(handle) reports a failure
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
        // Invalid before the close function runs: a message that it logs may lead back here.
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
