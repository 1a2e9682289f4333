// Gives out small numbers for objects and finds the objects again.
//
// A handle holds a kind, a generation and a slot number. So a closed handle, a handle of another table and a
// number that never was a handle are recognised. The table owns the objects.
//
// Finding is lock-free and pins the object: Remove waits until nobody uses it any more. Handles in use on
// different threads never share a cache line that is written.
#ifndef QUAYSIDE2_HANDLETABLE_H
#define QUAYSIDE2_HANDLETABLE_H

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

namespace quayside2 {

template <typename Object, std::uint32_t Kind>
class HandleTable {
    static_assert(Kind >= 1 && Kind <= 15);

    static constexpr std::uint32_t cSlotBits = 8;
    static constexpr std::uint32_t cGenerationBits = 20;
    static constexpr std::uint32_t cGenerationMask = (1u << cGenerationBits) - 1;
    // The word of a slot: generation in the upper half, then whether it is taken, whether it is being
    // closed, and the number of users.
    static constexpr std::uint64_t cTaken = 1ull << 31;
    static constexpr std::uint64_t cClosing = 1ull << 30;
    static constexpr std::uint64_t cUsersMask = cClosing - 1;

    struct alignas(64) Slot {
        std::atomic<std::uint64_t> word{0};
        std::unique_ptr<Object> object;
    };

public:
    static constexpr std::uint32_t cCapacity = 1u << cSlotBits;

    // An object in use: it lives at least as long as the pin. Empty when the handle was not valid.
    class Pin {
    public:
        Pin() = default;
        Pin(const Pin&) = delete;
        Pin& operator=(const Pin&) = delete;
        Pin(Pin&& other) noexcept : mSlot(other.mSlot) { other.mSlot = nullptr; }
        Pin& operator=(Pin&&) = delete;
        ~Pin() {
            if (!mSlot) {
                return;
            }
            const std::uint64_t before = mSlot->word.fetch_sub(1, std::memory_order_acq_rel);
            if ((before & cClosing) != 0) {
                mSlot->word.notify_all();
            }
        }
        explicit operator bool() const noexcept { return mSlot; }
        Object& operator*() const noexcept { return *mSlot->object; }
        Object* operator->() const noexcept { return mSlot->object.get(); }

    private:
        friend class HandleTable;
        explicit Pin(Slot* slot) noexcept : mSlot(slot) {}
        Slot* mSlot = nullptr;
    };

    // seed: generations start from there, so that handles of another process are unlikely to be valid here.
    explicit HandleTable(std::uint32_t seed) noexcept {
        for (Slot& slot : mSlots) {
            slot.word.store(std::uint64_t{seed & cGenerationMask} << 32, std::memory_order_relaxed);
        }
    }

    // Takes the object and returns its handle, or 0 when the table is full (the object is then destroyed).
    std::uint32_t Insert(std::unique_ptr<Object> object) noexcept {
        const std::lock_guard lock(mMutex);
        for (std::uint32_t tries = 0; tries < cCapacity; ++tries) {
            const std::uint32_t index = mNextSlot;
            mNextSlot = (mNextSlot + 1) % cCapacity;
            Slot& slot = mSlots[index];
            const std::uint64_t word = slot.word.load(std::memory_order_acquire);
            if ((word & cTaken) == 0) {
                slot.object = std::move(object);
                slot.word.store(word | cTaken, std::memory_order_release);
                return (Kind << (cSlotBits + cGenerationBits)) |
                       (static_cast<std::uint32_t>(word >> 32) << cSlotBits) | index;
            }
        }
        return 0;
    }

    Pin Find(std::uint32_t handle) noexcept {
        Slot& slot = mSlots[handle % cCapacity];
        std::uint64_t word = slot.word.load(std::memory_order_relaxed);
        do {
            if (!Matches(word, handle)) {
                return Pin();
            }
        } while (!slot.word.compare_exchange_weak(word, word + 1, std::memory_order_acquire,
                                                  std::memory_order_relaxed));
        return Pin(&slot);
    }

    // Makes the handle invalid, calls wake(object) so that its users leave, waits for them and returns the
    // object. Null when the handle was not valid.
    template <typename Wake>
    std::unique_ptr<Object> Remove(std::uint32_t handle, Wake&& wake) noexcept {
        Slot& slot = mSlots[handle % cCapacity];
        std::uint64_t word = slot.word.load(std::memory_order_relaxed);
        do {
            if (!Matches(word, handle)) {
                return nullptr;
            }
        } while (!slot.word.compare_exchange_weak(word, word | cClosing, std::memory_order_acq_rel,
                                                  std::memory_order_relaxed));
        wake(*slot.object);
        word = slot.word.load(std::memory_order_acquire);
        while ((word & cUsersMask) != 0) {
            slot.word.wait(word, std::memory_order_acquire);
            word = slot.word.load(std::memory_order_acquire);
        }
        std::unique_ptr<Object> object = std::move(slot.object);
        const std::uint64_t nextGeneration = ((word >> 32) + 1) & cGenerationMask;
        const std::lock_guard lock(mMutex);
        slot.word.store(nextGeneration << 32, std::memory_order_release);
        return object;
    }

    // For the handlers of a fork. Lock keeps the table as it is. Forget, in the child, makes every handle
    // invalid and destroys no object: the objects belong to the parent, and their threads do not exist here.
    void Lock() { mMutex.lock(); }
    void Unlock() { mMutex.unlock(); }
    void Forget() noexcept {
        for (Slot& slot : mSlots) {
            static_cast<void>(slot.object.release());
            const std::uint64_t generation = slot.word.load(std::memory_order_relaxed) >> 32;
            slot.word.store(((generation + 1) & cGenerationMask) << 32, std::memory_order_relaxed);
        }
    }

private:
    static bool Matches(std::uint64_t word, std::uint32_t handle) noexcept {
        const std::uint32_t generation = (handle >> cSlotBits) & cGenerationMask;
        return handle >> (cSlotBits + cGenerationBits) == Kind && word >> 32 == generation &&
               (word & (cTaken | cClosing)) == cTaken;
    }

    std::mutex mMutex; // Insert, and the freeing of a slot
    std::uint32_t mNextSlot = 0;
    std::array<Slot, cCapacity> mSlots;
};

} // namespace quayside2

#endif
